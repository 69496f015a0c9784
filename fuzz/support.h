// What the fuzz targets share: the library pointed at a private agent directory.
//
// A part of an input ends at a backslash with a line feed behind it, as ConsumeRandomLengthString
// has it, and numbers are taken from the end of the input, so that seeds are text files.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <ctime>
#include <string>

#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/log_files.h"
#include "sys/profile.h"

namespace patrol_fuzz {

using namespace patrol;

// The empty directories log/, data/, temp/ and config/ that the environment points at. "KVX_bin" is
// unset, so that no command and no test program is started; no trace is set up; "KVX_PIPE" names no
// pipe. The wall clock stands at `now` until the input moves it.
class Agent {
 public:
    // The agent directory as it is before every input.
    static Agent& Fresh();

    std::string Path(const std::string& relative) const { return root_ + "/" + relative; }
    void Write(const std::string& relative, const std::string& bytes) const;
    // Empty when there is no such file.
    std::string Read(const std::string& relative) const;
    bool Exists(const std::string& relative) const;

    // A Schedule of two disks, and the check that nothing but the address of disk 1 has changed.
    void WriteDiskSchedule(const std::string& relative) const;
    void CheckDiskSchedule(const std::string& relative) const;

    std::time_t now = 1000000;
    // What went to the system log, one line a call.
    std::string system_log;

 private:
    Agent();
    ~Agent();
    void Clear();

    std::string root_;
};

// The test of a kind; of the disks, the one in the table, which is then in use: /dev/sdb, disk 1.
RunningTest* RunTest(int kind);

// Ends the run when a rule does not hold; libFuzzer keeps the input.
void Check(bool holds, const char* rule, const std::string& found = "");

// A text without NUL, as a C string holds it, and without line feed, as one line of a file does.
std::string Word(FuzzedDataProvider* input, size_t most = 600);

// Checks that a Schedule file has the sections of the disks it counts and no others, and that
// nothing half-written stands beside it. Returns the number of disks.
int CheckWholeSchedule(const char* path);

}  // namespace patrol_fuzz
