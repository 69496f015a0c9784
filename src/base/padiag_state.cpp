#include "base/padiag_state.h"

#include "base/disk_table.h"
#include "base/kinds.h"

namespace patrol {

PadiagTest padiag_cpu;
PadiagTest padiag_mem;

PadiagTest* FindPadiagTest(int kind, int entry) {
    if (kind == kKindCpu) return &padiag_cpu;
    if (kind == kKindMemory) return &padiag_mem;
    HddExec* disk = kind == kKindHdd ? DiskEntry(entry) : nullptr;
    return disk != nullptr ? &disk->padiag : nullptr;
}

}  // namespace patrol
