#include "schedule/update.h"

#include <string>

#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/due_rule.h"
#include "schedule/old_disks.h"
#include "schedule/patrol_builder.h"
#include "schedule/settings_files.h"
#include "state/schedule_file.h"
#include "sys/data_lock.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

// Sets both flags of the processors or the memory.
void WriteFlags(ProfileWriter* schedule, int kind, bool enabled, bool due) {
    const ScheduleKeys& keys = KeysOf(kind);
    schedule->Write(keys.section, keys.enabled, OnOff(enabled));
    schedule->Write(keys.section, keys.due, OnOff(due));
}

// Switches disk `number` off.
void ClearFlags(ProfileWriter* schedule, int number) {
    const Text<32> section = DiskSection(number);
    const ScheduleKeys& keys = KeysOf(kKindHdd);
    schedule->Write(section.c_str(), keys.enabled, OnOff(false));
    schedule->Write(section.c_str(), keys.due, OnOff(false));
}

// Returns whether the patrol Schedule file is there; traced under `caller` when it is not.
bool ScheduleExists(const char* caller) {
    if (LookAtSchedule(sche_path.c_str()) != Place::kMissing) return true;
    Ptltrprintf("[%s] Not Found %s.\n", caller, sche_path.c_str());
    Ptltrprintf("[%s] end.( -1 )\n", caller);
    return false;
}

// Sets the flags of every disk. Returns where the even group goes on.
int UpdateDisks(ProfileWriter* schedule, int count, int limit) {
    for (int i = 0; i < count; ++i) ClearFlags(schedule, i);
    DueRule rule(limit);
    for (int i = 0; i < count; ++i) {
        if (f_hdd_exe != 1) {
            ClearFlags(schedule, i);
            continue;
        }
        const Text<32> section = DiskSection(i);
        const ScheduleKeys& keys = KeysOf(kKindHdd);
        schedule->Write(section.c_str(), keys.enabled, OnOff(true));
        // Odd disks keep the flag that was cleared above.
        const bool due = rule.Due(i);
        if (i % 2 == 0) schedule->Write(section.c_str(), keys.due, OnOff(due));
    }
    return rule.resume();
}

}  // namespace

int UpdateSchedule() {
    Ptltrprintf("[%s] Start.\n", __func__);
    if (!ScheduleExists(__func__)) return -1;
    ReadEnvIni();
    PatrolUpdateSchedule();
    ptl_change_hist2(RunMode());
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

void PatrolUpdateSchedule() {
    Ptltrprintf("[%s] Start.\n", __func__);
    // First, as nobody else may change what is read.
    ProfileWriter schedule(sche_path.c_str());
    const ScheduleFile old(sche_path.c_str());
    WriteFlags(&schedule, kKindCpu, f_cpu_exe == 1, f_cpu_exe == 1);
    Ptltrprintf("[%s] Cpu Update OK.\n", __func__);
    WriteFlags(&schedule, kKindMemory, f_mem_exe == 1, f_mem_exe == 1 && f_cpu_exe != 1);
    Ptltrprintf("[%s] Memory Update OK.\n", __func__);

    const int resume = UpdateDisks(&schedule, BoundedCount(old.DiskCount()), old.HddMax());
    schedule.Write(kTestSection, kEvenStartKey, std::to_string(resume).c_str());
    schedule.Write(kTestSection, kPhaseKey, "1");
    schedule.Write(kTestSection, kOddStartKey, "1");
    schedule.SaveOrReport(__func__);
    Ptltrprintf("[%s] Hdd Update OK.\n", __func__);
    Ptltrprintf("[%s] End.\n", __func__);
}

// The old disks are kept in memory while the builder makes the file anew; it looks their addresses
// up there.
int CompareSchedule() {
    Ptltrprintf("[%s] start.\n", __func__);
    // What is read here goes into the new file: nobody else may change it in between. A lock that
    // cannot be had fails the rebuild.
    const DataLock lock(sche_path.c_str());
    if (!ScheduleExists(__func__)) return -1;
    if (HddTblAlloc() != 0 || !HddSaveData()) {
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -2;
    }
    if (CreateSchedule() != 0) {
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -2;
    }
    HddCompareData();
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

}  // namespace patrol
