#include "base/signals.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace patrol {
namespace {

sigset_t start_mask;
sigset_t changed;    // signals whose disposition may not be the default
sigset_t wait_mask;  // what is blocked inside the waits
volatile sig_atomic_t noted_signal = 0;
void (*before_blocking)() = nullptr;
std::vector<pid_t> collected;
std::vector<pid_t> abandoned;

void DoNothing(int) {}

bool Holds(const std::vector<pid_t>& pids, pid_t pid) {
    return std::find(pids.begin(), pids.end(), pid) != pids.end();
}

sigset_t With(sigset_t mask, int signal) {
    sigaddset(&mask, signal);
    return mask;
}

sigset_t Without(sigset_t mask, int signal) {
    sigdelset(&mask, signal);
    return mask;
}

// ppoll that comes back for a noted signal only: -1 with EINTR then.
int PollNoting(pollfd* polled, nfds_t count, const timespec* limit, const sigset_t& mask) {
    noted_signal = 0;
    int result = 0;
    do {
        result = ppoll(polled, count, limit, &mask);
    } while (result < 0 && errno == EINTR && noted_signal == 0);
    return result;
}

}  // namespace

void PrepareSignals() {
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL) {
            sigaddset(&changed, signal);
        }
    }
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGHUP);
    sigaddset(&blocked, SIGCHLD);
    sigprocmask(SIG_BLOCK, &blocked, &start_mask);
    wait_mask = start_mask;
    InstallHandler(SIGCHLD, DoNothing);
    CatchFailedWrites();
}

void CatchFailedWrites() {
    InstallHandler(SIGPIPE, DoNothing);
    InstallHandler(SIGXFSZ, DoNothing);
}

int InstallHandler(int signal, SignalHandler handler) {
    sigaddset(&changed, signal);
    struct sigaction action = {};
    action.sa_handler = handler;
    return sigaction(signal, &action, nullptr);
}

void NoteSignal(int signal) { noted_signal = signal; }

void CallBeforeBlocking(void (*routine)()) { before_blocking = routine; }

void PrepareToBlock() {
    if (before_blocking != nullptr) before_blocking();
}

int LastNotedSignal() { return noted_signal; }

int WaitReadable(int fd) {
    const sigset_t mask = With(wait_mask, SIGCHLD);
    // A poll that finds data does not look for signals, so pending ones are let in first.
    const timespec no_time = {0, 0};
    if (PollNoting(nullptr, 0, &no_time, mask) < 0) return -1;
    pollfd polled = {fd, POLLIN, 0};
    if (before_blocking != nullptr && poll(&polled, 1, 0) > 0) return 0;
    PrepareToBlock();
    return PollNoting(&polled, 1, nullptr, mask) < 0 ? -1 : 0;
}

int WaitWritable(int fd) {
    pollfd polled = {fd, POLLOUT, 0};
    // Signals are the business of longer waits: where there is room at once they stay pending.
    if (poll(&polled, 1, 0) > 0) return 0;
    PrepareToBlock();
    return PollNoting(&polled, 1, nullptr, With(wait_mask, SIGCHLD)) < 0 ? -1 : 0;
}

pid_t WaitForChild(pid_t pid, int* status, int options) {
    const sigset_t mask = Without(wait_mask, SIGCHLD);
    while (true) {
        const pid_t ended = waitpid(pid, status, options | WNOHANG);
        if (ended > 0 && (WIFEXITED(*status) || WIFSIGNALED(*status))) collected.push_back(ended);
        if (pid < 0 && Holds(abandoned, ended)) continue;
        if (ended != 0) return ended;
        PrepareToBlock();
        noted_signal = 0;
        // SIGCHLD ends this pause unnoted: look again.
        ppoll(nullptr, 0, nullptr, &mask);
        if (noted_signal != 0) {
            errno = EINTR;
            return -1;
        }
    }
}

void AbandonChild(pid_t pid) { abandoned.push_back(pid); }

bool WasCollected(pid_t pid) { return Holds(collected, pid); }

int SignalChild(pid_t pid, int signal) {
    if (!WasCollected(pid)) return kill(pid, signal);
    errno = ESRCH;
    return -1;
}

void RestoreSignalsInChild() {
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&changed, signal) == 1) InstallHandler(signal, SIG_DFL);
    }
    sigprocmask(SIG_SETMASK, &start_mask, nullptr);
}

void NoteNewChild(pid_t pid) {
    for (std::vector<pid_t>* pids : {&collected, &abandoned}) {
        pids->erase(std::remove(pids->begin(), pids->end(), pid), pids->end());
    }
}

SignalScope::SignalScope() : wait_mask_(wait_mask) {
    sigprocmask(SIG_BLOCK, nullptr, &process_mask_);
}

SignalScope::~SignalScope() {
    alarm(0);
    for (const Saved& saved : saved_) {
        // An alarm that rang on the way out would meet the old disposition.
        if (saved.signal == SIGALRM) InstallHandler(SIGALRM, SIG_IGN);
        sigaction(saved.signal, &saved.action, nullptr);
    }
    wait_mask = wait_mask_;
    sigprocmask(SIG_SETMASK, &process_mask_, nullptr);
}

void SignalScope::LetIn(int signal) {
    Saved saved = {signal, {}};
    sigaction(signal, nullptr, &saved.action);
    saved_.push_back(saved);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    sigprocmask(SIG_BLOCK, &only, nullptr);
    wait_mask = Without(wait_mask, signal);
}

void SignalScope::KeepOut(int signal) { wait_mask = With(wait_mask, signal); }

void SignalScope::SetAlarm(int seconds) {
    if (seconds > 0) alarm(static_cast<unsigned>(seconds));
}

}  // namespace patrol
