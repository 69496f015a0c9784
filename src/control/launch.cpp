#include "control/launch.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/table.h"
#include "msg/call_failure.h"
#include "msg/event.h"
#include "msg/ptl_exit.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "sys/child.h"
#include "sys/data_lock.h"

namespace patrol {
namespace {

// Of the last launch.
pid_t test_pid = 0;
int pipe_rw_wk[2] = {-1, -1};

constexpr int kSignalMaskFailed = 1;
constexpr int kNotExecuted = 4;

// Both trace what has failed and return -1. The first is for the trace of the pass; the second is
// for the log, as a child that is about to be a test has no other place.
int LaunchFailed(const char* caller, const char* call, int error, const char* file) {
    Ptltrprintf("[%s] System Call Error (%s), errno:%d\n", caller, call, error);
    Ptltrprintf("[%s] cause     : %s\n", caller, std::strerror(error));
    Ptltrprintf("[%s] Error End\n", caller);
    // The run goes on and ends well, so that this is all the agent hears of it.
    const std::string text = std::string("file name = ") + file;
    ptl_printf(kAgentEvent, nullptr, "E3899", text);
    return -1;
}

int MaskFailed(const char* call, int error, const char* operation) {
    ReportCallFailure(CallFailure(call, error));
    if (operation != nullptr) ptl_printf(kTraceDetail, nullptr, "L1010", 1, operation);
    return -1;
}

// Turns this child into the test program; `caller` is the routine to trace under.
[[noreturn]] void BecomeTest(const char* caller, int kind, const LaunchBlock& block) {
    // A processor test may have its processor raise the signal, and must get it then.
    if (kind == kKindCpu && cntl_sigfpe(1) != 0) ptl_exit(kSignalMaskFailed);
    // execv takes its arguments as writable text, but leaves them alone.
    char* arguments[LaunchBlock::kSlots + 1] = {};
    for (int i = 0; i < LaunchBlock::kSlots && !block.slot[i].empty(); ++i) {
        arguments[i] = const_cast<char*>(block.slot[i].c_str());
        Ptltrprintf("[%s] [%s:%d] %s\n", caller, "execv(argv)", i, arguments[i]);
    }
    Ptltrprintf("[%s] [%s:%d] %s\n", caller, "execv(path)", 1, block.path.c_str());
    ExecuteProgram(block.path.c_str(), arguments);
    const int error = errno;
    Ptltrprintf("[%s] System Call Error (%s) , errno:%d\n", caller, "execv", error);
    Ptltrprintf("[%s] cause     : %s\n", caller, std::strerror(error));
    ptl_exit(kNotExecuted);
}

}  // namespace

int test_exec_init(int kind, int, const char* command, LaunchBlock* block) {
    for (auto& slot : block->slot) slot.Clear();
    const char* directory = std::getenv("KVX_bin");
    if (directory == nullptr) {
        Ptltrprintf("[%s] Environment Variable %s Not Found.\n", __func__, "KVX_bin");
        return -1;
    }
    const Kind* row = FindKind(kind);
    if (row == nullptr) {
        Ptltrprintf("Internal Interface Error , error value=0x%x.\n", static_cast<unsigned>(kind));
        return -1;
    }
    block->kind_name.Assign(row->name);
    block->path.Format("%s/%s", directory, row->program);
    block->slot[0] = block->path;
    std::string_view rest = command;
    // There is no quoting: one value of a parameter file may hold several words.
    for (int i = 1; i < LaunchBlock::kSlots && !rest.empty(); ++i) {
        const size_t word = std::min(rest.find(' '), rest.size());
        block->slot[i].Assign(rest.substr(0, word));
        rest.remove_prefix(std::min(word + 1, rest.size()));
    }
    Ptltrprintf("[%s] [exec] %s %s.\n", __func__, block->path.c_str(), command);
    return 0;
}

int test_exec(int kind, int reserved, int timeout, const char* command, int32_t* read_fd,
              int32_t* write_fd, pid_t* pid) {
    Ptltrprintf("[%s] Start.\n", __func__);
    LaunchBlock block;
    if (test_exec_init(kind, reserved, command, &block) != 0) {
        ptl_printf(kTraceDetail, nullptr, "T1112", __func__);
        return -1;
    }
    if (pipe2(pipe_rw_wk, O_CLOEXEC) != 0)
        return LaunchFailed(__func__, "pipe", errno, block.path.c_str());
    // Either end closes itself on the ways out that fail.
    Descriptor read_end(pipe_rw_wk[0]);
    Descriptor write_end(pipe_rw_wk[1]);

    ChildStart start;
    start.output = start.error = write_end.get();
    start.keeps_output = true;
    start.run = [&] { child_proc(kind, block); };
    test_pid = StartChild(start);
    // A failed fork goes by the name of the pipe as well.
    if (test_pid < 1) return LaunchFailed(__func__, "pipe", errno, block.path.c_str());

    write_end.Reset(-1);
    Ptltrprintf("[%s] Patrol Started(%s).\n", __func__, block.kind_name.c_str());
    Ptltrprintf("[%s] End.\n", __func__);
    *pid = test_pid;
    *read_fd = read_end.Release();
    *write_fd = pipe_rw_wk[1];
    check_time(1, timeout);
    return 0;
}

int test_exec2(int kind, int reserved, const char* command, int32_t* fd, pid_t* pid,
               const char* stdout_path) {
    Ptltrprintf("[%s] Start.\n", __func__);
    LaunchBlock block;
    if (test_exec_init(kind, reserved, command, &block) != 0) {
        // The name of the patrol routine stands here too.
        ptl_printf(kTraceDetail, nullptr, "T1112", "test_exec");
        return -1;
    }
    Descriptor output(open(stdout_path, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!output.ok()) return LaunchFailed(__func__, "open", errno, stdout_path);

    ChildStart start;
    start.output = output.get();
    start.run = [&] { child_proc2(kind, block); };
    test_pid = StartChild(start);
    if (test_pid < 1) return LaunchFailed(__func__, "fork", errno, block.path.c_str());

    Ptltrprintf("[%s] Padiag Started(%s).\n", __func__, block.kind_name.c_str());
    Ptltrprintf("[%s] End.\n", __func__);
    *pid = test_pid;
    *fd = output.Release();
    return 0;
}

void child_proc(int kind, const LaunchBlock& block) { BecomeTest(__func__, kind, block); }

void child_proc2(int kind, const LaunchBlock& block) { BecomeTest(__func__, kind, block); }

int cntl_sigfpe(int mode) {
    static bool changed = false;
    if (!changed && mode == 0) return 0;
    sigset_t mask;
    if (sigprocmask(SIG_SETMASK, nullptr, &mask) != 0) {
        return MaskFailed("sigprocmask", errno, "SIG_SETMASK");
    }
    const int blocked = sigismember(&mask, SIGFPE);
    if (blocked < 0) return MaskFailed("sigismember", errno, nullptr);
    const bool open_it = mode != 0;
    if ((blocked == 0) == open_it) return 0;

    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, SIGFPE);
    if (sigprocmask(open_it ? SIG_UNBLOCK : SIG_BLOCK, &only, nullptr) != 0) {
        return MaskFailed("sigprocmask", errno, open_it ? "SIG_UNBLOCK" : "SIG_BLOCK");
    }
    changed = true;
    return 0;
}

bool IsOn(const ProfileReader& profile, const char* section, const char* key) {
    return ReadFlag(profile, section, key) == Flag::kOn;
}

bool BeginLaunch(const char* caller, const ScheduleFile& schedule, const RunningTest& test,
                 const char* key) {
    Ptltrprintf("[%s] Start.\n", caller);
    if (IsOn(schedule.profile(), KeysOf(test.kind).section, key)) return true;
    Ptltrprintf("[%s] %sTest Not Exec.\n", caller, FindKind(test.kind)->short_name);
    return false;
}

int EndLaunch(const char* caller, bool started) {
    Ptltrprintf("[%s] %s.\n", caller, started ? "End" : "Error End");
    return started ? 1 : -1;
}

bool BeginDisks(const char* caller, const ScheduleFile& schedule) {
    Ptltrprintf("[%s] Start.\n", caller);
    const int count = schedule.DiskCount();
    if (AllocateDiskTable(count)) return true;
    Ptltrprintf("[%s] hdd_exec_go Alloc Error.(size= %d byte)\n", caller,
                TableBytes<RunningTest>(count));
    Ptltrprintf("[%s] Error End.\n", caller);
    return false;
}

RunningTest* NextDisk(const ScheduleFile& schedule, int number) {
    RunningTest* disk = &hdd_exec_tbl[hdd_exec_use];
    *disk = RunningTest();
    disk->device_name.Assign(schedule.Device<512>(number).view());
    disk->schedule_index = number;
    return disk;
}

// Two passes at once would test the same disks from the same addresses, and each would write the
// other's back.
bool BeginRun(const char* caller, const char* word) {
    if (ClaimRun(path_name, RunMode())) return true;
    Ptltrprintf("[%s] Warning:Another %s is running. Nothing is done.\n", caller, word);
    event("E3899:<<another %s is running on %s>>\n", word, path_name);
    return false;
}

void EndDisks(const char* caller) {
    if (hdd_exec_tbl == nullptr) return;
    FreeDiskTable();
    Ptltrprintf("[%s] hdd_exec_tbl Free.\n", caller);
}

}  // namespace patrol
