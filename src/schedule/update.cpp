#include "schedule/update.h"

#include <cstring>
#include <string>

#include "base/file.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "base/table.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/builder.h"
#include "schedule/due_rule.h"
#include "schedule/settings_files.h"
#include "sys/profile.h"

namespace patrol {

int hdd_type_cnt = 0;
OldDisk* hdd_type_tbl = nullptr;

namespace {

std::string DiskSection(int number) { return "HDD_SCHEDULE " + std::to_string(number); }

// Sets both flags of a component.
void WriteFlags(ProfileWriter* schedule, const std::string& section, const char* kind, bool enabled,
                bool due) {
    const std::string name = kind;
    schedule->Write(section.c_str(), (name + "_exe").c_str(), enabled ? "ON" : "OFF");
    schedule->Write(section.c_str(), (name + "_next_go").c_str(), due ? "ON" : "OFF");
}

// Whether the patrol Schedule file is there; traced under `caller` when it is not.
bool ScheduleExists(const char* caller) {
    if (FileExists(sche_path.c_str())) return true;
    Ptltrprintf("[%s] Not Found %s.\n", caller, sche_path.c_str());
    Ptltrprintf("[%s] end.( -1 )\n", caller);
    return false;
}

// Sets the flags of every disk. Returns where the even group goes on.
int UpdateDisks(ProfileWriter* schedule, int count, int limit) {
    for (int i = 0; i < count; ++i) WriteFlags(schedule, DiskSection(i), "hdd", false, false);
    DueRule rule(limit);
    for (int i = 0; i < count; ++i) {
        const std::string section = DiskSection(i);
        if (f_hdd_exe != 1) {
            WriteFlags(schedule, section, "hdd", false, false);
            continue;
        }
        schedule->Write(section.c_str(), "hdd_exe", "ON");
        // Odd disks keep the flag that was cleared above.
        const bool due = rule.Due(i);
        if (i % 2 == 0) schedule->Write(section.c_str(), "hdd_next_go", due ? "ON" : "OFF");
    }
    return rule.resume();
}

void FreeOldDisks() {
    delete[] hdd_type_tbl;
    hdd_type_tbl = nullptr;
    hdd_type_cnt = 0;
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
    const ProfileReader old(sche_path.c_str());
    ProfileWriter schedule(sche_path.c_str());
    WriteFlags(&schedule, "CPU_SCHEDULE", "cpu", f_cpu_exe == 1, f_cpu_exe == 1);
    Ptltrprintf("[%s] Cpu Update OK.\n", __func__);
    WriteFlags(&schedule, "MEM_SCHEDULE", "mem", f_mem_exe == 1, f_mem_exe == 1 && f_cpu_exe != 1);
    Ptltrprintf("[%s] Memory Update OK.\n", __func__);

    const int count = BoundedCount(old.Int("TEST_SCHEDULE", "hdd_all_num", 0));
    const int limit = old.Int("TEST_SCHEDULE", "hdd_max", 128);
    const int resume = UpdateDisks(&schedule, count, limit);
    schedule.Write("TEST_SCHEDULE", "hdd_next_gusu", std::to_string(resume).c_str());
    schedule.Write("TEST_SCHEDULE", "hdd_start_kigu", "1");
    schedule.Write("TEST_SCHEDULE", "hdd_next_kisu", "1");
    schedule.Save();
    Ptltrprintf("[%s] Hdd Update OK.\n", __func__);
    Ptltrprintf("[%s] End.\n", __func__);
}

int CompareSchedule() {
    Ptltrprintf("[%s] start.\n", __func__);
    if (!ScheduleExists(__func__)) return -1;
    if (HddTblAlloc() != 0 || !HddSaveData()) {
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -2;
    }
    KeepProfileAsOld(sche_path.c_str());
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
    const ProfileReader schedule(sche_path.c_str());
    if (!schedule.loaded()) {
        // What cannot be read now must not be replaced.
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    const int count = schedule.Int("TEST_SCHEDULE", "hdd_all_num", 0);
    hdd_type_tbl = AllocateTable<OldDisk>(count);
    if (hdd_type_tbl == nullptr) {
        Ptltrprintf("[%s] hdd_type Alloc Error.(size= %d byte)\n", __func__,
                    ClampToInt(int64_t{count} * static_cast<int64_t>(sizeof(OldDisk))));
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    hdd_type_cnt = BoundedCount(count);
    return 0;
}

bool HddSaveData() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ProfileReader schedule(sche_path.c_str());
    for (int i = 0; i < hdd_type_cnt; ++i) {
        const std::string section = DiskSection(i);
        OldDisk& disk = hdd_type_tbl[i];
        schedule.Field(section.c_str(), "device_name", "NO DATA", &disk.device_name);
        schedule.Field(section.c_str(), "serial_number", "NO DATA", &disk.serial_number);
        // The default is shorter than what the builder writes; it has always been.
        schedule.Field(section.c_str(), "address", "0x00000000", &disk.address);
    }
    Ptltrprintf("[%s] End.\n", __func__);
    return schedule.loaded();
}

const OldDisk* KnownDisk(const char* serial) {
    for (int i = 0; i < hdd_type_cnt; ++i) {
        const Text<512>& known = hdd_type_tbl[i].serial_number;
        if (std::strncmp(serial, known.c_str(), known.size()) == 0) return &hdd_type_tbl[i];
    }
    return nullptr;
}

// The builder has put the addresses in already, so that no end of the run can cost them; they are
// written again for the serial numbers as readers of the file see them, and for "<path>.old".
void HddCompareData() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ProfileReader built(sche_path.c_str());
    ProfileWriter schedule(sche_path.c_str());
    const int count = BoundedCount(built.Int("TEST_SCHEDULE", "hdd_all_num", 0));
    for (int i = 0; i < count; ++i) {
        const std::string section = DiskSection(i);
        Text<512> serial;
        built.Field(section.c_str(), "serial_number", "NO DATA", &serial);
        const OldDisk* known = KnownDisk(serial.c_str());
        if (known == nullptr) continue;
        // "<path>.old" holds what was before the last write: there the last disk starts at 0.
        if (!known->address.empty()) schedule.Write(section.c_str(), "address", kFirstAddress);
        schedule.Write(section.c_str(), "address", known->address.c_str());
        Ptltrprintf("[%s] HDD(%d) match!!\n", __func__, static_cast<int>(known - hdd_type_tbl));
    }
    schedule.Save();
    FreeOldDisks();
    Ptltrprintf("[%s] End.\n", __func__);
}

}  // namespace patrol
