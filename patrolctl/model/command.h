// Other programs, started as the controller starts them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "model/places.h"

namespace patrolctl {

struct ChildOutput {
    int output = -1;         // becomes its standard output; -1: "/dev/null"
    int error = -1;          // likewise
    bool own_group = false;  // keeps the signals of the terminal away from it
};

// Starts `words` with default signals, nothing on standard input and the variables of `places`. Its
// pid, or -1 with errno set.
pid_t StartProgram(const std::vector<std::string>& words, const Places& places,
                   const ChildOutput& child);

// waitpid that goes on after a signal. The wait status, or -1.
int WaitForProgram(pid_t pid);

struct CommandResult {
    std::string output;  // at most `limit` bytes
    bool ended = false;  // by itself and in time
};

// Runs a command to its end, or kills it after so many seconds.
CommandResult RunCommand(const std::vector<std::string>& words, const Places& places, size_t limit,
                         int seconds);

}  // namespace patrolctl
