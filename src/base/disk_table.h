// The disks launched in this pass, one entry each.
#pragma once

#include <cstdint>

#include "base/running_tests.h"

namespace patrol {

// Null while no disk launch is under way. Entries are filled from 0 in the order of launch, so
// entry i and section HDD_SCHEDULE i need not match.
extern RunningTest* hdd_exec_tbl;
extern int32_t hdd_exec_use;

// Allocates `count` cleared entries, at most kMaxCount, in place of any earlier table and sets
// hdd_exec_use to 0. Returns false, with no table, when they cannot be had. A count of 0 is a table
// without entries.
bool AllocateDiskTable(int count);

// Closes the pipes or output files, frees the table and empties the count.
void FreeDiskTable();

// Returns entry `index` when it is filled, else null.
RunningTest* DiskEntry(int index);

}  // namespace patrol
