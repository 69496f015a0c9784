// Child processes: every child of the controller is started, waited for and signalled here.
//
// A child whose end was seen is remembered, because the system may give its number to a stranger:
// nothing is ever sent to a collected pid.
#pragma once

#include <sys/types.h>

#include <functional>

#include "base/signals.h"
#include "base/text.h"

namespace patrol {

struct ChildStart {
    // Descriptors that become the child's standard output and standard error; -1: inherited.
    int output = -1;
    int error = -1;
    // Whether the descriptor `output` stays open in the child beside the two.
    bool keeps_output = false;
    // Runs in the child and is meant to end in execv; a child whose `run` returns ends with 127.
    std::function<void()> run;
    // The call that forks.
    pid_t (*fork_call)() = nullptr;  // null: fork()
};

// Does the profile writes that were put off and flushes the log buffers and stdio, so that the
// child repeats none of it, and forks. The child has no line of the parent in its trace ring or log
// buffers and the signal mask the controller was started with; once it executes a program, it has
// default signal dispositions and no descriptor that this process opened but those of `start`.
// Until then a write that fails is no reason to die. Returns the child's pid, or what fork
// returned, with errno set.
pid_t StartChild(const ChildStart& start);

// execv with the file mask that the controller was started with. Returns -1 with errno set, the
// mask as it was, when the program cannot be executed.
int ExecuteProgram(const char* path, char* const* arguments);

// waitpid for `pid` (-1: any child) with `options`, waiting without limit. The child's pid, or -1
// with errno set: EINTR when there was none to take and `watch` (without one, the wait begins here)
// has a signal noted; ECHILD when there is no such child.
pid_t WaitForChild(pid_t pid, int* status, int options, const SignalWatch& watch = SignalWatch());

// Returns whether `pid` has stopped and no wait has seen it. It counts as seen then.
bool HasStoppedUnseen(pid_t pid);

// Gives up waiting for `pid`: its end is not taken for that of any child.
void AbandonChild(pid_t pid);

// Returns whether WaitForChild has seen the end of `pid`.
bool WasCollected(pid_t pid);

// kill() for a child of this process. -1 with errno ESRCH, nothing sent, when it was collected.
int SignalChild(pid_t pid, int signal);

// What a wait status says: "exit_code=N", "killed by signal=N", "stopped by signal=N" or
// "continued".
Text<32> WakeUpText(int status);

// For a fork that is not StartChild's: `pid` is a living child again, whatever child had the number
// before.
void NoteNewChild(pid_t pid);

}  // namespace patrol
