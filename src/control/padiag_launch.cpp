#include "control/padiag_launch.h"

#include <cstdlib>
#include <ctime>
#include <string>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/running_tests.h"
#include "base/settings.h"
#include "control/launch.h"
#include "msg/trace.h"
#include "report/system_event.h"
#include "state/disk_progress.h"
#include "state/machine.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

constexpr int kLevels = 3;

// What a processor test is started with at a level. The tables hold what counts where the parameter
// file is silent. A wait is the pause between two steps of a test: it leaves the machine to those
// who use it.
struct CpuLevel {
    const char* section;
    const char* pattern;
    int wait;  // microseconds
};

constexpr CpuLevel kCpuLevels[kLevels] = {
    {"CPUDIAG_PARAM_LEVEL1", "instruction+register", 10000},
    {"CPUDIAG_PARAM_LEVEL2", "instruction+register", 10000},
    {"CPUDIAG_PARAM_LEVEL3", "instruction+register+cache", 50000},
};

struct MemLevel {
    const char* section;
    const char* pattern;
    int wait;  // seconds
    bool has_size;
    bool has_data;
};

constexpr MemLevel kMemLevels[kLevels] = {
    {"MEMDIAG_PARAM_LEVEL1", "IMOVE", 2, false, false},
    {"MEMDIAG_PARAM_LEVEL2", "WHOLE", 13, true, false},
    {"MEMDIAG_PARAM_LEVEL3", "WHOLE", 7, true, true},
};

struct HddLevel {
    const char* section;
    const char* pattern;
    bool random;  // reads at random within a width, else in sequence from an address
};

constexpr HddLevel kHddLevels[kLevels] = {
    {"HDDDIAG_PARAM_LEVEL1", "iorandom", true},
    {"HDDDIAG_PARAM_LEVEL2", "iorandom", true},
    {"HDDDIAG_PARAM_LEVEL3", "sector", false},
};

size_t LevelIndex() { return static_cast<size_t>(padiag_level - 1); }

// Returns whether there is a test at this level; traced when there is none.
bool LevelKnown(const char* caller) {
    if (padiag_level >= 1 && padiag_level <= kLevels) return true;
    Ptltrprintf("[%s] Padiag Level Unknown( %d ).\n", caller, padiag_level);
    return false;
}

// Returns whether a test is to fail, by the parameters of its level.
bool ErrorMode(const ProfileReader& parameters, const char* section) {
    return IsOn(parameters, section, "error");
}

TestCommand CpuCommand() {
    const ProfileReader parameters(para_path2.c_str());
    const CpuLevel& level = kCpuLevels[LevelIndex()];
    TestCommand command;
    command.error_mode = ErrorMode(parameters, level.section);
    CommandLineBuilder& line = command.line;
    line.AddDevice(parameters, level.section, "CPU");
    line.AddValue("-lv", padiag_level);
    if (command.error_mode) {
        line.AddWord("-tp instruction+register");
    } else {
        line.AddText("-tp", parameters, level.section, "tp", level.pattern);
    }
    line.AddNumber("-waitusec", parameters, level.section, "waitusec", level.wait);
    if (command.error_mode) {
        line.AddText("-dbg_modid", parameters, "CPUDIAG_PARAM", "dbg_modid", "0x20000");
        line.AddText("-dbg_point", parameters, "CPUDIAG_PARAM", "dbg_point", "0x2");
    }
    line.AddValue("/runtime", padiag_time);
    return command;
}

TestCommand MemCommand() {
    const ProfileReader parameters(para_path2.c_str());
    const MemLevel& level = kMemLevels[LevelIndex()];
    TestCommand command;
    command.error_mode = ErrorMode(parameters, level.section);
    CommandLineBuilder& line = command.line;
    line.AddDevice(parameters, level.section, "mem");
    line.AddValue("-lv", padiag_level);
    if (command.error_mode) {
        line.AddText("-tp", parameters, level.section, "tp_error", "BMOVEX");
    } else {
        line.AddText("-tp", parameters, level.section, "tp", level.pattern);
    }
    if (level.has_size) line.AddText("-size", parameters, level.section, "size", "16MB");
    if (level.has_data) line.AddText("-data", parameters, level.section, "data", "all");
    line.AddNumber("-waitsec", parameters, level.section, "waitsec", level.wait);
    line.AddValue("/runtime", padiag_time);
    return command;
}

TestCommand HddCommand(const ScheduleFile& schedule, const ProfileReader& parameters,
                       const RunningTest& disk) {
    const HddLevel& level = kHddLevels[LevelIndex()];
    TestCommand command;
    command.error_mode = ErrorMode(parameters, level.section);
    CommandLineBuilder& line = command.line;
    line.AddDevice(disk.device_name.c_str());
    line.AddValue("-lv", padiag_level);
    line.AddText("-tp", parameters, level.section, "tp", level.pattern);
    if (level.random) {
        line.AddNumber("-wide", parameters, level.section, "wide", 204800);
        line.AddNumber("-count", parameters, level.section, "count", 1000);
    } else {
        line.AddText("-lba", schedule.Address<512>(disk.schedule_index).c_str());
    }
    line.AddText("-sc", parameters, level.section, "sc", "0x80");
    if (schedule.IsIde(disk.schedule_index)) line.AddWord("-ide");
    if (command.error_mode) {
        line.AddText(nullptr, parameters, level.section, "param_error", "-debug2");
    } else {
        line.AddValue("/runtime", padiag_time);
    }
    return command;
}

