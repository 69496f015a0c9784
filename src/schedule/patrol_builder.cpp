#include "schedule/patrol_builder.h"

#include "base/kinds.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/builder_steps.h"
#include "schedule/device_config.h"
#include "schedule/due_rule.h"
#include "schedule/old_disks.h"
#include "schedule/settings_files.h"
#include "state/schedule_file.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

// The targets of the new schedule, comma-separated, for the history.
Text<512> dev_gather_str;

// Writes the section of the processors or the memory.
void WriteComponent(FILE* schedule, int kind, bool enabled, bool due) {
    const ScheduleKeys& keys = KeysOf(kind);
    PutSection(schedule, keys.section);
    PutFlag(schedule, keys.enabled, enabled);
    PutFlag(schedule, keys.due, due);
}

// The order of the keys is part of the file: people compare files line by line.
void WriteDisk(FILE* schedule, int number, const Disk& disk, bool due) {
    const ScheduleKeys& keys = KeysOf(kKindHdd);
    const bool enabled = f_hdd_exe == 1;
    PutSection(schedule, DiskSection(number).c_str());
    PutText(schedule, kSerialKey, disk.serial_number.c_str());
    PutFlag(schedule, keys.enabled, enabled);
    PutFlag(schedule, keys.due, due);
    if (enabled) AddTarget(&dev_gather_str, disk.device.c_str());
    const OldDisk* known = KnownDisk(disk.serial_number.c_str());
    const bool tested = known != nullptr && !known->address.empty();
    PutText(schedule, kAddressKey, tested ? known->address.c_str() : kFirstAddress);
    PutText(schedule, kDeviceKey, disk.device.c_str());
    PutNumber(schedule, kIdeKey, disk.ide);
}

}  // namespace

int CpuScheduleMk(FILE* schedule) {
    const bool enabled = f_cpu_exe == 1;
    WriteComponent(schedule, kKindCpu, enabled, enabled);
    if (enabled) dev_gather_str.Assign("CPU");
    return 0;
}

int MemoryScheduleMk(FILE* schedule) {
    const bool enabled = f_mem_exe == 1;
    // Processors and memory never fall due in the same pass.
    WriteComponent(schedule, kKindMemory, enabled, enabled && f_cpu_exe == 0);
    if (enabled) AddTarget(&dev_gather_str, "Memory");
    return 0;
}

// The disks are written as they are found, and their number only behind them: the configuration is
// read once and may have any length.
int HddScheduleMk(FILE* schedule) {
    Ptltrprintf("[%s] start.\n", __func__);
    DiskScan scan(__func__, false);
    DueRule rule(hdd_max_data);
    int count = 0;
    while (const Disk* disk = scan.Next()) {
        WriteDisk(schedule, count, *disk, f_hdd_exe == 1 && rule.Due(count));
        ++count;
    }
    if (!scan.opened()) return scan.End();
    PutSection(schedule, kTestSection);
    PutNumber(schedule, kDiskCountKey, count);
    PutNumber(schedule, KeysOf(kKindHdd).timeout, hdd_timeout_data);
    PutNumber(schedule, kHddMaxKey, hdd_max_data);
    PutNumber(schedule, kEvenStartKey, rule.resume());
    PutNumber(schedule, kOddStartKey, 1);
    PutNumber(schedule, kPhaseKey, 1);
    PutNumber(schedule, KeysOf(kKindCpu).timeout, cpu_timeout_data);
    PutNumber(schedule, KeysOf(kKindMemory).timeout, mem_timeout_data);
    return scan.End();
}

int CreateSchedule() {
    Ptltrprintf("[%s] start.\n", __func__);
    dev_gather_str.Clear();
    ReadEnvIni();
    const char* path = FindFile(kFileSche)->path;
    FileReplacement schedule(path);
    if (!BeginFile(__func__, path, schedule)) return -1;
    CpuScheduleMk(schedule.stream());
    MemoryScheduleMk(schedule.stream());
    const int disks = HddScheduleMk(schedule.stream());
    // The addresses of the disks that are not in the file now are worth keeping.
    if (disks == kNoConfiguration && ScheduleFile(path).DiskCount() > 0)
        KeepProfileAs(path, SideName(path, ".old"));
    if (!EndFile(__func__, path, disks, &schedule)) return -1;
    ptl_change_hist(RunMode(), dev_gather_str.c_str());
    ptl_change_hist2(RunMode());
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

}  // namespace patrol
