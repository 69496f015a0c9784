#include "control/patrol_run.h"

#include "base/clocks.h"
#include "base/paths.h"
#include "control/agent_status.h"
#include "control/launch.h"
#include "control/patrol_launch.h"
#include "control/patrol_wait.h"
#include "control/selection.h"
#include "msg/trace.h"
#include "schedule/builder_steps.h"
#include "schedule/patrol_builder.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

// Makes the missing Schedule file. `caller` is the routine to trace under. Returns 0 or -1.
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
    // Before the agent is asked, which may take long: a second run is to leave at once.
    if (!BeginRun(__func__, "start")) return -1;
    Ptltrprintf("[%s] Patrol Diagnosis Started.\n", __func__);
    check_time(1, 0);
    const bool done = GetMasterStatus() == 0 && sched_cntl() == 0;
    Ptltrprintf("[%s] Patrol Diagnosis %s.\n", __func__, done ? "Ended" : "Error Ended");
    return done ? 0 : -1;
}

int sched_cntl() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const Place place = LookAtSchedule(sche_path.c_str());
    if (place == Place::kMissing) return RemakeSchedule(__func__);
    if (place != Place::kThere) {
        ReportUnusable(__func__, sche_path.c_str());
        Ptltrprintf("[%s] Error End.\n", __func__);
        return -1;
    }
    // The tests run side by side; only the waits for them come one after the other. What a test
    // reports before its turn stays in its pipe.
    const int cpu = CpuTestExec();
    const int memory = MemTestExec();
    const int disks = HddTestExec();
    // The processor test was started first and is collected last.
    if (memory == 1) WaitMemTest();
    if (disks == 1) WaitHddTest();
    if (cpu == 1) WaitCpuTest();
    EndDisks(__func__);
    // Whatever became of the tests. One that cannot be started is not to keep the others from their
    // turn.
    NextTestSchedule();
    return 0;
}

}  // namespace patrol
