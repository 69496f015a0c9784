#include "base/signals.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "base/blocking.h"

namespace patrol {
namespace {

sigset_t start_mask;
sigset_t changed;    // signals whose disposition may not be the default
sigset_t wait_mask;  // what is blocked inside the waits
volatile sig_atomic_t noted_signal = 0;

// Unlike SIG_IGN this does not outlive an execv, and it keeps ended children to be waited for.
void DoNothing(int) {}

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
    // A handler that does nothing, or a stop and go, is no end of the wait.
    do {
        result = ppoll(polled, count, limit, &mask);
    } while (result < 0 && errno == EINTR && noted_signal == 0);
    return result;
}

// Waits for `polled` without limit. The ends of children are none of its business.
int WaitFor(pollfd* polled) {
    return BlockingCall(
        [polled] { return PollNoting(polled, 1, nullptr, With(wait_mask, SIGCHLD)) < 0 ? -1 : 0; });
}

// Whether a wait for `polled` would be over at once.
bool Ready(pollfd* polled) { return poll(polled, 1, 0) > 0; }

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
    // What was blocked at the start stays blocked even in the waits.
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

const sigset_t& StartMask() { return start_mask; }

bool DispositionChanged(int signal) { return sigismember(&changed, signal) == 1; }

void NoteSignal(int signal) { noted_signal = signal; }

int LastNotedSignal() { return noted_signal; }

int WaitReadable(int fd) {
    // A poll that finds data does not look for signals, so pending ones are let in first.
    const timespec no_time = {0, 0};
    if (PollNoting(nullptr, 0, &no_time, With(wait_mask, SIGCHLD)) < 0) return -1;
    pollfd polled = {fd, POLLIN, 0};
    // Data that is there is no reason to do now what was put off.
    if (AnythingPutOff() && Ready(&polled)) return 0;
    return WaitFor(&polled);
}

int WaitWritable(int fd) {
    pollfd polled = {fd, POLLOUT, 0};
    // Signals are the business of longer waits: where there is room at once they stay pending.
    return Ready(&polled) ? 0 : WaitFor(&polled);
}

int WaitForChildSignal() {
    const sigset_t mask = Without(wait_mask, SIGCHLD);
    return BlockingCall([&mask] {
        noted_signal = 0;
        ppoll(nullptr, 0, nullptr, &mask);
        if (noted_signal == 0) return 0;
        errno = EINTR;
        return -1;
    });
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
