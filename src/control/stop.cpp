#include "control/stop.h"

#include <signal.h>

#include <cerrno>
#include <cstring>

#include "base/disk_table.h"
#include "base/running_tests.h"
#include "base/settings.h"
#include "base/signals.h"
#include "control/launch.h"
#include "msg/trace.h"
#include "sys/child.h"

namespace patrol {
namespace {

constexpr int kCauseHangUp = 1;
constexpr int kCauseInterrupt = 2;

const char* CauseWord(int cause) {
    if (cause == kCauseHangUp) return "SIGHUP";
    return cause == kCauseInterrupt ? "SIGINT" : "UNKNOWN";
}

void Cancel(const char* program, pid_t pid) {
    Ptltrprintf("[%s] %s Cancel -> ProcessId = 0x%08x\n", "ptl_clean_up", program,
                static_cast<unsigned>(pid));
    ptl_test_terminate(pid);
}

// Keeps the two signals out until the handler returns, and ends the wait they came in.
void HoldAndCleanUp(int cause) {
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGHUP);
    sigaddset(&both, SIGINT);
    sigprocmask(SIG_BLOCK, &both, nullptr);
    NoteSignal();
    ptl_clean_up(cause);
}

// Which tests are to be stopped.
struct Chosen {
    bool cpu;
    bool memory;
    bool (*disk)(const RunningTest& disk);
};

// In the order of the kinds; those that are not running are not spoken of.
void CleanUp(const char* cause, const Chosen& chosen) {
    Ptltrprintf("[%s] Clean Up Process : %s\n", "ptl_clean_up", cause);
    if (chosen.cpu) Cancel("Cputest", ProcessIdCpu);
    if (chosen.memory) Cancel("Memtest", ProcessIdMem);
    for (int i = 0; i < hdd_exec_use; ++i) {
        if (chosen.disk(hdd_exec_tbl[i])) Cancel("Hddtest", hdd_exec_tbl[i].pid);
    }
}

// A patrol pass has none of these flags set: there a signal only ends the wait under way.
bool OfThisRun(const RunningTest&) { return f_padiag_hdd == 1; }

// A number that was collected may belong to a stranger by now.
bool IsRunning(const RunningTest& test) { return test.pid > 0 && !WasCollected(test.pid); }

}  // namespace

void ptl_test_terminate(pid_t pid) {
    if (pid <= 0 || SignalChild(pid, SIGINT) == 0) return;
    const int error = errno;
    Ptltrprintf("[%s] System Call Error %s , errno:%d\n", __func__, "kill", error);
    Ptltrprintf("[%s] cause     :%s\n", __func__, std::strerror(error));
    Ptltrprintf("[%s] argument[%d]: %d\n", __func__, 1, pid);
    Ptltrprintf("[%s] argument[%d]: %s\n", __func__, 2, "SIGINT");
}

void ptl_clean_up(int cause) {
    CleanUp(CauseWord(cause), {f_padiag_cpu == 1, f_padiag_mem == 1, OfThisRun});
}

void sighup_func(int) { HoldAndCleanUp(kCauseHangUp); }

void sigint_func(int) { HoldAndCleanUp(kCauseInterrupt); }

// Dies of the signal and does not just exit, so that whoever sent it sees from the wait status that
// it was obeyed.
void sigterm_func(int signal) {
    CleanUp("SIGTERM", {IsRunning(cpu_test), IsRunning(mem_test), IsRunning});
    InstallHandler(signal, SIG_DFL);
    raise(signal);
    // It is blocked as long as its handler runs.
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
}

}  // namespace patrol
