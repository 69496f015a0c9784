#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "process.h"

namespace patrol_test {

using Strings = std::vector<std::string>;

inline constexpr char kSchedule[] = "data/pat_new_sche.txt";
inline constexpr char kPadiagSchedule[] = "data/pat_sche2.txt";
inline constexpr char kTrace[] = "log/pat_trc_log";
inline constexpr char kHistory[] = "log/patstat0.txt";

// One disk of the device configuration.
struct Disk {
    std::string device, serial;
};

// A whole device configuration.
std::string DeviceXml(const std::vector<Disk>& disks);

// Lines of one: for each word "/dev/..." a device line, for "HDD" or "TAPE" a type, for "S/N=..."
// and the like an attribute, for "end" an end line, for anything else a status. A word with "<"
// stands as it is.
std::string Xml(const std::string& words);

// Disks /dev/sda, /dev/sdb, ... with the serial numbers SN-0000, SN-0001, ...
std::vector<Disk> NumberedDisks(int count);

// A patrol settings file; each switch is written as it stands ("ON", "OFF"), time-outs are 45.
std::string PatrolSettings(const std::string& cpu, const std::string& memory,
                           const std::string& disks);

// The pieces of a text between separators (the last one may lack its separator), and back: each
// piece followed by the separator.
Strings Split(const std::string& text, char separator = '\n');
// A text with `by` wherever `what` stood; one with line feeds for "\" and carriage returns for "~".
std::string Replaced(std::string text, const std::string& what, const std::string& by);
std::string Unescaped(const std::string& text);
// The same for whatever a regular expression matches.
std::string Masked(const std::string& text, const std::string& pattern, const std::string& by);

// The rows of a table, a line each, in fields between "|"; fields left out are empty.
std::vector<Strings> Rows(const std::string& table);
std::string Join(const Strings& pieces, const std::string& separator = "\n");

// The first and the last line; "(none)" when there is none.
std::string First(const Strings& lines);
std::string Last(const Strings& lines);

// A private agent directory tree with log/, data/, bin/, temp/ and config/, removed at the end.
// It starts with a message catalogue and a `bin/get` that answers "0"; the rest is the test's.
// Every path argument is relative to the directory.
class AgentDir {
 public:
    AgentDir();
    ~AgentDir();
    AgentDir(const AgentDir&) = delete;
    AgentDir& operator=(const AgentDir&) = delete;

    std::string Path(const std::string& relative = "") const;
    bool Exists(const std::string& relative) const;
    // Whether an unfinished write has left something in the data directory.
    bool LeftUnfinished() const;
    void Write(const std::string& relative, const std::string& text) const;
    std::string Read(const std::string& relative) const;  // empty when there is no such file
    Strings Lines(const std::string& relative) const;
    void MakeDir(const std::string& relative) const;
    void Remove(const std::string& relative) const;  // with everything below

    // Puts an executable /bin/sh script into bin/; returns its full path.
    std::string Script(const std::string& name, const std::string& body) const;

    // Value of a key in a section of a file in profile form; "(none)" when it is not there.
    std::string Key(const std::string& section, const std::string& key,
                    const std::string& file = kSchedule) const;
    // Replaces that value; the key must exist.
    void SetKey(const std::string& section, const std::string& key, const std::string& value,
                const std::string& file = kSchedule) const;

    // Trace lines with everything up to the first "):" taken off; whether one equals `line`.
    Strings Trace(const std::string& file = kTrace) const;
    bool Traced(const std::string& line, const std::string& file = kTrace) const;

    // Lines of a history file without their time stamp; of a log file as "number text".
    // A line of another form comes whole.
    Strings History(const std::string& file = kHistory) const;
    Strings Log(const std::string& file = "log/pat_trc0.log") const;

    // The clean environment that points the program at this directory.
    Env Environment() const;
    // Starts patrol.exe with these words; Run also waits for its end.
    std::unique_ptr<Process> Start(const Strings& words, const Launch& launch = {});
    Result Run(const Strings& words, const Launch& launch = {});

 private:
    std::string root_;
    int runs_ = 0;
};

// The agent's event pipe: a fifo at the place that KVX_PIPE names, with a reader held by the test.
class EventPipe {
 public:
    explicit EventPipe(const AgentDir& agent);
    ~EventPipe();
    EventPipe(const EventPipe&) = delete;
    EventPipe& operator=(const EventPipe&) = delete;

    // All lines that came since the last call.
    Strings Lines();
    // The reader leaves; the fifo stays.
    void Leave();

 private:
    int fd_ = -1;
};

class AgentTest : public ::testing::Test {
 protected:
    AgentDir agent_;
};

}  // namespace patrol_test
