#include "schedule/sched_main.h"

#include "base/clocks.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/builder_steps.h"
#include "schedule/padiag_builder.h"
#include "schedule/patrol_builder.h"
#include "schedule/update.h"
#include "sys/file_control.h"

namespace patrol {
namespace {

constexpr char kName[] = "sched_main";

// The mask has a bit in common with every entry of the table.
void CloseWorkFiles() { ptl_file_cntl(0, 255, nullptr); }

// Tells the agent and the trace that there is no schedule to go by; returns -1.
int PatrolError() {
    CloseWorkFiles();
    ptl_printf(kAgentEvent, nullptr, "E3823");
    Ptltrprintf("[%s] Error:Patrol Schedule Creation Error Ended.\n", kName);
    return -1;
}

// Both files, the patrol one first: where that fails the other stays as it is.
int Reload() {
    if (UpdateSchedule() != 0 && CreateSchedule() != 0) return PatrolError();
    if (!ScheduleUsable(kName, sche_path2.c_str()) || PadiagCreateSchedule() != 0) {
        CloseWorkFiles();
        Ptltrprintf("[%s] Error:Padiag Schedule Creation Error Ended.\n", kName);
        return -1;
    }
    return 0;
}

// Only a missing Schedule file is made: one whose rebuild failed is left to whoever looks after it.
int ConfigChange() {
    const int result = CompareSchedule();
    if (result == 0) Ptltrprintf("[%s] Patrol Confchg Succedd.\n", kName);
    const bool failed = result == -1 ? CreateSchedule() != 0 : result != 0;
    return failed ? PatrolError() : 0;
}

// Without a Schedule file there is nothing to be brought up to date, and a failure is no reason to
// keep the agent from its start.
int AgentStart() {
    if (CompareSchedule() == 0) {
        Ptltrprintf("[%s] Patrol KVXstart Create Schedule.\n", kName);
    } else {
        Ptltrprintf("[%s] Patrol KVXstart Not Create Schedule.\n", kName);
    }
    return 0;
}

int RunByMode() {
    if (!ScheduleUsable(kName, sche_path.c_str())) return PatrolError();
    switch (RunMode()) {
        case kModeReload:
            return Reload();
        case kModeConfigChange:
            return ConfigChange();
        case kModeAgentStart:
            return AgentStart();
        default:
            Ptltrprintf("[%s] Not Create Schedule.\n", kName);
            return 0;
    }
}

}  // namespace

int sched_main() {
    Ptltrprintf("[%s] Patrol Schedule Creation Started.\n", kName);
    check_time(1, 0);
    // The builders append to the two files themselves, whatever their size: all that comes of the
    // ageing here is that the oldest file goes.
    Path patrol_history = PatrolHistoryPath();
    ptl_histfile_cntl(&patrol_history);
    Path padiag_history = PadiagHistoryPath();
    ptl_histfile_cntl(&padiag_history);
    if (RunByMode() != 0) return -1;
    Ptltrprintf("[%s] Patrol Schedule Creation Ended.\n", kName);
    return 0;
}

}  // namespace patrol
