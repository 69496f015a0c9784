#include "control/padiag_launch.h"

#include <cstdlib>
#include <ctime>
#include <string>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/padiag_state.h"
#include "base/paths.h"
#include "base/settings.h"
#include "control/command_line_builder.h"
#include "control/launch.h"
#include "control/launch_steps.h"
#include "msg/trace.h"
#include "report/system_event.h"
#include "state/disk_progress.h"
#include "state/machine.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

constexpr int kLevels = 3;

// What a processor test is started with at a level.
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

// Whether there is a test at this level; traced when there is none.
bool LevelKnown(const char* caller) {
    if (padiag_level >= 1 && padiag_level <= kLevels) return true;
    Ptltrprintf("[%s] Padiag Level Unknown( %d ).\n", caller, padiag_level);
    return false;
}

bool ErrorMode(const ProfileReader& parameters, const char* section) {
    return IsOn(parameters, section, "error");
}

std::string CpuCommand(bool* error_mode) {
    const ProfileReader parameters(para_path2.c_str());
    const CpuLevel& level = kCpuLevels[LevelIndex()];
    *error_mode = ErrorMode(parameters, level.section);
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(parameters, level.section, "dev", "CPU").c_str());
    line.AddValue("-lv", padiag_level);
    if (*error_mode) {
        line.AddWord("-tp instruction+register");
    } else {
        line.AddText("-tp", parameters, level.section, "tp", level.pattern);
    }
    line.AddNumber("-waitusec", parameters, level.section, "waitusec", level.wait);
    if (*error_mode) {
        line.AddText("-dbg_modid", parameters, "CPUDIAG_PARAM", "dbg_modid", "0x20000");
        line.AddText("-dbg_point", parameters, "CPUDIAG_PARAM", "dbg_point", "0x2");
    }
    line.AddValue("/runtime", padiag_time);
    return line.c_str();
}

std::string MemCommand(bool* error_mode) {
    const ProfileReader parameters(para_path2.c_str());
    const MemLevel& level = kMemLevels[LevelIndex()];
    *error_mode = ErrorMode(parameters, level.section);
    CommandLineBuilder line;
    line.AddDevice(DeviceValue(parameters, level.section, "dev", "mem").c_str());
    line.AddValue("-lv", padiag_level);
    if (*error_mode) {
        line.AddText("-tp", parameters, level.section, "tp_error", "BMOVEX");
    } else {
        line.AddText("-tp", parameters, level.section, "tp", level.pattern);
    }
    if (level.has_size) line.AddText("-size", parameters, level.section, "size", "16MB");
    if (level.has_data) line.AddText("-data", parameters, level.section, "data", "all");
    line.AddNumber("-waitsec", parameters, level.section, "waitsec", level.wait);
    line.AddValue("/runtime", padiag_time);
    return line.c_str();
}

std::string HddCommand(const ProfileReader& schedule, const ProfileReader& parameters,
                       const char* section, const char* device, bool error_mode) {
    const HddLevel& level = kHddLevels[LevelIndex()];
    CommandLineBuilder line;
    line.AddDevice(device);
    line.AddValue("-lv", padiag_level);
    line.AddText("-tp", parameters, level.section, "tp", level.pattern);
    if (level.random) {
        line.AddNumber("-wide", parameters, level.section, "wide", 204800);
        line.AddNumber("-count", parameters, level.section, "count", 1000);
    } else {
        line.AddText("-lba", schedule, section, "address", kFirstAddress);
    }
    line.AddText("-sc", parameters, level.section, "sc", "0x80");
    if (schedule.Int(section, "hdd_ide", 0) == 1) line.AddWord("-ide");
    if (error_mode) {
        line.AddText(nullptr, parameters, level.section, "param_error", "-debug2");
    } else {
        line.AddValue("/runtime", padiag_time);
    }
    return line.c_str();
}

// Notes where the started test's component sits and when it began, and announces it.
void AnnounceStart(int kind, PadiagTest* test, const char* phypath) {
    date2iso8601(std::time(nullptr), &test->start_time);
    test->phypath.Assign(phypath);
    EventRecord record;
    record.start_time = test->start_time;
    padiag_sdb_event(StartEventName(kind), kEventStarted, test->phypath.c_str(), record);
}

