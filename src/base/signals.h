// Signals, and the one place where they are let in.
//
// SIGINT, SIGHUP, SIGTERM and SIGCHLD are blocked for the whole run. They are delivered only inside
// the waits below, atomically with the wait (ppoll), so a handler never interrupts stdio,
// allocation or time calls and a signal that came just before a wait is not lost. A handler that is
// meant to end the wait under way calls NoteSignal; it may do anything else a routine may do.
#pragma once

#include <signal.h>

#include <vector>

namespace patrol {

using SignalHandler = void (*)(int);

// Remembers the signal mask of the start, blocks the four signals above, and gives SIGCHLD,
// SIGPIPE and SIGXFSZ handlers that do nothing. To be called before anything else may meet a
// signal.
void PrepareSignals();

// Makes a reader that went away, and a file at its size limit, a failed write instead of a death by
// SIGPIPE or SIGXFSZ. The handlers do nothing; they are gone with an execv, so that the program
// that is executed gets the default.
void CatchFailedWrites();

// sigaction with an empty mask and no flags, so that the wait under way is not restarted. Returns
// 0, or -1 with errno set.
int InstallHandler(int signal, SignalHandler handler);

// Returns the signal mask that this process was started with.
const sigset_t& StartMask();

// Returns whether `signal` may have a disposition other than the default: one of the start, or one
// of InstallHandler.
bool DispositionChanged(int signal);

// Marks that a handler ran: the wait under way is to end. Safe in a handler.
void NoteSignal();

// What a wait for a test or a command goes by, from its beginning to its end, however many reads
// and waits below it takes. A signal that came earlier is none of its business: the beginning lets
// it in, its handler runs, and that is all. A signal noted since then ends the wait as soon as
// there is nothing to take, wherever in between its handler ran.
class SignalWatch {
 public:
    SignalWatch();

    // Returns whether a signal was noted since.
    bool Noted() const;

 private:
    unsigned begun_;
};

// Waits until `fd` can be read or its other end is closed. Returns 0, or -1 with errno set: EINTR
// when a signal was noted while there was nothing to read. Signals are let in even where there is
// something to read, so that a stream that never pauses keeps none out; those, and earlier ones,
// end nothing.
int WaitReadable(int fd);

// Waits until `fd` can be written to or its reader is gone. Returns 0, or -1 with errno set: EINTR
// when a signal was noted, or came earlier, while there was something to wait for.
int WaitWritable(int fd);

// Waits for SIGCHLD, which says that a child has ended or stopped; one that came before counts.
// Returns 0, or -1 with errno EINTR when `watch` has a signal noted. Several children may share one
// SIGCHLD, and one that was collected already may have left it, so the caller looks at them all.
int WaitForChildSignal(const SignalWatch& watch);

// For the length of a scope, other signals are let into the waits. On the way out the alarm is
// cancelled and dispositions and masks are as they were before.
class SignalScope {
 public:
    SignalScope();
    ~SignalScope();
    SignalScope(const SignalScope&) = delete;
    SignalScope& operator=(const SignalScope&) = delete;

    // Blocks `signal` outside the waits and lets it into them. Its handler may then be installed.
    void LetIn(int signal);

    // SIGALRM after `seconds`; none for 0 or below.
    static void SetAlarm(int seconds);

 private:
    struct Saved {
        int signal;
        struct sigaction action;
    };
    sigset_t process_mask_;
    sigset_t wait_mask_;
    std::vector<Saved> saved_;
};

}  // namespace patrol
