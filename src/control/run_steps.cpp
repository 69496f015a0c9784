#include "control/run_steps.h"

#include "base/clocks.h"
#include "base/disk_table.h"
#include "control/agent_status.h"
#include "msg/trace.h"

namespace patrol {

int RunDiagnosis(const char* caller, const char* name, int (*run)()) {
    Ptltrprintf("[%s] %s Diagnosis Started.\n", caller, name);
    check_time(1, 0);
    const bool done = GetMasterStatus() == 0 && run() == 0;
    Ptltrprintf("[%s] %s Diagnosis %s.\n", caller, name, done ? "Ended" : "Error Ended");
    return done ? 0 : -1;
}

int RemakeSchedule(const char* caller, int (*create)(), const char* word) {
    Ptltrprintf("[%s] Warning:Schedule File Not Found. Schedule File Remade.\n", caller);
    if (create() != 0) {
        Ptltrprintf("[%s] Error End.\n", caller);
        trflush();
        return -1;
    }
    Ptltrprintf("[%s] Success in %s of Schedule File.\n", caller, word);
    Ptltrprintf("[%s] Normal End.\n", caller);
    return 0;
}

void EndDiskTable(const char* caller) {
    if (hdd_exec_tbl == nullptr) return;
    FreeDiskTable();
    Ptltrprintf("[%s] hdd_exec_tbl Free.\n", caller);
}

}  // namespace patrol
