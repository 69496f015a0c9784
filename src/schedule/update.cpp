#include "schedule/update.h"

#include <cstring>
#include <string>

#include "base/file.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "base/table.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/due_rule.h"
#include "schedule/patrol_builder.h"
#include "schedule/settings_files.h"
#include "state/schedule_file.h"
#include "sys/data_lock.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

// The disks of the Schedule file before a rebuild; null where there is none under way.
int hdd_type_cnt = 0;
OldDisk* hdd_type_tbl = nullptr;

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

// Returns whether the file could not be read for a reason of the moment. It must not be replaced
// then; one that will never be read, such as one that is too large, has no addresses to be kept.
bool UnreadNow(const ScheduleFile& schedule) { return IsPassing(schedule.profile().error()); }

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

void FreeOldDisks() { FreeTable(&hdd_type_tbl, &hdd_type_cnt); }

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

int HddTblAlloc() {
    Ptltrprintf("[%s] start.\n", __func__);
    FreeOldDisks();
    const ScheduleFile schedule(sche_path.c_str());
    if (UnreadNow(schedule)) {
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    const int count = schedule.DiskCount();
    hdd_type_tbl = AllocateTable<OldDisk>(count);
    if (hdd_type_tbl == nullptr) {
        Ptltrprintf("[%s] hdd_type Alloc Error.(size= %d byte)\n", __func__,
                    TableBytes<OldDisk>(count));
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    hdd_type_cnt = BoundedCount(count);
    return 0;
}

bool HddSaveData() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ScheduleFile schedule(sche_path.c_str());
    for (int i = 0; i < hdd_type_cnt; ++i) {
        OldDisk& disk = hdd_type_tbl[i];
        disk.device_name.Assign(schedule.Device<512>(i).view());
        disk.serial_number.Assign(schedule.SerialNumber<512>(i).view());
        disk.address.Assign(schedule.Address<512>(i, kShortFirstAddress).view());
    }
    Ptltrprintf("[%s] End.\n", __func__);
    return !UnreadNow(schedule);
}

const OldDisk* KnownDisk(const char* serial) {
    for (int i = 0; i < hdd_type_cnt; ++i) {
        const Text<512>& known = hdd_type_tbl[i].serial_number;
        if (StartsWith(serial, known.view())) return &hdd_type_tbl[i];
    }
    return nullptr;
}

// The builder has put the addresses in already, so that no end of the run can cost them; they are
// written again for the serial numbers as readers of the file see them, and for "<path>.old".
void HddCompareData() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ScheduleFile built(sche_path.c_str());
    ProfileWriter schedule(sche_path.c_str());
    const int count = BoundedCount(built.DiskCount());
    for (int i = 0; i < count; ++i) {
        const Text<512> serial(built.SerialNumber<512>(i).view());
        const OldDisk* known = KnownDisk(serial.c_str());
        if (known == nullptr) continue;
        const Text<32> section = DiskSection(i);
        // "<path>.old" holds what was before the last write: there the last disk starts at 0.
        if (!known->address.empty()) schedule.Write(section.c_str(), kAddressKey, kFirstAddress);
        schedule.Write(section.c_str(), kAddressKey, known->address.c_str());
        Ptltrprintf("[%s] HDD(%d) match!!\n", __func__, static_cast<int>(known - hdd_type_tbl));
    }
    schedule.SaveOrReport(__func__);
    FreeOldDisks();
    Ptltrprintf("[%s] End.\n", __func__);
}

}  // namespace patrol
