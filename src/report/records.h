// The records that a test program sends: header line, then a body by type. The status record has a
// room of its own, status_record.h; the framing, too, record_stream.h.
//
// A reader hands over bodies as buffers with at least kRecordSlack zero bytes behind them, so fixed
// fields may be read whatever the body's length. Numbers are decimal, "0x" hexadecimal or
// leading-0 octal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "base/running_tests.h"
#include "base/text.h"

namespace patrol {

inline constexpr size_t kHeaderSize = 45;  // the header line with its line feed
inline constexpr size_t kRecordSlack = 128;

// Types of a record as the context keeps them. They are tested against a set of bits, so a progress
// record passes wherever log or status records do.
enum : uint32_t {
    kTypeLog = 1,
    kTypeStatus = 2,
    kTypeProgress = 3,
    kTypeHddInfo = 4,
    kTypeProcess = 8,
};

// What the records say, read before anything is done about it.

struct RecordHead {
    Text<5> type_field;
    uint32_t type = 0;  // of those above; 0: there is no such type
    int32_t lines = 0;
    Text<17> program;
};
RecordHead ParseHead(const char* record);

struct LogRecord {
    Text<5> level_field;
    uint32_t level = 0;
    Text<6> id;
    Text<27> stamp;
    std::string text;          // as far as it is kept
    unsigned destination = 0;  // flags of ptl_printf

    bool ValidLevel() const { return level == 1 || level == 2; }
};
LogRecord ParseLog(const char* body);

struct ProgressRecord {
    bool has_seconds = false;
    uint32_t seconds = 0;
    std::optional<int> passes;
};
ProgressRecord ParseProgress(const char* body);

struct DiskInfoRecord {
    Text<13> capacity_field;
    uint32_t capacity = 0;
    Text<7> sector_size_field;
    uint32_t sector_size = 0;
};
DiskInfoRecord ParseDiskInfo(const char* body);

struct NoticeRecord {
    Text<13> field;
    uint32_t content = 0;

    bool Valid() const { return content == 1 || content == 2; }
};
NoticeRecord ParseNotice(const char* body);

struct RecordContext {
    uint32_t type = 0;
    int32_t lines = 0;
    Text<17> program;  // the test program's name
    Text<17> device;   // the device the controller launched the test for, whatever the record says
};

// Checks the header line at `record` and fills `context`, which takes `device`, the name that the
// test was launched with, for the device. Returns 0, or -1 for an unknown type or no lines
// (traced).
int check_testdata_head(const char* record, const char* device, RecordContext* context);

// Relays the text of a log body: to the trace-detail log, the agent, the system log, by its level
// and message id. Returns 0, or -1 for an unknown level (traced).
int check_testdata_log(const char* body, const RecordContext& context);

// Checks a disk information body and stores the capacity. Returns 0, or -1 for no capacity or
// sector size (traced).
int check_testdata_hddinfo(const char* body, const RecordContext& context, uint32_t* capacity);

// Checks a process notice. Returns 1 when the test program has rotated its own log, 0 for the other
// known notice, -1 for an unknown one (traced).
int check_testdata_proc(const char* body);

// Takes the run time of `test` and a pass count from a progress body. The pass count goes by the
// test program's name in the header, which may name another kind; names that do not begin with one
// of the three programs leave it alone.
void CheckTestdataProgress(const char* body, const RecordContext& context, RunningTest* test);

// Removes every carriage return from the first `length` bytes of `text` and ends it there; below 1
// the text becomes empty.
void cr_cutman(char* text, int length);

}  // namespace patrol
