// What a rebuild of the patrol Schedule file keeps of the old one: where the next test of each disk
// starts.
#pragma once

#include "base/text.h"

namespace patrol {

// A disk of the Schedule file before a rebuild.
struct OldDisk {
    Text<512> device_name;
    Text<512> serial_number;
    Text<512> address;
};

// Makes room for the disks of the Schedule file. Returns 0, or -1 (traced) when the file cannot be
// read or there is no memory.
int HddTblAlloc();

// Reads them. Returns false when the Schedule file cannot be read.
bool HddSaveData();

// Returns the disk of the old file that has this serial number: the first whose own is its
// beginning. Returns null where there is none, or no rebuild under way.
const OldDisk* KnownDisk(const char* serial);

// Has the disks of the new Schedule file go on where the old ones were, once more, and forgets the
// old ones.
void HddCompareData();

}  // namespace patrol
