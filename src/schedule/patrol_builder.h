// Writing the patrol Schedule file, "pat_new_sche.txt", from the settings and the device
// configuration.
#pragma once

#include <cstdio>

namespace patrol {

// Reads the patrol settings, writes the file and enters the change in the patrol history. Returns
// 0, or -1: then either the file could not be opened or written, or the device configuration not be
// read to its end or not be opened now, and the file keeps what it held; or there is no device
// configuration and the file holds the processor and memory sections alone.
int CreateSchedule();

// Write the sections of the file. The first two return 0; the last returns how the scan ended, as
// DiskScan::End does.
int CpuScheduleMk(FILE* schedule);
int MemoryScheduleMk(FILE* schedule);
int HddScheduleMk(FILE* schedule);

}  // namespace patrol