// Starts `test` and its clock. Returns false (traced) when it could not be started.
bool Start(RunningTest* test, const TestCommand& command) {
    const std::string output = OutputPath(*test);
    if (test_exec2(test->kind, 0, command.line.c_str(), &test->read_fd, &test->pid,
                   output.c_str()) != 0) {
        return false;
    }
    CheckTestTime(1, 0, test);
    return true;
}

// Notes where the started test's component sits and when the test began, and announces it. Both
// are kept with the test, as its end is announced with them.
void AnnounceStart(RunningTest* test, const char* phypath) {
    PadiagTest& padiag = test->padiag;
    date2iso8601(std::time(nullptr), &padiag.start_time);
    padiag.phypath.Assign(phypath);
    EventRecord record;
    record.start_time = padiag.start_time;
    padiag_sdb_event(StartEventName(test->kind), kEventStarted, padiag.phypath.c_str(), record);
}

// Starts and announces the processor or the memory test.
bool StartSingle(RunningTest* test, const TestCommand& command, int path_kind) {
    if (!Start(test, command)) return false;
    AnnounceStart(test, get_phypath(path_kind, nullptr));
    return true;
}

// At level 3 a disk goes on where it was left: notes that place and how far it is.
void NoteStart(const ScheduleFile& schedule, RunningTest* disk) {
    PadiagTest& padiag = disk->padiag;
    const Text<65> address = schedule.Address<64>(disk->schedule_index);
    padiag.start_lba = std::strtoull(address.c_str(), nullptr, 0);
    if (padiag.start_lba == 0) return;
    const DiskProgress progress(lba_path.c_str());
    padiag.progress = StartPercent(padiag.start_lba, progress.Maximum(disk->device_name.c_str()));
}

// Starts the test of disk `number`. Returns 1, 0 when it is not requested, -1 when it could not be
// started.
int LaunchDisk(const char* caller, const ScheduleFile& schedule, const ProfileReader& parameters,
               int number) {
    if (!IsOn(schedule.profile(), DiskSection(number).c_str(), KeysOf(kKindHdd).requested)) {
        Ptltrprintf("[%s] HddTest(%d) Not Exec.\n", caller, number);
        return 0;
    }
    if (!LevelKnown(caller)) return 0;
    RunningTest* disk = NextDisk(schedule, number);
    const char* device = disk->device_name.c_str();
    Ptltrprintf("[%s] Check device_name = [%s].\n", caller, device);
    const TestCommand command = HddCommand(schedule, parameters, *disk);
    Ptltrprintf("[%s] HddTest %s(%d) Exec.\n", caller, command.ModeWord(), number);
    if (!Start(disk, command)) {
        Ptltrprintf("[%s] Exec Error(sched_cnt=%d).\n", caller, number);
        return -1;
    }
    ++hdd_exec_use;
    if (padiag_level == kProgressLevel) NoteStart(schedule, disk);
    const bool named = disk->device_name.view() != kNoDevice;
    AnnounceStart(disk, get_phypath(kPathOfDevice, named ? device : "no data"));
    return 1;
}

}  // namespace

int PadiagCpuTestExec() {
    const ScheduleFile schedule(sche_path2.c_str());
    if (!BeginLaunch(__func__, schedule, cpu_test, KeysOf(kKindCpu).requested)) return 0;
    if (!LevelKnown(__func__)) return 0;
    const TestCommand command = CpuCommand();
    Ptltrprintf("[%s] CpuTest %s Exec.\n", __func__, command.ModeWord());
    return EndLaunch(__func__, StartSingle(&cpu_test, command, kPathOfCpu));
}

int PadiagMemTestExec() {
    const ScheduleFile schedule(sche_path2.c_str());
    if (!BeginLaunch(__func__, schedule, mem_test, KeysOf(kKindMemory).requested)) return 0;
    if (!LevelKnown(__func__)) return 0;
    const TestCommand command = MemCommand();
    Ptltrprintf("[%s] MemoryTest %s Exec.\n", __func__, command.ModeWord());
    return EndLaunch(__func__, StartSingle(&mem_test, command, kPathOfMemory));
}

int PadiagHddTestExec() {
    const ScheduleFile schedule(sche_path2.c_str());
    const ProfileReader parameters(para_path2.c_str());
    if (!BeginDisks(__func__, schedule)) return -1;
    int result = 0;
    for (int i = 0; i < BoundedCount(schedule.DiskCount()); ++i) {
        const int launched = LaunchDisk(__func__, schedule, parameters, i);
        if (launched != 0) result = launched;
    }
    Ptltrprintf("[%s] End.\n", __func__);
    return result;
}

std::string OutputPath(const RunningTest& test) {
    std::string path =
        std::string(trc_name) + "/padiag_" + FindKind(test.kind)->program + "_stdout";
    if (test.kind == kKindHdd) path += std::to_string(test.schedule_index);
    return path;
}

}  // namespace patrol
