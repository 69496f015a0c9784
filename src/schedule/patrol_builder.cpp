#include "schedule/patrol_builder.h"

#include "base/paths.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/trace.h"
#include "report/history.h"
#include "schedule/builder_steps.h"
#include "schedule/device_config.h"
#include "schedule/due_rule.h"
#include "schedule/settings_files.h"
#include "schedule/update.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

// The targets of the new schedule, comma-separated, for the history.
Text<512> dev_gather_str;

const char* OnOff(bool on) { return on ? "ON" : "OFF"; }

void WriteDisk(FILE* schedule, int number, bool due) {
    const bool enabled = f_hdd_exe == 1;
    std::fprintf(schedule, "[%s]\nserial_number=%s\n", DiskSection(number).c_str(),
                 serial_number.c_str());
    std::fprintf(schedule, "hdd_exe=%s\nhdd_next_go=%s\n", OnOff(enabled), OnOff(due));
    if (enabled) AddTarget(&dev_gather_str, device_name.c_str());
    const OldDisk* known = KnownDisk(serial_number.c_str());
    const bool tested = known != nullptr && !known->address.empty();
    std::fprintf(schedule, "address=%s\ndevice_name=%s\nhdd_ide=%d\n",
                 tested ? known->address.c_str() : kFirstAddress, device_name.c_str(),
                 f_ide_device);
}

}  // namespace

int CpuScheduleMk(FILE* schedule) {
    const bool enabled = f_cpu_exe == 1;
    std::fprintf(schedule, "[CPU_SCHEDULE]\ncpu_exe=%s\ncpu_next_go=%s\n", OnOff(enabled),
                 OnOff(enabled));
    if (enabled) dev_gather_str.Assign("CPU");
    return 0;
}

int MemoryScheduleMk(FILE* schedule) {
    const bool enabled = f_mem_exe == 1;
    // Processors and memory never fall due in the same pass.
    const bool due = enabled && f_cpu_exe == 0;
    std::fprintf(schedule, "[MEM_SCHEDULE]\nmem_exe=%s\nmem_next_go=%s\n", OnOff(enabled),
                 OnOff(due));
    if (enabled) AddTarget(&dev_gather_str, "Memory");
    return 0;
}

int HddScheduleMk(FILE* schedule) {
    DueRule rule(hdd_max_data);
    HddSections sections;
    sections.caller = __func__;
    sections.device_line_ends = false;
    sections.write_disk = [&](int number) {
        WriteDisk(schedule, number, f_hdd_exe == 1 && rule.Due(number));
    };
    sections.write_end = [&](int count) {
        std::fprintf(schedule, "[TEST_SCHEDULE]\nhdd_all_num=%d\nhdd_timeout=%d\nhdd_max=%d\n",
                     count, hdd_timeout_data, hdd_max_data);
        std::fprintf(schedule, "hdd_next_gusu=%d\nhdd_next_kisu=1\nhdd_start_kigu=%d\n",
                     rule.resume(), 1);
        std::fprintf(schedule, "cpu_timeout=%d\nmem_timeout=%d\n", cpu_timeout_data,
                     mem_timeout_data);
    };
    return WriteHddSections(sections);
}

int CreateSchedule() {
    Ptltrprintf("[%s] start.\n", __func__);
    dev_gather_str.Clear();
    ReadEnvIni();
    const ScheduleParts file = {__func__, FindFile(kFileSche)->path, CpuScheduleMk,
                                MemoryScheduleMk, HddScheduleMk};
    if (WriteScheduleFile(file) != 0) return -1;
    ptl_change_hist(RunMode(), dev_gather_str.c_str());
    ptl_change_hist2(RunMode());
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

}  // namespace patrol
