#include "control/padiag_run.h"

#include "base/clocks.h"
#include "base/paths.h"
#include "base/settings.h"
#include "control/agent_status.h"
#include "control/launch.h"
#include "control/padiag_launch.h"
#include "control/padiag_wait.h"
#include "msg/event.h"
#include "msg/trace.h"
#include "schedule/builder_steps.h"
#include "schedule/padiag_builder.h"
#include "state/disk_progress.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

// Makes the missing Schedule file. `caller` is the routine to trace under. Returns 0 or -1.
int RemakeSchedule(const char* caller) {
    Ptltrprintf("[%s] Warning:Schedule File Not Found. Schedule File Remade.\n", caller);
    if (PadiagCreateSchedule() != 0) {
        Ptltrprintf("[%s] Error End.\n", caller);
        return -1;
    }
    Ptltrprintf("[%s] Success in Remake of Schedule File.\n", caller);
    Ptltrprintf("[%s] Normal End.\n", caller);
    return 0;
}

}  // namespace

int PadiagCntlMain() {
    if (!BeginRun(__func__, "pastart")) return -1;
    Ptltrprintf("[%s] Padiag Diagnosis Started.\n", __func__);
    check_time(1, 0);
    const bool done = GetMasterStatus() == 0 && PadiagSchedCntl() == 0;
    Ptltrprintf("[%s] Padiag Diagnosis %s.\n", __func__, done ? "Ended" : "Error Ended");
    return done ? 0 : -1;
}

int PadiagSchedCntl() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const Place place = LookAtSchedule(sche_path2.c_str());
    if (place == Place::kMissing) return RemakeSchedule(__func__);
    if (place != Place::kThere) {
        ReportUnusable(__func__, sche_path2.c_str());
        Ptltrprintf("[%s] Error End.\n", __func__);
        return -1;
    }
    {
        const ScheduleFile schedule(sche_path2.c_str());
        padiag_level = schedule.Level();
        padiag_time = schedule.TimeLimit();
    }
    // From here on the flags say which tests are running, which is what a signal stops.
    f_padiag_cpu = PadiagCpuTestExec();
    f_padiag_mem = PadiagMemTestExec();
    f_padiag_hdd = PadiagHddTestExec();
    if (f_padiag_cpu == 1) PadiagWaitCpuTest();
    if (f_padiag_mem == 1) PadiagWaitMemTest();
    if (f_padiag_hdd == 1) {
        PadiagWaitHddTest();
        SaveProgressCopy(lba_path.c_str(), lba_bup_path.c_str());
    }
    EndDisks(__func__);
    event("I1121:Scheduled diagnosis is finished.\n");
    return 0;
}

}  // namespace patrol
