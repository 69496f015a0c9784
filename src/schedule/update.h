// Bringing an existing patrol Schedule file up to date.
#pragma once

namespace patrol {

// Has the enable and due flags follow the new settings in place; disks, addresses, time-outs and
// the disk limit stay. Returns 0, or -1 when there is no Schedule file.
int UpdateSchedule();

// Rebuilds the file for a new device configuration; a disk known by its serial number keeps the
// address its next test starts at, from the moment the new file stands there. A rebuild that fails
// leaves the old file as "<path>.old". Returns 0; -1 when there is no Schedule file (nothing done);
// -2 when it cannot be read or its disks not be kept in memory (it is untouched), or when the
// rebuild failed.
int CompareSchedule();

// The step of the first that changes the file.
void PatrolUpdateSchedule();

}  // namespace patrol
