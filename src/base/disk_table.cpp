#include "base/disk_table.h"

#include <unistd.h>

#include "base/table.h"

namespace patrol {

RunningTest* hdd_exec_tbl = nullptr;
int32_t hdd_exec_use = 0;

bool AllocateDiskTable(int count) {
    FreeDiskTable();
    hdd_exec_tbl = AllocateTable<RunningTest>(count);
    return hdd_exec_tbl != nullptr;
}

void FreeDiskTable() {
    // The waits of a pass leave their pipes open until here. A wait that has closed its own file
    // has left -1.
    for (int i = 0; i < hdd_exec_use; ++i) {
        if (hdd_exec_tbl[i].read_fd >= 0) close(hdd_exec_tbl[i].read_fd);
    }
    FreeTable(&hdd_exec_tbl, &hdd_exec_use);
}

RunningTest* DiskEntry(int index) {
    if (hdd_exec_tbl == nullptr || index < 0 || index >= hdd_exec_use) return nullptr;
    return &hdd_exec_tbl[index];
}

}  // namespace patrol
