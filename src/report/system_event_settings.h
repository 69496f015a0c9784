// The settings for events to the system log: the section [sdb] of "common.ini" in the directory
// named by "KVX_config".
#pragma once

namespace patrol {

struct SystemEventSettings {
    int enable = 0;    // any number but 0 is on
    int facility = 0;  // of LOG_LOCAL0 to LOG_LOCAL7
};

// Reads the settings; both are 0 where the file does not set them. Returns 0, or -1 when
// "KVX_config" is unset or the file cannot be opened.
int check_config_file(SystemEventSettings* settings);

}  // namespace patrol
