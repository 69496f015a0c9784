#include "state/schedule_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "base/file.h"
#include "base/kinds.h"
#include "base/number.h"
#include "msg/trace.h"
#include "sys/deferred_writes.h"
#include "sys/profile_lines.h"

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

Place LookAtSchedule(const char* path) {
    struct stat status = {};
    if (stat(path, &status) != 0) {
        if (IsPassing(errno)) return Place::kThere;
        // A link that leads back to itself stands there all the same.
        return errno == ENOENT || errno == ENOTDIR ? Place::kMissing : Place::kUnusable;
    }
    if (!S_ISREG(status.st_mode)) return Place::kUnusable;
    std::string bytes;
    // What cannot be read for the moment is taken for a Schedule file: a new one in its place would
    // cost every address.
    if (!LoadProfile(path, &bytes)) return errno == EFBIG ? Place::kTooLarge : Place::kThere;
    std::string_view rest = bytes;
    for (std::string line; rf_filegets(&line, bytes.size() + 1, &rest);) {
        if (StartsWith(line, "[")) return Place::kThere;
    }
    return Place::kMissing;
}

Flag ReadFlag(const ProfileReader& profile, const char* section, const char* key) {
    const Text<65> value = profile.Value<64>(section, key, "OFF");
    if (value.view() == "OFF") return Flag::kOff;
    return StartsWith(value.view(), "OFF") ? Flag::kBeginsOff : Flag::kOn;
}

Text<65> WaitedName(std::string_view device) {
    return Text<65>(device.size() > 64 ? device.substr(0, 63) : device);
}

int FindDisk(const ProfileReader& schedule, int number, const char* device) {
    const Text<65> wanted = WaitedName(device);
    const auto is_called_so = [&](int disk) {
        const auto name = schedule.Value<64>(DiskSection(disk).c_str(), kDeviceKey, kNoDevice);
        return name.view() == wanted.view();
    };
    // This is nearly always so: only a configuration change under test gives disks other numbers.
    if (is_called_so(number)) return number;
    const int count = BoundedCount(schedule.Int(kTestSection, kDiskCountKey, 0));
    for (int i = 0; i < count; ++i) {
        if (is_called_so(i)) return i;
    }
    return -1;
}

// The section is looked for when the write is made, because until then another run may renumber the
// disks.
void SaveDiskAddress(const char* path, int number, const char* device, uint32_t address,
                     int digits) {
    Text<32> value;
    value.Format("0x%0*x", digits, address);
    const Text<65> name = WaitedName(device);
    DeferProfileWrite(path, [=](const ProfileReader& now, ProfileWriter* writer) {
        const int disk = FindDisk(now, number, name.c_str());
        if (disk < 0) {
            Ptltrprintf("[%s] No section of %s any more. address=%s is dropped.\n",
                        "SaveDiskAddress", name.c_str(), value.c_str());
            return;
        }
        writer->Write(DiskSection(disk).c_str(), kAddressKey, value.c_str());
    });
}

}  // namespace patrol
