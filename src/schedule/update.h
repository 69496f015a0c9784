// Bringing an existing patrol Schedule file up to date.
#pragma once

#include "base/text.h"

namespace patrol {

// A disk of the Schedule file before a rebuild.
struct OldDisk {
    Text<512> device_name;
    Text<512> serial_number;
    Text<512> address;
};

// Has the enable and due flags follow the new settings in place; disks, addresses, time-outs and
// the disk limit stay. Returns 0, or -1 when there is no Schedule file.
int UpdateSchedule();

// Rebuilds the file for a new device configuration; a disk known by its serial number keeps the
// address its next test starts at, from the moment the new file stands there. A rebuild that fails
// leaves the old file as "<path>.old". Returns 0; -1 when there is no Schedule file (nothing done);
// -2 when it cannot be read or its disks not be kept in memory (it is untouched), or when the
// rebuild failed.
int CompareSchedule();

// Returns the disk of the old file that has this serial number: the first whose own is its
// beginning. Returns null where there is none, or no rebuild under way.
const OldDisk* KnownDisk(const char* serial);

// The steps of these.
void PatrolUpdateSchedule();
int HddTblAlloc();   // 0, or -1 (traced)
bool HddSaveData();  // false when the Schedule cannot be read
void HddCompareData();

}  // namespace patrol
