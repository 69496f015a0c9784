#include "control/launch_steps.h"

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/table.h"
#include "msg/trace.h"

namespace patrol {

bool IsOn(const ProfileReader& profile, const char* section, const char* key) {
    Text<65> value;
    profile.String(section, key, "OFF", &value);
    return value.view().substr(0, 3) != "OFF";
}

int LaunchSingle(const SingleTest& test, const ProfileReader& schedule) {
    const bool cpu = test.kind == kKindCpu;
    Ptltrprintf("[%s] Start.\n", test.caller);
    if (!IsOn(schedule, cpu ? "CPU_SCHEDULE" : "MEM_SCHEDULE", test.due_key)) {
        Ptltrprintf("[%s] %s Not Exec.\n", test.caller, cpu ? "CpuTest" : "MemTest");
        return 0;
    }
    if (!test.prepare()) return 0;
    bool error_mode = false;
    const std::string command = test.command(&error_mode);
    Ptltrprintf("[%s] %s %s Exec.\n", test.caller, cpu ? "CpuTest" : "MemoryTest",
                ModeWord(error_mode));
    if (test.start(command.c_str()) != 0) {
        Ptltrprintf("[%s] Error End.\n", test.caller);
        return -1;
    }
    Ptltrprintf("[%s] End.\n", test.caller);
    return 1;
}

const char* ModeWord(bool error_mode) { return error_mode ? "ErrorMode" : "NormalMode"; }

Text<513> DeviceValue(const ProfileReader& from, const char* section, const char* key,
                      const char* default_value) {
    Text<513> device;
    from.String(section, key, default_value, &device);
    return device;
}

int LaunchDisks(const char* caller, const ProfileReader& schedule,
                const std::function<int(int number)>& launch) {
    Ptltrprintf("[%s] Start.\n", caller);
    const int count = schedule.Int("TEST_SCHEDULE", "hdd_all_num", 0);
    if (!AllocateDiskTable(count)) {
        Ptltrprintf("[%s] hdd_exec_go Alloc Error.(size= %d byte)\n", caller,
                    TableBytes<HddExec>(count));
        Ptltrprintf("[%s] Error End.\n", caller);
        return -1;
    }
    int result = 0;
    for (int i = 0; i < BoundedCount(count); ++i) {
        const int launched = launch(i);
        if (launched != 0) result = launched;
    }
    Ptltrprintf("[%s] End.\n", caller);
    return result;
}

int EnterDisk(const ProfileReader& schedule, const char* section, int number) {
    HddExec& entry = hdd_exec_tbl[hdd_exec_use];
    entry.device_name.Assign(DeviceValue(schedule, section, "device_name", "NO DATA").view());
    entry.schedule_index = number;
    ++hdd_exec_use;
    hdd_check_time(1, 0, hdd_exec_use - 1);
    return hdd_exec_use - 1;
}

}  // namespace patrol
