#include "control/patrol_launch.h"

#include <string>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/paths.h"
#include "control/command_line_builder.h"
#include "control/launch.h"
#include "control/launch_steps.h"
#include "msg/trace.h"
#include "sys/profile.h"

namespace patrol {

int32_t cpu_tout_watch = 0;
int32_t mem_tout_watch = 0;
int32_t hdd_tout_watch = 0;

namespace {

constexpr int kDefaultTimeout = 45;
constexpr char kCpuParameters[] = "CPUDIAG_PARAM";
constexpr char kMemParameters[] = "MEMDIAG_PARAM";
constexpr char kHddParameters[] = "HDDDIAG_PARAM";
// Not the section of the other disk parameters; administrators' files have it so.
constexpr char kHddErrorParameters[] = "HDD_DIAGPARAM";

int32_t TimeoutOf(const ProfileReader& schedule, const char* key) {
    return schedule.Int("TEST_SCHEDULE", key, kDefaultTimeout);
}

void AddLogItems(CommandLineBuilder* line, const ProfileReader& parameters, const char* section) {
    line->AddNumber("-log", parameters, section, "log", 512);
    line->AddNumber("-gen", parameters, section, "gen", 4);
}

std::string CpuCommand(bool* error_mode) {
    const ProfileReader parameters(para_path.c_str());
    *error_mode = IsOn(parameters, kCpuParameters, "error");
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(parameters, kCpuParameters, "dev", "CPU").c_str());
    line.AddNumber("-lv", parameters, kCpuParameters, "lv", 0);
    line.AddText("-tp", parameters, kCpuParameters, "tp", "Instruction+Register");
    AddLogItems(&line, parameters, kCpuParameters);
    if (*error_mode) {
        line.AddText("-dbg_modid", parameters, kCpuParameters, "dbg_modid", "0x20000");
        line.AddText("-dbg_point", parameters, kCpuParameters, "dbg_point", "0x2");
    }
    return line.c_str();
}

std::string MemCommand(bool* error_mode) {
    const ProfileReader parameters(para_path.c_str());
    *error_mode = IsOn(parameters, kMemParameters, "error");
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(parameters, kMemParameters, "dev", "mem").c_str());
    line.AddNumber("-lv", parameters, kMemParameters, "lv", 0);
    if (*error_mode) {
        line.AddText("-tp", parameters, kMemParameters, "tp_error", "BMOVEX");
    } else {
        line.AddText("-tp", parameters, kMemParameters, "tp", "BMOVE");
    }
    AddLogItems(&line, parameters, kMemParameters);
    return line.c_str();
}

std::string HddCommand(const ProfileReader& schedule, const ProfileReader& parameters,
                       const char* section, bool error_mode) {
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(schedule, section, "device_name", "NO DATA").c_str());
    line.AddNumber("-lv", parameters, kHddParameters, "lv", 0);
    line.AddText("-tp", parameters, kHddParameters, "tp", "sector");
    AddLogItems(&line, parameters, kHddParameters);
    line.AddText("-lba", schedule, section, "address", "0x0000000000000000");
    line.AddText("-sc", schedule, section, "sc", "0x40");
    line.AddNumber("-retry", parameters, kHddParameters, "retry", 0);
    // The test program takes the word with either sign; which one it gets tells the modes apart.
    if (schedule.Int(section, "hdd_ide", 0) == 1) line.AddWord(error_mode ? "/ide" : "-ide");
    if (error_mode) {
        line.AddText(nullptr, parameters, kHddErrorParameters, "param_error", "-debug2");
    }
    return line.c_str();
}

// Starts the test of disk `number`. 1, 0 when it is not due, -1 when it could not be started.
int LaunchDisk(const char* caller, const ProfileReader& schedule, const ProfileReader& parameters,
               int number) {
    Text<64> section;
    section.Format("HDD_SCHEDULE %d", number);
    if (!IsOn(schedule, section.c_str(), "hdd_next_go")) {
        Ptltrprintf("[%s] HddTest(%d) Not Exec.\n", caller, number);
        return 0;
    }
    const bool error_mode = IsOn(parameters, kHddParameters, "error");
    Ptltrprintf("[%s] HddTest %s(%d) Exec.\n", caller, ModeWord(error_mode), number);
    const std::string command = HddCommand(schedule, parameters, section.c_str(), error_mode);
    HddExec& entry = hdd_exec_tbl[hdd_exec_use];
    if (test_exec(kKindHdd, 0, hdd_tout_watch, command.c_str(), &entry.read_fd, &entry.write_fd,
                  &entry.pid) != 0) {
        Ptltrprintf("[%s] Exec Error(sched_cnt=%d).\n", caller, number);
        return -1;
    }
    EnterDisk(schedule, section.c_str(), number);
    return 1;
}

}  // namespace

int CpuTestExec() {
    const ProfileReader schedule(sche_path.c_str());
    const auto prepare = [&] {
        cpu_tout_watch = TimeoutOf(schedule, "cpu_timeout");
        return true;
    };
    const auto start = [](const char* command) {
        const int result = test_exec(kKindCpu, 0, cpu_tout_watch, command, &PipeCpuRead,
                                     &PipeCpuWrite, &ProcessIdCpu);
        return result == 0 ? cpu_check_time(1, 0) : result;
    };
    return LaunchSingle({__func__, kKindCpu, "cpu_next_go", prepare, CpuCommand, start}, schedule);
}

int MemTestExec() {
    const ProfileReader schedule(sche_path.c_str());
    const auto prepare = [&] {
        mem_tout_watch = TimeoutOf(schedule, "mem_timeout");
        return true;
    };
    const auto start = [](const char* command) {
        const int result = test_exec(kKindMemory, 0, mem_tout_watch, command, &PipeMemRead,
                                     &PipeMemWrite, &ProcessIdMem);
        return result == 0 ? mem_check_time(1, 0) : result;
    };
    return LaunchSingle({__func__, kKindMemory, "mem_next_go", prepare, MemCommand, start},
                        schedule);
}

int HddTestExec() {
    const ProfileReader schedule(sche_path.c_str());
    const ProfileReader parameters(para_path.c_str());
    hdd_tout_watch = TimeoutOf(schedule, "hdd_timeout");
    return LaunchDisks(__func__, schedule, [&](int number) {
        return LaunchDisk("HddTestExec", schedule, parameters, number);
    });
}

}  // namespace patrol
