// Follows a process from system call to system call, and strikes at one of them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace patrol_test {

// How to strike, besides with an errno, which makes the one call fail. A lack begins at the call
// and lasts: what the call asks for is not to be had from then on.
enum : int { kKill = 0, kNoMemory = -1, kNoDescriptors = -2, kNoSpace = -3 };

// Which call is struck: the `turn`th (from 1) of the calls with this name.
struct Strike {
    std::string call;
    int turn = 0;
    int how = kKill;
};

// The calls of a process that may fail, in order, each named by what it does and the file that it
// does it to, as in "write data/x.new.self", "read pipe" or "fork". Names of files below the root
// are given without it, and those of side files with "self" for the number of the process. Empty
// where the system lets nobody follow a process.
using Calls = std::vector<std::string>;

// In the child that is to be followed, just before it executes its program.
void LetFollow();

// Follows the process `pid`, which must have called LetFollow, from the first call of its main
// routine to the strike or the end, and then lets it run. Its own children are not followed.
Calls Follow(pid_t pid, const std::string& root, const Strike& strike = {});

// In how many ways a call with this name is to fail: errno values and lasting lacks.
std::vector<int> WaysToFail(const std::string& call);

}  // namespace patrol_test
