#include "control/test_commands.h"

#include <string>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "control/command_line_builder.h"
#include "control/launch.h"
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

// "OFF" is told by its first three characters alone.
bool IsOn(const ProfileReader& profile, const char* section, const char* key) {
    Text<65> value;
    profile.String(section, key, "OFF", &value);
    return value.view().substr(0, 3) != "OFF";
}

int32_t TimeoutOf(const ProfileReader& schedule, const char* key) {
    return schedule.Int("TEST_SCHEDULE", key, kDefaultTimeout);
}

Text<513> DeviceValue(const ProfileReader& from, const char* section, const char* key,
                      const char* default_value) {
    Text<513> device;
    from.String(section, key, default_value, &device);
    return device;
}

void AddLogItems(CommandLineBuilder* line, const ProfileReader& parameters, const char* section) {
    line->AddNumber("-log", parameters, section, "log", 512);
    line->AddNumber("-gen", parameters, section, "gen", 4);
}

std::string CpuCommand(const ProfileReader& parameters, bool error_mode) {
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(parameters, kCpuParameters, "dev", "CPU").c_str());
    line.AddNumber("-lv", parameters, kCpuParameters, "lv", 0);
    line.AddText("-tp", parameters, kCpuParameters, "tp", "Instruction+Register");
    AddLogItems(&line, parameters, kCpuParameters);
    if (error_mode) {
        line.AddText("-dbg_modid", parameters, kCpuParameters, "dbg_modid", "0x20000");
        line.AddText("-dbg_point", parameters, kCpuParameters, "dbg_point", "0x2");
    }
    return line.c_str();
}

std::string MemCommand(const ProfileReader& parameters, bool error_mode) {
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(parameters, kMemParameters, "dev", "mem").c_str());
    line.AddNumber("-lv", parameters, kMemParameters, "lv", 0);
    if (error_mode) {
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

// What the processor and the memory launcher differ in.
struct SingleTest {
    int kind;
    const char* caller;
    const char* not_due_name;  // as the traces say it
    const char* mode_name;
    const char* section;
    const char* due_key;
    const char* timeout_key;
    const char* parameters;
    int32_t* timeout;
    std::string (*command)(const ProfileReader&, bool);
    int32_t* read_fd;
    int32_t* write_fd;
    pid_t* pid;
    int (*clock)(int, int32_t);
};

int LaunchSingle(const SingleTest& test) {
    Ptltrprintf("[%s] Start.\n", test.caller);
    const ProfileReader schedule(sche_path.c_str());
    if (!IsOn(schedule, test.section, test.due_key)) {
        Ptltrprintf("[%s] %s Not Exec.\n", test.caller, test.not_due_name);
        return 0;
    }
    *test.timeout = TimeoutOf(schedule, test.timeout_key);
    const ProfileReader parameters(para_path.c_str());
    const bool error_mode = IsOn(parameters, test.parameters, "error");
    Ptltrprintf("[%s] %s %s Exec.\n", test.caller, test.mode_name,
                error_mode ? "ErrorMode" : "NormalMode");
    const std::string command = test.command(parameters, error_mode);
    if (test_exec(test.kind, 0, *test.timeout, command.c_str(), test.read_fd, test.write_fd,
                  test.pid) != 0) {
        Ptltrprintf("[%s] Error End.\n", test.caller);
        return -1;
    }
    test.clock(1, 0);
    Ptltrprintf("[%s] End.\n", test.caller);
    return 1;
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
    Ptltrprintf("[%s] HddTest %s(%d) Exec.\n", caller, error_mode ? "ErrorMode" : "NormalMode",
                number);
    const std::string command = HddCommand(schedule, parameters, section.c_str(), error_mode);
    HddExec& entry = hdd_exec_tbl[hdd_exec_use];
    if (test_exec(kKindHdd, 0, hdd_tout_watch, command.c_str(), &entry.read_fd, &entry.write_fd,
                  &entry.pid) != 0) {
        Ptltrprintf("[%s] Exec Error(sched_cnt=%d).\n", caller, number);
        return -1;
    }
    entry.device_name.Assign(
        DeviceValue(schedule, section.c_str(), "device_name", "NO DATA").view());
    entry.schedule_index = number;
    ++hdd_exec_use;
    hdd_check_time(1, 0, hdd_exec_use - 1);
    return 1;
}

}  // namespace

int CpuTestExec() {
    return LaunchSingle({kKindCpu, __func__, "CpuTest", "CpuTest", "CPU_SCHEDULE", "cpu_next_go",
                         "cpu_timeout", kCpuParameters, &cpu_tout_watch, CpuCommand, &PipeCpuRead,
                         &PipeCpuWrite, &ProcessIdCpu, cpu_check_time});
}

int MemTestExec() {
    return LaunchSingle({kKindMemory, __func__, "MemTest", "MemoryTest", "MEM_SCHEDULE",
                         "mem_next_go", "mem_timeout", kMemParameters, &mem_tout_watch, MemCommand,
                         &PipeMemRead, &PipeMemWrite, &ProcessIdMem, mem_check_time});
}

int HddTestExec() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ProfileReader schedule(sche_path.c_str());
    const int count = schedule.Int("TEST_SCHEDULE", "hdd_all_num", 0);
    if (!AllocateDiskTable(count)) {
        Ptltrprintf("[%s] hdd_exec_go Alloc Error.(size= %d byte)\n", __func__,
                    ClampToInt(int64_t{count} * static_cast<int64_t>(sizeof(HddExec))));
        Ptltrprintf("[%s] Error End.\n", __func__);
        return -1;
    }
    hdd_tout_watch = TimeoutOf(schedule, "hdd_timeout");
    const ProfileReader parameters(para_path.c_str());
    int result = 0;
    for (int i = 0; i < BoundedCount(count); ++i) {
        const int launched = LaunchDisk(__func__, schedule, parameters, i);
        if (launched != 0) result = launched;
    }
    Ptltrprintf("[%s] End.\n", __func__);
    return result;
}

}  // namespace patrol
