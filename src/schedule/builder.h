// Writing whole Schedule files from the settings and the device configuration.
#pragma once

#include <cstdio>

#include "base/text.h"

namespace patrol {

// The targets of the new schedules, comma-separated, for the histories.
extern Text<512> dev_gather_str;
extern Text<512> dev_gather_str2;

// Reads the patrol settings, writes "pat_new_sche.txt" and enters the change in the patrol history.
// 0, or -1: then either the file could not be opened or written, or the device configuration not be
// read to its end or not be opened now, and the file keeps what it held; or there is no device
// configuration and the file holds the processor and memory sections alone.
int CreateSchedule();

// The sections of the patrol file. The first two return 0; the last returns what
// WriteHddSections does.
int CpuScheduleMk(FILE* schedule);
int MemoryScheduleMk(FILE* schedule);
int HddScheduleMk(FILE* schedule);

// The same for the padiag file "pat_sche2.txt".
int PadiagCreateSchedule();
int PadiagCpuScheduleMk(FILE* schedule);
int PadiagMemoryScheduleMk(FILE* schedule);
int PadiagHddScheduleMk(FILE* schedule);

}  // namespace patrol
