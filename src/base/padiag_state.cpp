#include "base/padiag_state.h"

#include <algorithm>

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

int32_t ProgressPercent(uint64_t next, uint64_t maximum) {
    if (next == 0) return 0;
    if (maximum == 0) return 1;
    if (next == maximum) return 100;
    const float ratio = static_cast<float>(next) / static_cast<float>(maximum) * 100.0F;
    return static_cast<int32_t>(std::clamp(ratio, 1.0F, 99.0F));
}

}  // namespace patrol
