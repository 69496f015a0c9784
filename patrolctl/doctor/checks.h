// What the doctor looks at. Each routine says what the controller will do, and what is wrong.
#pragma once

#include "doctor/findings.h"
#include "model/places.h"

namespace patrolctl {

// Directories, and the commands and programs in them.
void CheckPlaces(const Places& places, Findings* findings);

// Which kinds are to be tested by patrol passes; filled by CheckSettings.
struct Enabled {
    bool cpu = false;
    bool memory = false;
    bool disks = false;
};

// "pat_env0.ini", "padiag.ini", the parameters of the test programs, "common.ini".
Enabled CheckSettings(const Places& places, Findings* findings);

// The message catalogue.
void CheckCatalogue(const Places& places, Findings* findings);

// The device configuration, the list of disks that are never tested, and whether the schedule still
// fits both and what is enabled.
void CheckDisks(const Places& places, const Enabled& enabled, Findings* findings);

// The histories, and what a killed run has left.
void CheckRemains(const Places& places, Findings* findings);

}  // namespace patrolctl
