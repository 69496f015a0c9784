// The records with which a test program speaks to the controller.
//
// A test program says everything on standard output (a pipe in a patrol run, a file in an
// on-request run) in records: an 18-byte prefix "ONLPTL,0x########,", whose number is the count
// of bytes that follow it, a header line of 45 bytes, and a body whose layout depends on the
// record's type. All fields are text at fixed columns. Nothing else may be written there, nor to
// standard error, which is the same pipe in a patrol run.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace testprog {

// How a test ended; the number is what travels.
enum class EndCode { kOk = 1, kCancel = 2, kCompleted = 3, kNg = 4, kSkip = 5, kAbort = 6 };

// Who is to see a log record: the agent (a message id that begins with "W" or "E" goes to the
// system log as well), or the system log alone.
enum class LogLevel { kAgent = 1, kSystem = 2 };

// Message id of a log record that has none; at LogLevel::kAgent such a record goes to the
// controller's trace log only.
constexpr std::string_view kNoMessageId = "00000";

// Flag bits of a status record.
constexpr unsigned kFlagNextAddress = 1;  // a next address is given (used for disks only)
constexpr unsigned kFlagResultText = 2;   // that, and a result text follows
constexpr unsigned kFlagFaulty = 4;       // the component is to be reported as faulty

// What a progress record says. Times are in seconds, a limit of 0 is none; the controller reads
// the run time and the pass count and passes over the rest.
struct Progress {
    uint32_t run_time = 0;
    uint32_t limit = 0;
    unsigned level = 0;
    unsigned percent = 0;
    long passes = 0;
};

// What a disk information record says. Serial number and firmware version are cut to 16 and 4
// characters. Capacity is in sectors; neither number may be 0.
struct DiskInfo {
    uint32_t capacity = 0;
    uint16_t bytes_per_sector = 0;
    uint8_t bus_type = 0;
    std::string serial_number;
    std::string firmware;
};

// Writes records to a descriptor, each with one write(2) (continued where it is longer than
// PIPE_BUF or the system takes less). Every call returns true when the record is out and false when
// it is not: the reader has gone (SIGPIPE must be ignored or blocked), the file cannot take it, or
// a pipe has no room and SIGTERM, which must be blocked, has come. Names
// longer than their 16 columns are cut; control characters in names and log texts are dropped.
class RecordWriter {
 public:
    // `fd` stays the caller's. `program` must begin with "cputest", "memtest" or "hddtest" for
    // its pass count to be taken; `device` is the device under test.
    RecordWriter(int fd, std::string_view program, std::string_view device);

    // One line of text; `id` is five characters. The controller keeps 106 characters of it.
    bool Log(LogLevel level, std::string_view id, std::string_view text) const;

    // The last record of a test. `text` is the result text (any number of lines, without its
    // last line feed) and goes with kFlagResultText; empty, the record carries one empty line.
    bool Status(EndCode code, unsigned flags, uint32_t next_address, std::string_view text) const;

    // Dropped, with the result true, while a pipe has no room for it: a slow reader must not
    // hold a test up, and the next progress record says the same and more.
    bool SendProgress(const Progress& progress) const;

    bool SendDiskInfo(const DiskInfo& info) const;

    // The program has just begun a new generation of its own log.
    bool LogRotated() const;

 private:
    bool Send(unsigned type, const std::string& body) const;

    int fd_;
    std::string program_;
    std::string device_;
};

// The body of a progress record.
std::string ProgressBody(const Progress& progress);

// The whole record as it travels; `body` ends with its line feed. For tests and for writers that
// keep their records in another place.
std::string FormatRecord(unsigned type, std::string_view program, std::string_view device,
                         std::string_view body);

// snprintf into a string of whatever length it takes.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

// `text` without its control characters (codes below 32).
std::string Printable(std::string_view text);

// Local time as "yy/mm/dd hh:mm:ss mmm.uuu", 25 characters.
std::string TimeStamp();

}  // namespace testprog
