#include "schedule/padiag_builder.h"

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

}  // namespace

int PadiagCpuScheduleMk(FILE* schedule) {
    std::fprintf(schedule, "[CPU_SCHEDULE]\ncpu=%s\n", f_padiag_cpu == 1 ? "ON" : "OFF");
    if (f_padiag_cpu == 1) dev_gather_str2.Assign("CPU");
    return 0;
}

int PadiagMemoryScheduleMk(FILE* schedule) {
    std::fprintf(schedule, "[MEM_SCHEDULE]\nmem=%s\n", f_padiag_mem == 1 ? "ON" : "OFF");
    if (f_padiag_mem == 1) AddTarget(&dev_gather_str2, "Memory");
    return 0;
}

int PadiagHddScheduleMk(FILE* schedule) {
    const DiskProgress progress(FindFile(kFileLbaBup)->path);
    HddSections sections;
    sections.caller = __func__;
    sections.device_line_ends = true;
    sections.write_disk = [&](int number) {
        std::fprintf(schedule, "[%s]\nhdd=%s\n", DiskSection(number).c_str(),
                     f_padiag_hdd == 1 ? "ON" : "OFF");
        if (f_padiag_hdd == 1) AddTarget(&dev_gather_str2, device_name.c_str());
        std::fprintf(schedule, "address=%s\ndevice_name=%s\nhdd_ide=%d\n",
                     progress.NextText(device_name.c_str()).c_str(), device_name.c_str(),
                     f_ide_device);
    };
    sections.write_end = [&](int count) {
        std::fprintf(schedule, "[TEST_SCHEDULE]\nhdd_all_num=%d\nlevel=%d\ntime=%d\n", count,
                     padiag_level, padiag_time);
    };
    return WriteHddSections(sections);
}

int PadiagCreateSchedule() {
    Ptltrprintf("[%s] start.\n", __func__);
    dev_gather_str2.Clear();
    ReadPadiagIni();
    const ScheduleParts file = {__func__, FindFile(kFileSche2)->path, PadiagCpuScheduleMk,
                                PadiagMemoryScheduleMk, PadiagHddScheduleMk};
    if (WriteScheduleFile(file) != 0) return -1;
    PadiagChangeHist(RunMode(), dev_gather_str2.c_str());
    PadiagChangeHist2(RunMode());
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

}  // namespace patrol
