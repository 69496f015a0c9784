#include "control/padiag_run.h"

#include "base/file.h"
#include "base/paths.h"
#include "base/settings.h"
#include "control/padiag_launch.h"
#include "control/padiag_wait.h"
#include "control/run_steps.h"
#include "msg/event.h"
#include "msg/trace.h"
#include "schedule/padiag_builder.h"
#include "state/disk_progress.h"
#include "sys/profile.h"

namespace patrol {
int PadiagCntlMain() { return RunDiagnosis(__func__, "Padiag", PadiagSchedCntl); }

int PadiagSchedCntl() {
    Ptltrprintf("[%s] Start.\n", __func__);
    if (!FileExists(sche_path2.c_str())) {
        return RemakeSchedule(__func__, PadiagCreateSchedule, "Remake");
    }
    {
        const ProfileReader schedule(sche_path2.c_str());
        padiag_level = schedule.Int("TEST_SCHEDULE", "level", 1);
        padiag_time = schedule.Int("TEST_SCHEDULE", "time", 3600);
    }
    f_padiag_cpu = PadiagCpuTestExec();
    f_padiag_mem = PadiagMemTestExec();
    f_padiag_hdd = PadiagHddTestExec();
    if (f_padiag_cpu == 1) PadiagWaitCpuTest();
    if (f_padiag_mem == 1) PadiagWaitMemTest();
    if (f_padiag_hdd == 1) {
        PadiagWaitHddTest();
        SaveProgressCopy(lba_path.c_str(), lba_bup_path.c_str());
    }
    EndDiskTable(__func__);
    event("I1121:Scheduled diagnosis is finished.\n");
    return 0;
}

}  // namespace patrol
