#include "control/patrol_run.h"

#include <unistd.h>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/paths.h"
#include "control/agent_status.h"
#include "control/next_test.h"
#include "control/test_commands.h"
#include "control/test_wait.h"
#include "msg/trace.h"
#include "schedule/builder.h"

namespace patrol {
namespace {

int RemakeSchedule(const char* caller) {
    Ptltrprintf("[%s] Warning:Schedule File Not Found. Schedule File Remade.\n", caller);
    if (CreateSchedule() != 0) {
        Ptltrprintf("[%s] Error End.\n", caller);
        trflush();
        return -1;
    }
    Ptltrprintf("[%s] Success in Remark of Schedule File.\n", caller);
    Ptltrprintf("[%s] Normal End.\n", caller);
    return 0;
}

}  // namespace

int cntl_main() {
    Ptltrprintf("[%s] Patrol Diagnosis Started.\n", __func__);
    check_time(1, 0);
    if (GetMasterStatus() != 0 || sched_cntl() != 0) {
        Ptltrprintf("[%s] Patrol Diagnosis Error Ended.\n", __func__);
        return -1;
    }
    Ptltrprintf("[%s] Patrol Diagnosis Ended.\n", __func__);
    return 0;
}

int sched_cntl() {
    Ptltrprintf("[%s] Start.\n", __func__);
    if (access(sche_path.c_str(), F_OK) != 0) return RemakeSchedule(__func__);

    const int cpu = CpuTestExec();
    const int memory = MemTestExec();
    const int disks = HddTestExec();
    // The processor test was started first and is collected last.
    if (memory == 1) WaitMemTest();
    if (disks == 1) WaitHddTest();
    if (cpu == 1) WaitCpuTest();
    if (hdd_exec_tbl != nullptr) {
        FreeDiskTable();
        Ptltrprintf("[%s] hdd_exec_tbl Free.\n", __func__);
    }
    NextTestSchedule();
    return 0;
}

}  // namespace patrol
