// What sysfs knows of the machine as a whole.
#pragma once

#include <cstdint>
#include <string>

namespace agent {

struct Machine {
    std::string model;   // empty where the firmware does not say
    std::string serial;  // likewise
    unsigned processors = 0;
    uint64_t memory_bytes = 0;  // 0 where the kernel does not say
};

// Looks below `sys`, a directory laid out as /sys.
Machine LookAtMachine(const std::string& sys);

}  // namespace agent
