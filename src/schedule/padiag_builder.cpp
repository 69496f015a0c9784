#include "schedule/padiag_builder.h"

#include "base/kinds.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/builder_steps.h"
#include "schedule/device_config.h"
#include "schedule/settings_files.h"
#include "state/disk_progress.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

// The targets of the new schedule, comma-separated, for the history.
Text<512> dev_gather_str2;

// Writes the section of the processors or the memory.
void WriteComponent(FILE* schedule, int kind, bool requested) {
    PutSection(schedule, KeysOf(kind).section);
    PutFlag(schedule, KeysOf(kind).requested, requested);
}

void WriteDisk(FILE* schedule, int number, const Disk& disk, const DiskProgress& progress) {
    const bool requested = f_padiag_hdd == 1;
    const char* device = disk.device.c_str();
    PutSection(schedule, DiskSection(number).c_str());
    PutFlag(schedule, KeysOf(kKindHdd).requested, requested);
    if (requested) AddTarget(&dev_gather_str2, device);
    PutText(schedule, kAddressKey, progress.NextText(device).c_str());
    PutText(schedule, kDeviceKey, device);
    PutNumber(schedule, kIdeKey, disk.ide);
}

}  // namespace

int PadiagCpuScheduleMk(FILE* schedule) {
    WriteComponent(schedule, kKindCpu, f_padiag_cpu == 1);
    if (f_padiag_cpu == 1) dev_gather_str2.Assign("CPU");
    return 0;
}

int PadiagMemoryScheduleMk(FILE* schedule) {
    WriteComponent(schedule, kKindMemory, f_padiag_mem == 1);
    if (f_padiag_mem == 1) AddTarget(&dev_gather_str2, "Memory");
    return 0;
}

int PadiagHddScheduleMk(FILE* schedule) {
    Ptltrprintf("[%s] start.\n", __func__);
    DiskScan scan(__func__, true);
    // By the copy: it is what the last on-request run has come to.
    const DiskProgress progress(FindFile(kFileLbaBup)->path);
    int count = 0;
    while (const Disk* disk = scan.Next()) WriteDisk(schedule, count++, *disk, progress);
    if (!scan.opened()) return scan.End();
    PutSection(schedule, kTestSection);
    PutNumber(schedule, kDiskCountKey, count);
    PutNumber(schedule, kLevelKey, padiag_level);
    PutNumber(schedule, kTimeLimitKey, padiag_time);
    return scan.End();
}

int PadiagCreateSchedule() {
    Ptltrprintf("[%s] start.\n", __func__);
    dev_gather_str2.Clear();
    ReadPadiagIni();
    const char* path = FindFile(kFileSche2)->path;
    FileReplacement schedule(path);
    if (!BeginFile(__func__, path, schedule)) return -1;
    PadiagCpuScheduleMk(schedule.stream());
    PadiagMemoryScheduleMk(schedule.stream());
    const int disks = PadiagHddScheduleMk(schedule.stream());
    if (!EndFile(__func__, path, disks, &schedule)) return -1;
    PadiagChangeHist(RunMode(), dev_gather_str2.c_str());
    PadiagChangeHist2(RunMode());
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

}  // namespace patrol
