// What goes on at this moment: running tests, and what keeps passes away.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "model/places.h"

namespace patrolctl {

// What a progress record says.
struct Progress {
    long long seconds = 0;
    long long limit = 0;  // seconds; 0: none
    int percent = 0;      // of the round under way
    // How much of the test is done, 0 to 1: its time, or without a limit its round.
    double Done() const;
};

struct RunningTest {
    pid_t pid = 0;
    int kind = 0;
    std::string device;  // as in the histories
    long long seconds = 0;
    bool on_request = false;
    std::optional<Progress> progress;  // what it last reported, where that may be read
};

// The tests of this agent that run now, found among all processes by the path of their program.
std::vector<RunningTest> FindRunningTests(const Places& places);

struct Hold {
    std::string word;  // "hold", "load", ... as the agent says it; may be empty
    std::string reason;
};

// What keeps passes away: what the agent's status command answers, which is run for it and given
// five seconds; without such a command what stands in the hold file.
std::optional<Hold> FindHold(const Places& places);

}  // namespace patrolctl
