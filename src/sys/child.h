// Starting a child process: every child of the controller starts here.
#pragma once

#include <sys/types.h>

#include <functional>

namespace patrol {

struct ChildStart {
    // Descriptors that become the child's standard output and standard error; -1: inherited.
    int output = -1;
    int error = -1;
    // Runs in the child and is meant to end in execv; a child whose `run` returns ends with 127.
    std::function<void()> run;
    // The call that forks.
    pid_t (*fork_call)() = nullptr;  // null: fork()
};

// Flushes the log buffers and stdio, so that the child repeats none of it, and forks. The child has
// default signal dispositions, the signal mask the controller was started with, no line of the
// parent in its trace ring or log buffers, and, once it executes a program, no descriptor that
// this process opened but 0, 1 and 2. Returns the child's pid, or what fork returned, with errno
// set.
pid_t StartChild(const ChildStart& start);

}  // namespace patrol
