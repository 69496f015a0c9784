#include "control/patrol_launch.h"

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/number.h"
#include "base/paths.h"
#include "control/launch.h"
#include "msg/trace.h"
#include "state/schedule_file.h"
#include "sys/profile.h"

namespace patrol {

int32_t cpu_tout_watch = 0;
int32_t mem_tout_watch = 0;
int32_t hdd_tout_watch = 0;

namespace {

constexpr char kCpuParameters[] = "CPUDIAG_PARAM";
constexpr char kMemParameters[] = "MEMDIAG_PARAM";
constexpr char kHddParameters[] = "HDDDIAG_PARAM";
// Not the section of the other disk parameters; administrators' files have it so.
constexpr char kHddErrorParameters[] = "HDD_DIAGPARAM";

// How large the test program lets its own log grow, and how many generations it keeps.
void AddLogItems(CommandLineBuilder* line, const ProfileReader& parameters, const char* section) {
    line->AddNumber("-log", parameters, section, "log", 512);
    line->AddNumber("-gen", parameters, section, "gen", 4);
}

// The commands differ too much to come from one table: in error mode each kind is made to fail in
// its own way.
TestCommand CpuCommand() {
    const ProfileReader parameters(para_path.c_str());
    TestCommand command;
    command.error_mode = IsOn(parameters, kCpuParameters, "error");
    CommandLineBuilder& line = command.line;
    line.AddDevice(parameters, kCpuParameters, "CPU");
    line.AddNumber("-lv", parameters, kCpuParameters, "lv", 0);
    line.AddText("-tp", parameters, kCpuParameters, "tp", "Instruction+Register");
    AddLogItems(&line, parameters, kCpuParameters);
    if (command.error_mode) {
        line.AddText("-dbg_modid", parameters, kCpuParameters, "dbg_modid", "0x20000");
        line.AddText("-dbg_point", parameters, kCpuParameters, "dbg_point", "0x2");
    }
    return command;
}

TestCommand MemCommand() {
    const ProfileReader parameters(para_path.c_str());
    TestCommand command;
    command.error_mode = IsOn(parameters, kMemParameters, "error");
    CommandLineBuilder& line = command.line;
    line.AddDevice(parameters, kMemParameters, "mem");
    line.AddNumber("-lv", parameters, kMemParameters, "lv", 0);
    if (command.error_mode) {
        line.AddText("-tp", parameters, kMemParameters, "tp_error", "BMOVEX");
    } else {
        line.AddText("-tp", parameters, kMemParameters, "tp", "BMOVE");
    }
    AddLogItems(&line, parameters, kMemParameters);
    return command;
}

TestCommand HddCommand(const ScheduleFile& schedule, const ProfileReader& parameters,
                       const RunningTest& disk) {
    const Text<32> section = DiskSection(disk.schedule_index);
    TestCommand command;
    command.error_mode = IsOn(parameters, kHddParameters, "error");
    CommandLineBuilder& line = command.line;
    line.AddDevice(disk.device_name.c_str());
    line.AddNumber("-lv", parameters, kHddParameters, "lv", 0);
    line.AddText("-tp", parameters, kHddParameters, "tp", "sector");
    AddLogItems(&line, parameters, kHddParameters);
    line.AddText("-lba", schedule.Address<512>(disk.schedule_index).c_str());
    line.AddText("-sc", schedule.profile(), section.c_str(), "sc", "0x40");
    line.AddNumber("-retry", parameters, kHddParameters, "retry", 0);
    // The test program takes the word with either sign; which one it gets tells the modes apart.
    if (schedule.IsIde(disk.schedule_index)) line.AddWord(command.error_mode ? "/ide" : "-ide");
    if (command.error_mode) {
        line.AddText(nullptr, parameters, kHddErrorParameters, "param_error", "-debug2");
    }
    return command;
}

// Starts `test` and its clock. Returns false (traced) when it could not be started.
bool Start(RunningTest* test, int timeout, const TestCommand& command) {
    if (test_exec(test->kind, 0, timeout, command.line.c_str(), &test->read_fd, &test->write_fd,
                  &test->pid) != 0) {
        return false;
    }
    CheckTestTime(1, 0, test);
    return true;
}

// Starts the test of disk `number`. Returns 1, 0 when it is not due, -1 when it could not be
// started.
int LaunchDisk(const char* caller, const ScheduleFile& schedule, const ProfileReader& parameters,
               int number) {
    if (!IsOn(schedule.profile(), DiskSection(number).c_str(), KeysOf(kKindHdd).due)) {
        Ptltrprintf("[%s] HddTest(%d) Not Exec.\n", caller, number);
        return 0;
    }
    RunningTest* disk = NextDisk(schedule, number);
    const TestCommand command = HddCommand(schedule, parameters, *disk);
    Ptltrprintf("[%s] HddTest %s(%d) Exec.\n", caller, command.ModeWord(), number);
    if (!Start(disk, hdd_tout_watch, command)) {
        Ptltrprintf("[%s] Exec Error(sched_cnt=%d).\n", caller, number);
        return -1;
    }
    ++hdd_exec_use;
    return 1;
}

}  // namespace

int CpuTestExec() {
    const ScheduleFile schedule(sche_path.c_str());
    if (!BeginLaunch(__func__, schedule, cpu_test, KeysOf(kKindCpu).due)) return 0;
    // Kept for the wait: a reload during the test is not to change its time-out.
    cpu_tout_watch = schedule.Timeout(kKindCpu);
    const TestCommand command = CpuCommand();
    Ptltrprintf("[%s] CpuTest %s Exec.\n", __func__, command.ModeWord());
    return EndLaunch(__func__, Start(&cpu_test, cpu_tout_watch, command));
}

int MemTestExec() {
    const ScheduleFile schedule(sche_path.c_str());
    if (!BeginLaunch(__func__, schedule, mem_test, KeysOf(kKindMemory).due)) return 0;
    mem_tout_watch = schedule.Timeout(kKindMemory);
    const TestCommand command = MemCommand();
    Ptltrprintf("[%s] MemoryTest %s Exec.\n", __func__, command.ModeWord());
    return EndLaunch(__func__, Start(&mem_test, mem_tout_watch, command));
}

int HddTestExec() {
    const ScheduleFile schedule(sche_path.c_str());
    const ProfileReader parameters(para_path.c_str());
    if (!BeginDisks(__func__, schedule)) return -1;
    hdd_tout_watch = schedule.Timeout(kKindHdd);
    int result = 0;
    for (int i = 0; i < BoundedCount(schedule.DiskCount()); ++i) {
        const int launched = LaunchDisk(__func__, schedule, parameters, i);
        if (launched != 0) result = launched;
    }
    Ptltrprintf("[%s] End.\n", __func__);
    return result;
}

}  // namespace patrol