// What the processor and the memory launcher differ in.
struct RequestedTest {
    const char* caller;
    int kind;
    const char* due_key;
    std::string (*command)(bool* error_mode);
    int32_t* fd;
    pid_t* pid;
    int (*clock)(int, int32_t);
    PadiagTest* test;
    int path_kind;
};

int LaunchRequested(const RequestedTest& row) {
    const auto start = [&](const char* command) {
        const std::string output = OutputPath(row.kind, 0);
        if (test_exec2(row.kind, 0, command, row.fd, row.pid, output.c_str()) != 0) return -1;
        row.clock(1, 0);
        AnnounceStart(row.kind, row.test, get_phypath(row.path_kind, nullptr));
        return 0;
    };
    const auto level_known = [&] { return LevelKnown(row.caller); };
    return LaunchSingle({row.caller, row.kind, row.due_key, level_known, row.command, start},
                        ProfileReader(sche_path2.c_str()));
}

// At level 3 a disk goes on where it was left: notes that place and how far it is.
void NoteStart(const ProfileReader& schedule, const char* section, const char* device,
               PadiagTest* test) {
    Text<65> text;
    schedule.String(section, "address", kFirstAddress, &text);
    test->start_lba = std::strtoull(text.c_str(), nullptr, 0);
    if (test->start_lba == 0) return;
    const DiskProgress progress(lba_path.c_str());
    test->progress = StartPercent(test->start_lba, progress.Maximum(device));
}

// Starts the test of disk `number`. 1, 0 when it is not requested, -1 when it could not be started.
int LaunchDisk(const char* caller, const ProfileReader& schedule, const ProfileReader& parameters,
               int number) {
    Text<64> section;
    section.Format("HDD_SCHEDULE %d", number);
    if (!IsOn(schedule, section.c_str(), "hdd")) {
        Ptltrprintf("[%s] HddTest(%d) Not Exec.\n", caller, number);
        return 0;
    }
    if (!LevelKnown(caller)) return 0;
    const Text<513> device = DeviceValue(schedule, section.c_str(), "device_name", "NO DATA");
    Ptltrprintf("[%s] Check device_name = [%s].\n", caller, device.c_str());
    const bool error_mode = ErrorMode(parameters, kHddLevels[LevelIndex()].section);
    Ptltrprintf("[%s] HddTest %s(%d) Exec.\n", caller, ModeWord(error_mode), number);
    const std::string command =
        HddCommand(schedule, parameters, section.c_str(), device.c_str(), error_mode);

    HddExec& entry = hdd_exec_tbl[hdd_exec_use];
    if (test_exec2(kKindHdd, 0, command.c_str(), &entry.read_fd, &entry.pid,
                   OutputPath(kKindHdd, number).c_str()) != 0) {
        Ptltrprintf("[%s] Exec Error(sched_cnt=%d).\n", caller, number);
        return -1;
    }
    EnterDisk(schedule, section.c_str(), number);
    if (padiag_level == kProgressLevel) {
        NoteStart(schedule, section.c_str(), device.c_str(), &entry.padiag);
    }
    const char* needle = device.view() == "NO DATA" ? "no data" : device.c_str();
    AnnounceStart(kKindHdd, &entry.padiag, get_phypath(kPathOfDevice, needle));
    return 1;
}

}  // namespace

int PadiagCpuTestExec() {
    return LaunchRequested({__func__, kKindCpu, "cpu", CpuCommand, &fhandleCpu, &ProcessIdCpu,
                            cpu_check_time, &padiag_cpu, kPathOfCpu});
}

int PadiagMemTestExec() {
    return LaunchRequested({__func__, kKindMemory, "mem", MemCommand, &fhandleMem, &ProcessIdMem,
                            mem_check_time, &padiag_mem, kPathOfMemory});
}

int PadiagHddTestExec() {
    const ProfileReader schedule(sche_path2.c_str());
    const ProfileReader parameters(para_path2.c_str());
    return LaunchDisks(__func__, schedule, [&](int number) {
        return LaunchDisk("PadiagHddTestExec", schedule, parameters, number);
    });
}

std::string OutputPath(int kind, int number) {
    std::string path = std::string(trc_name) + "/padiag_" + FindKind(kind)->program + "_stdout";
    if (kind == kKindHdd) path += std::to_string(number);
    return path;
}

}  // namespace patrol
