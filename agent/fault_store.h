// The fault store: one file for each faulty unit. docs/agent.md says what is in it.
#pragma once

#include <string>

#include "report.h"

namespace agent {

enum class Stored {
    kDone,
    kBusy,    // another process has the store; nothing was changed
    kFailed,  // errno says why; what the store held is as it was
};

// The ID of the unit that the report names. The serial number of a disk is taken from the schedule
// in `data`.
std::string UnitId(const Report& report, const std::string& serial);

// The serial number that the patrol schedule in `data`, or else the on-request one, has for the
// device; empty where neither knows it.
std::string SerialOf(const std::string& data, const std::string& device);

// Enters the report into the store in `data`, which is made where it is missing. Waits a second for
// its turn. `count` is then the number of reports that the fault has had.
Stored Store(const std::string& data, const Report& report, const std::string& serial, long* count);

}  // namespace agent
