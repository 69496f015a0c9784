// What the last check_config_file and get_serial_model have found.
#pragma once

#include "base/text.h"

namespace patrol {

struct SystemEventSettings {
    int enable = 0;    // any number but 0 is on
    int facility = 0;  // of LOG_LOCAL0 to LOG_LOCAL7
};

struct MachineIdentity {
    Text<100> serial_number;
    Text<100> model;
};

extern SystemEventSettings event_settings;
extern MachineIdentity machine_identity;

}  // namespace patrol
