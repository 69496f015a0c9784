// Writing the padiag Schedule file, "pat_sche2.txt", from the settings and the device
// configuration.
#pragma once

#include <cstdio>

namespace patrol {

// The twin of CreateSchedule: reads the padiag settings, writes the file and enters the change in
// the padiag history. Returns 0, or -1 in the same cases.
int PadiagCreateSchedule();

// Write the sections of the file. The first two return 0; the last returns how the scan ended, as
// DiskScan::End does.
int PadiagCpuScheduleMk(FILE* schedule);
int PadiagMemoryScheduleMk(FILE* schedule);
int PadiagHddScheduleMk(FILE* schedule);

}  // namespace patrol
