#include "base/signals.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "base/blocking.h"

namespace patrol {
namespace {

sigset_t start_mask;
sigset_t changed;                 // signals whose disposition may not be the default
sigset_t wait_mask;               // what is blocked inside the waits
std::atomic<unsigned> noted = 0;  // how many signals were

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

bool IsPending(int signal) {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

// Lets in what is pending, and waits for nothing.
void LetPendingIn() {
    sigset_t mask = With(wait_mask, SIGCHLD);
    // SIGTERM may end the program: what was put off is done before, and not for any lesser reason.
    if (IsPending(SIGTERM)) {
        PrepareToBlock();
    } else {
        mask = With(mask, SIGTERM);
    }
    const timespec no_time = {0, 0};
    ppoll(nullptr, 0, &no_time, &mask);
}

// Returns whether a wait for `polled` would be over at once.
bool Ready(pollfd* polled) { return poll(polled, 1, 0) > 0; }

// Returns -1 as a call does that a signal ended.
int Interrupted() {
    errno = EINTR;
    return -1;
}

// Waits for `polled` without limit, or until more than `before` signals have been noted. The ends
// of children are none of its business.
int WaitFor(pollfd* polled, unsigned before) {
    return BlockingCall([polled, before] {
        const sigset_t mask = With(wait_mask, SIGCHLD);
        // A handler that does nothing, or a stop and go, is no end of the wait.
        while (noted == before) {
            if (ppoll(polled, 1, nullptr, &mask) >= 0) return 0;
            if (errno != EINTR) return -1;
        }
        // Both may have come at the same time.
        return Ready(polled) ? 0 : Interrupted();
    });
}

}  // namespace

void PrepareSignals() {
    // Whoever has started this program may have handed dispositions on, as nohup does. Children are
    // to begin with the default ones, and only those that differ need be set back.
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL) {
            sigaddset(&changed, signal);
        }
    }
    // SIGCHLD is among them because an end that comes between a look at the children and the wait
    // for them would be slept through.
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGHUP);
    sigaddset(&blocked, SIGTERM);
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

void NoteSignal() { ++noted; }

SignalWatch::SignalWatch() {
    LetPendingIn();
    begun_ = noted;
}

bool SignalWatch::Noted() const { return noted != begun_; }

int WaitReadable(int fd) {
    // A poll that finds data does not look for signals.
    LetPendingIn();
    pollfd polled = {fd, POLLIN, 0};
    // Data that is there is no reason to do now what was put off.
    return Ready(&polled) ? 0 : WaitFor(&polled, noted);
}

int WaitWritable(int fd) {
    pollfd polled = {fd, POLLOUT, 0};
    // Signals are the business of longer waits: where there is room at once they stay pending.
    return Ready(&polled) ? 0 : WaitFor(&polled, noted);
}

int WaitForChildSignal(const SignalWatch& watch) {
    const sigset_t mask = Without(wait_mask, SIGCHLD);
    return BlockingCall([&mask, &watch] {
        if (!watch.Noted()) ppoll(nullptr, 0, nullptr, &mask);
        return watch.Noted() ? Interrupted() : 0;
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

void SignalScope::SetAlarm(int seconds) {
    if (seconds > 0) alarm(static_cast<unsigned>(seconds));
}

}  // namespace patrol
