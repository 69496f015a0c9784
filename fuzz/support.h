// What the fuzz targets share: the library pointed at a private agent directory, and an input taken
// apart.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>

#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "library.h"
#include "msg/log_files.h"
#include "sys/profile.h"

namespace patrol_fuzz {

using namespace patrol;

// The parts of an input, each taken off once. A text is taken from the front and ends at a
// backslash with anything but another one behind it; a number is taken from the end. So seeds are
// text files.
class Input {
 public:
    explicit Input(std::string bytes) : bytes_(std::move(bytes)) {}

    bool empty() const { return bytes_.empty(); }
    std::string Text(size_t most = std::string::npos);
    // A text as a C string holds it, and as one line of a file does.
    std::string Word(size_t most = 600);
    std::string Rest() { return std::move(bytes_); }
    template <class Integer>
    Integer Number(Integer least, Integer most) {
        return static_cast<Integer>(
            static_cast<uint64_t>(least) +
            Below(static_cast<uint64_t>(most) - static_cast<uint64_t>(least)));
    }
    bool Bool() { return Number(0, 1) == 1; }

 private:
    uint64_t Below(uint64_t last);  // or `last` itself

    std::string bytes_;
};

// Defines a target, a function of `Input& input`: libFuzzer runs it on what it makes up, and a test
// on its seeds and on what comes of them.
using Target = void (*)(Input& input);
std::map<std::string, Target>& Targets();
#define FUZZ_TARGET(name)                                                               \
    static void Run(Input& input);                                                      \
    [[maybe_unused]] static const bool is_known = Targets().emplace(#name, Run).second; \
    static void Run([[maybe_unused]] Input& input)

// An agent directory without catalogue and commands: "KVX_bin" is unset, so that no test program
// is started; no trace is set up; "KVX_PIPE" names no pipe until the target makes it. The wall
// clock stands at `now` until the input moves it.
class Agent : public patrol_test::AgentDir {
 public:
    // The directory, and the library, as they are before every input.
    static Agent& Fresh();

    // A Schedule of two disks, and the check that nothing but the address of disk 1 has changed.
    void WriteDiskSchedule(const std::string& relative) const;
    void CheckDiskSchedule(const std::string& relative) const;

    std::time_t now = 1000000;
    // What went to the system log, one line a call.
    std::string system_log;

 private:
    Agent();
};

// Makes a text of `much` of each of the first two tabs in a stream of records, which may be more
// than the fields of a part report hold, and announces the record that it stands in as so much
// longer.
constexpr size_t kLongest = 60000;
std::string Grown(std::string bytes, size_t much);

// Checks that a text is one line, as a test program's words must be wherever they go, that every
// event is one and begins with a number, and that part reports keep to their fields.
void CheckOneLine(const std::string& line);
void CheckEvents(patrol_test::EventPipe* events);
void CheckReports(const Agent& agent);

// The test of a kind; of the disks, the one in the table, which is then in use: /dev/sdb, disk 1.
RunningTest* RunTest(int kind);

// Ends the run when a rule does not hold; libFuzzer keeps the input.
void Check(bool holds, const char* rule, const std::string& found = "");

// Checks that a Schedule file has the sections of the disks it counts and no others. Returns the
// number of disks.
int CheckWholeSchedule(const char* path);

}  // namespace patrol_fuzz
