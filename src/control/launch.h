// Starting a test program as a child of this process, and what the patrol and the padiag launchers
// share around it.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "base/running_tests.h"
#include "base/text.h"
#include "control/command_line_builder.h"
#include "state/schedule_file.h"

namespace patrol {

// What a test program is started with.
struct LaunchBlock {
    static constexpr int kSlots = 32;
    Text<64> kind_name;
    Text<512> path;          // of the program, in the agent's binary directory
    Text<512> slot[kSlots];  // slot 0 is the path; the first empty slot ends the arguments
};

// Fills `block` for a test of `kind`: `command` is split at single blanks, so that two blanks in a
// row give an empty argument, which ends them; words past slot 31 are dropped. `reserved` is not
// used. Returns 0, or -1 when "KVX_bin" is unset or the kind is unknown (traced).
int test_exec_init(int kind, int reserved, const char* command, LaunchBlock* block);

// Starts the test with its standard output and standard error on a pipe, and starts the pass clock
// with `timeout` seconds. Returns 0 with the read end, the number of the write end (closed here)
// and the pid, or -1 (traced). A program that cannot be executed is seen as a pipe that ends at
// once.
int test_exec(int kind, int reserved, int timeout, const char* command, int32_t* read_fd,
              int32_t* write_fd, pid_t* pid);

// Starts the test with its standard output on the file at `stdout_path`, which is made (mode 0644)
// where it is missing and not truncated: a longer earlier content remains behind what the test
// writes. Its standard error is this program's. Returns 0 with the file's descriptor and the pid,
// or -1 (traced).
int test_exec2(int kind, int reserved, const char* command, int32_t* fd, pid_t* pid,
               const char* stdout_path);

// The child's side of the two: makes sure that a processor test gets SIGFPE, and executes the
// program. Ends the child with status 1 or 4 where that fails.
[[noreturn]] void child_proc(int kind, const LaunchBlock& block);
[[noreturn]] void child_proc2(int kind, const LaunchBlock& block);

// Mode 1 makes sure that SIGFPE is not blocked; mode 0 blocks it again where an earlier call had
// opened it. Returns 0, or -1 (reported).
int cntl_sigfpe(int mode);

// The steps of a launcher, before and after what is its own. `caller` is the routine to trace
// under.

// A command line, and whether it has the test program fail on purpose.
struct TestCommand {
    CommandLineBuilder line;
    bool error_mode = false;

    // As the traces say it.
    const char* ModeWord() const { return error_mode ? "ErrorMode" : "NormalMode"; }
};

// Returns whether a flag is on: its value does not begin with "OFF". A missing one is off.
bool IsOn(const ProfileReader& profile, const char* section, const char* key);

// Begins the launch of the processor or the memory test. Returns false (traced) when it is not due
// by `key` of its section.
bool BeginLaunch(const char* caller, const ScheduleFile& schedule, const RunningTest& test,
                 const char* key);

// Ends it. Returns the launcher's result: 1, or -1 (traced) when the test was not started.
int EndLaunch(const char* caller, bool started);

// Begins the launch of the disks with an empty table for those of `schedule`. Returns false
// (traced) when it cannot be allocated.
bool BeginDisks(const char* caller, const ScheduleFile& schedule);

// Returns the table entry for the next disk to be launched, with the name and number of disk
// `number` of `schedule`. It counts as launched once hdd_exec_use is raised.
RunningTest* NextDisk(const ScheduleFile& schedule, int number);

// Notes that this run is under way. Returns false (traced, and told to the agent) when another
// process runs the same mode, called `word`, on the same data directory.
bool BeginRun(const char* caller, const char* word);

// Frees the disk table where there is one.
void EndDisks(const char* caller);

}  // namespace patrol
