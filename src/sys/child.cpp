#include "sys/child.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "base/file.h"
#include "msg/log_files.h"
#include "msg/trace.h"
#include "sys/deferred_writes.h"

namespace patrol {
namespace {

constexpr int kNotExecuted = 127;  // as a shell says it

// A pass starts a few hundred children at most, so that it is enough to search these from their
// start.
std::vector<pid_t> collected;
std::vector<pid_t> abandoned;

bool Holds(const std::vector<pid_t>& pids, pid_t pid) {
    return std::find(pids.begin(), pids.end(), pid) != pids.end();
}

bool HasEnded(int status) { return WIFEXITED(status) || WIFSIGNALED(status); }

// Makes `fd` the child's descriptor `target`.
void Route(int fd, int target) {
    if (fd < 0) return;
    // dup2 of a descriptor to itself would leave it close-on-exec.
    const int result = fd == target ? fcntl(fd, F_SETFD, 0) : dup2(fd, target);
    if (result < 0) _exit(kNotExecuted);
}

// Default dispositions of all signals, whatever this process was started with, and the mask of the
// start.
void RestoreSignals() {
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (DispositionChanged(signal)) InstallHandler(signal, SIG_DFL);
    }
    // A trace line that finds its file full is not to kill a child before it is its program.
    CatchFailedWrites();
    sigprocmask(SIG_SETMASK, &StartMask(), nullptr);
}

// Everything between the fork and the program, in this one place.
[[noreturn]] void RunChild(const ChildStart& start) {
    // A flush that failed before the fork has left its lines; they are the parent's to write.
    ClearLogBuffers();
    trpurge();
    RestoreSignals();
    // Standard error first: `output` may be descriptor 2 itself, `error` is never descriptor 1.
    Route(start.error, STDERR_FILENO);
    Route(start.output, STDOUT_FILENO);
    if (start.keeps_output) Route(start.output, start.output);
    start.run();
    // Not exit(): what the parent has to do at its end is not to be done twice.
    _exit(kNotExecuted);
}

}  // namespace

pid_t StartChild(const ChildStart& start) {
    // What is still in memory would be there twice after the fork, and be written by both.
    FlushDeferredWrites();
    FlushLogBuffers();
    std::fflush(nullptr);
    const pid_t pid = start.fork_call != nullptr ? start.fork_call() : fork();
    if (pid == 0) RunChild(start);
    if (pid > 0) NoteNewChild(pid);
    return pid;
}

int ExecuteProgram(const char* path, char* const* arguments) {
    // The mask of this process keeps its own files from others. What the program makes is not among
    // them.
    const mode_t own = umask(StartFileMask());
    execv(path, arguments);
    const int error = errno;
    umask(own);
    errno = error;
    return -1;
}

pid_t WaitForChild(pid_t pid, int* status, int options, const SignalWatch& watch) {
    while (true) {
        const pid_t ended = waitpid(pid, status, options | WNOHANG);
        if (ended > 0 && HasEnded(*status)) collected.push_back(ended);
        // It has been collected all the same, so that it does not stay behind as a zombie.
        if (pid < 0 && Holds(abandoned, ended)) continue;
        if (ended != 0) return ended;
        if (WaitForChildSignal(watch) != 0) return -1;
    }
}

bool HasStoppedUnseen(pid_t pid) {
    siginfo_t stopped = {};
    return waitid(P_PID, static_cast<id_t>(pid), &stopped, WSTOPPED | WNOHANG) == 0 &&
           stopped.si_pid == pid;
}

void AbandonChild(pid_t pid) { abandoned.push_back(pid); }

bool WasCollected(pid_t pid) { return Holds(collected, pid); }

int SignalChild(pid_t pid, int signal) {
    if (!WasCollected(pid)) return kill(pid, signal);
    errno = ESRCH;
    return -1;
}

Text<32> WakeUpText(int status) {
    Text<32> text("continued");
    if (WIFEXITED(status)) text.Format("exit_code=%d", WEXITSTATUS(status));
    if (WIFSIGNALED(status)) text.Format("killed by signal=%d", WTERMSIG(status));
    if (WIFSTOPPED(status)) text.Format("stopped by signal=%d", WSTOPSIG(status));
    return text;
}

void NoteNewChild(pid_t pid) {
    for (std::vector<pid_t>* pids : {&collected, &abandoned}) {
        pids->erase(std::remove(pids->begin(), pids->end(), pid), pids->end());
    }
}

}  // namespace patrol
