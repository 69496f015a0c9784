// Open faults: part reports that the agent keeps, and those that wait for it.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "model/places.h"

namespace patrolctl {

struct Fault {
    std::string id;
    std::string kind;    // "CPU", "Memory", "HDD" or "Unknown"
    std::string device;  // of a disk
    std::string serial;
    std::string fru;  // the unit that is to be replaced
    std::time_t first = 0;
    std::time_t last = 0;
    long count = 1;
    std::string summary;
    std::string detail;
    std::string path;     // of its file
    bool known = false;   // of a component in the schedule
    bool stored = false;  // in the agent's fault store; else a report that waits or was given up
};

struct FaultStore {
    std::vector<Fault> list;          // the newest first
    std::vector<std::string> faults;  // what could not be read, a sentence each
};

FaultStore ReadFaults(const Places& places);

// The fault of this ID; also a stored one that cannot be read, which is none of the list. With an
// empty path there is none.
Fault FindFault(const Places& places, const FaultStore& store, const std::string& id);

// Moves the fault aside, into a folder "cleared" beside it. Empty, or a sentence that says why it
// is still there.
std::string ClearFault(const Places& places, const Fault& fault);

}  // namespace patrolctl
