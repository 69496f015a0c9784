// What the doctor looks at. Each routine says what the controller will do, and what is wrong.
#pragma once

#include "doctor/findings.h"
#include "model/places.h"

namespace patrolctl {

// Directories, and the commands and programs in them.
void CheckPlaces(const Places& places, Findings* findings);

// What the settings say of passes, which the schedule is made from; filled by CheckSettings.
struct PassSettings {
    // Whether a kind is tested, and in how many seconds it is to end; 0: nothing is said.
    struct OfKind {
        bool enabled = false;
        int timeout = 0;
    };
    OfKind cpu, memory, disks;
};

// "pat_env0.ini", "padiag.ini", the parameters of the test programs, "common.ini".
PassSettings CheckSettings(const Places& places, Findings* findings);

// The message catalogue.
void CheckCatalogue(const Places& places, Findings* findings);

// The device configuration, the list of disks that are never tested, and whether the schedule still
// fits both and the settings.
void CheckDisks(const Places& places, const PassSettings& settings, Findings* findings);

// The histories, and what a killed run has left.
void CheckRemains(const Places& places, Findings* findings);

}  // namespace patrolctl
