// Where the controller's files lie.
#pragma once

#include <map>
#include <string>

namespace patrolctl {

struct Places {
    std::string data;    // settings, schedules, device configuration, fault store
    std::string log;     // histories, trace, logs
    std::string bin;     // the agent's commands, the test programs
    std::string temp;    // part reports
    std::string config;  // "common.ini"
    std::string pipe;    // the event pipe
    // Stands before /etc, /proc, /sys, /dev and /run, to try things out ("PATROL_ROOT").
    std::string root;
    // Why "/etc/patrol/environment", which is there, cannot be read; empty when it can.
    std::string environment_fault;
    // Every variable that the controller is to be started with beyond this process's own.
    std::map<std::string, std::string> variables;

    // The file with the reason that keeps passes away: it lies beside the event pipe.
    std::string HoldFile() const;
};

// Fills what is empty in `given` from the environment, and what that leaves empty from
// "/etc/patrol/environment" (KEY=VALUE lines). A variable that is set but empty counts as unset.
// The paths of base/paths.h are then those of the data directory.
Places FindPlaces(Places given);

// What is missing for reading anything at all, as one sentence; empty when nothing is.
std::string MissingPlaces(const Places& places);

}  // namespace patrolctl
