#include "state/schedule_file.h"

#include "base/kinds.h"
#include "sys/deferred_writes.h"

namespace patrol {
namespace {

constexpr ScheduleKeys kCpuKeys = {"CPU_SCHEDULE", "cpu_exe", "cpu_next_go", "cpu_timeout", "cpu"};
constexpr ScheduleKeys kMemKeys = {"MEM_SCHEDULE", "mem_exe", "mem_next_go", "mem_timeout", "mem"};
constexpr ScheduleKeys kHddKeys = {nullptr, "hdd_exe", "hdd_next_go", "hdd_timeout", "hdd"};

}  // namespace

const ScheduleKeys& KeysOf(int kind) {
    if (kind == kKindCpu) return kCpuKeys;
    return kind == kKindMemory ? kMemKeys : kHddKeys;
}

Text<32> DiskSection(int number) {
    Text<32> section;
    section.Format("HDD_SCHEDULE %d", number);
    return section;
}

Flag ReadFlag(const ProfileReader& profile, const char* section, const char* key) {
    const Text<65> value = profile.Value<64>(section, key, "OFF");
    if (value.view() == "OFF") return Flag::kOff;
    return value.view().substr(0, 3) == "OFF" ? Flag::kBeginsOff : Flag::kOn;
}

void SaveDiskAddress(const char* path, int number, uint32_t address, int digits) {
    Text<32> value;
    value.Format("0x%0*x", digits, address);
    DeferProfileWrite(DiskSection(number).c_str(), kAddressKey, value.c_str(), path);
}

}  // namespace patrol
