#include "control/patrol_run.h"

#include "base/file.h"
#include "base/paths.h"
#include "control/patrol_launch.h"
#include "control/patrol_wait.h"
#include "control/run_steps.h"
#include "control/selection.h"
#include "msg/trace.h"
#include "schedule/patrol_builder.h"

namespace patrol {

int cntl_main() { return RunDiagnosis(__func__, "Patrol", sched_cntl); }

int sched_cntl() {
    Ptltrprintf("[%s] Start.\n", __func__);
    if (!FileExists(sche_path.c_str())) {
        return RemakeSchedule(__func__, CreateSchedule, "Remark");
    }
    const int cpu = CpuTestExec();
    const int memory = MemTestExec();
    const int disks = HddTestExec();
    // The processor test was started first and is collected last.
    if (memory == 1) WaitMemTest();
    if (disks == 1) WaitHddTest();
    if (cpu == 1) WaitCpuTest();
    EndDiskTable(__func__);
    NextTestSchedule();
    return 0;
}

}  // namespace patrol
