// What the last check_config_file has found.
#pragma once

namespace patrol {

struct SystemEventSettings {
    int enable = 0;    // any number but 0 is on
    int facility = 0;  // of LOG_LOCAL0 to LOG_LOCAL7
};

extern SystemEventSettings event_settings;

}  // namespace patrol
