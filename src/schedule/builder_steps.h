// The steps that the patrol and the padiag builder have in common.
#pragma once

#include <cstdio>
#include <functional>

#include "base/text.h"

namespace patrol {

// Adds a target to a comma-separated list.
void AddTarget(Text<512>* targets, const char* target);

// A builder's own part of the disk sections.
struct HddSections {
    const char* caller;     // the routine to trace under
    bool device_line_ends;  // see ScanDisks
    std::function<void(int number)> write_disk;
    std::function<void(int count)> write_end;
};

// Writes a section for each disk of the device configuration, numbered from 0, and the closing
// section. 0, -1 when the configuration cannot be opened, -2 when that or reading it fails for a
// reason of the moment (traced).
int WriteHddSections(const HddSections& sections);

// A builder's own part of a whole file.
struct ScheduleParts {
    const char* caller;
    const char* path;
    int (*write_cpu)(FILE*);
    int (*write_memory)(FILE*);
    int (*write_hdd)(FILE*);
};

// Writes the file; it takes the place of the old one when it is complete, or when the device
// configuration is missing. 0, or -1 (traced).
int WriteScheduleFile(const ScheduleParts& file);

}  // namespace patrol
