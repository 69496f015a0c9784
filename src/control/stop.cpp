#include "control/stop.h"

#include <signal.h>

#include <cerrno>
#include <cstring>

#include "base/disk_table.h"
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
void HoldAndCleanUp(int signal, int cause) {
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGHUP);
    sigaddset(&both, SIGINT);
    sigprocmask(SIG_BLOCK, &both, nullptr);
    NoteSignal(signal);
    ptl_clean_up(cause);
}

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
    Ptltrprintf("[%s] Clean Up Process : %s\n", __func__, CauseWord(cause));
    if (f_padiag_cpu == 1) Cancel("Cputest", ProcessIdCpu);
    if (f_padiag_mem == 1) Cancel("Memtest", ProcessIdMem);
    if (f_padiag_hdd != 1) return;
    for (int i = 0; i < hdd_exec_use; ++i) Cancel("Hddtest", hdd_exec_tbl[i].pid);
}

void sighup_func(int signal) { HoldAndCleanUp(signal, kCauseHangUp); }

void sigint_func(int signal) { HoldAndCleanUp(signal, kCauseInterrupt); }

}  // namespace patrol
