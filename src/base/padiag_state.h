// What an on-request diagnosis keeps of each running test, for its events and its history line.
#pragma once

#include <cstdint>

#include "base/text.h"

namespace patrol {

using PhysicalPath = Text<100>;
using IsoTime = Text<64>;

struct PadiagTest {
    IsoTime start_time;
    PhysicalPath phypath;    // where the component sits
    int event_check = 0;     // 1 while the end of the test has not been announced
    int32_t progress = 0;    // percent of a disk that was done before this test
    uint64_t start_lba = 0;  // block that a disk test started at
};

extern PadiagTest padiag_cpu;
extern PadiagTest padiag_mem;

// The record of a kind's test (`entry` counts for disks alone); null for an unknown kind or a disk
// that is not in the table.
PadiagTest* FindPadiagTest(int kind, int entry);

}  // namespace patrol
