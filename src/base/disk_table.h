// The disks launched in this pass, one entry each.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "base/padiag_state.h"
#include "base/text.h"

namespace patrol {

struct HddExec {
    Text<512> device_name;
    int32_t schedule_index = 0;  // n of the section HDD_SCHEDULE n
    uint32_t run_time = 0;       // seconds, the disk's run clock
    int32_t pass_count = 0;      // as last reported by the test program
    int32_t read_fd = -1;        // pipe, or output file, that the test program writes to
    int32_t write_fd = -1;       // its other end, closed in this process
    pid_t pid = 0;
    PadiagTest padiag;
};

// Null while no disk launch is under way. Entries are filled from 0 in the order of launch, so
// entry i and section HDD_SCHEDULE i need not match.
extern HddExec* hdd_exec_tbl;
extern int32_t hdd_exec_use;

// Allocates `count` cleared entries, at most kMaxCount, in place of any earlier table and sets
// hdd_exec_use to 0.
// False, with no table, when they cannot be had. A count of 0 is a table without entries.
bool AllocateDiskTable(int count);

// Closes the pipes or output files, frees the table and empties the count.
void FreeDiskTable();

// Entry `index` when it is filled, else null.
HddExec* DiskEntry(int index);

}  // namespace patrol
