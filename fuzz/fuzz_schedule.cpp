// A damaged Schedule file: the runs that read and rewrite it.

#include "control/padiag_launch.h"
#include "control/patrol_launch.h"
#include "control/selection.h"
#include "schedule/sched_main.h"
#include "state/schedule_file.h"
#include "support.h"

using namespace patrol_fuzz;

namespace {

// Has a mode make its Schedule files, of which `path` is one.
void Rebuild(uint8_t mode, const char* path) {
    const bool counted = ScheduleFile(path).DiskCount() >= 0 || mode == kModeReload;
    const bool missing = LookAtSchedule(path) == Place::kMissing;
    entry_cmd = mode;
    Check((sched_main() == 0) == (counted || missing || mode == kModeAgentStart),
          "a damaged Schedule can be brought up to date");
    // A count below 0 is not believed, and an agent start makes no first file.
    if (missing ? mode == kModeAgentStart : !counted) return;
    Check(CheckWholeSchedule(path) == 3, "all disks are in the file");
}

// What a pass does apart from the tests. Their programs cannot be started here.
void Pass() {
    for (int (*launch)() : {CpuTestExec, MemTestExec, HddTestExec, PadiagCpuTestExec,
                            PadiagMemTestExec, PadiagHddTestExec}) {
        Check(launch() <= 0, "no test is started");
    }
    FreeDiskTable();
    NextTestSchedule();
}

}  // namespace

FUZZ_TARGET(schedule) {
    const Agent& agent = Agent::Fresh();
    agent.Write(
        "data/devconf_new.xml",
        patrol_test::DeviceXml({{"/dev/sda", "SN-0"}, {"/dev/sdb", "SN-1"}, {"/dev/sdc", "SN-2"}}));
    const std::string schedule = input.Text();
    for (const char* name : {"data/pat_new_sche.txt", "data/pat_sche2.txt"}) {
        agent.Write(name, schedule);
    }
    agent.Write("data/pat_new_para.ini", input.Text());
    // More would only take longer.
    if (GetPrivateProfileInt("TEST_SCHEDULE", "hdd_all_num", 0, sche_path.c_str()) > 100) return;

    for (int steps = 0; steps < 4 && !input.empty(); ++steps) {
        const std::string before = agent.Read("data/pat_new_sche.txt");
        unlink(agent.Path("data/pat_new_sche.txt.old").c_str());
        switch (input.Number(0, 3)) {
            case 0:
                Pass();
                Check(agent.Read("data/pat_new_sche.txt") == before ||
                          agent.Exists("data/pat_new_sche.txt.old"),
                      "a pass that changes the Schedule leaves the older one");
                break;
            case 1:
                Rebuild(kModeReload, sche_path2.c_str());
                break;
            default:
                Rebuild(input.Bool() ? kModeConfigChange : kModeAgentStart, sche_path.c_str());
        }
        Check(!agent.LeftUnfinished(), "nothing half-written stays");
    }
}
