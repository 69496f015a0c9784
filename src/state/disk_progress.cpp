#include "state/disk_progress.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "base/file.h"
#include "msg/call_failure.h"
#include "state/schedule_file.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

constexpr uint64_t kWhole = 100;

// Returns part * 100 / whole, truncated, without a product that could wrap; at least 1 for a part
// of something. A whole of 0 makes any part hardly begun.
uint64_t Percent(uint64_t part, uint64_t whole) {
    if (part == 0) return 0;
    if (whole == 0) return 1;
    uint64_t percent = std::min(part / whole, UINT64_MAX / kWhole - 1) * kWhole;
    const uint64_t rest = part % whole;
    uint64_t sum = 0;  // of the rest taken a hundred times, below the whole
    for (uint64_t i = 0; i < kWhole; ++i) {
        const bool full = rest >= whole - sum;
        if (full) ++percent;
        sum = full ? rest - (whole - sum) : sum + rest;
    }
    return std::max<uint64_t>(percent, 1);
}

// Returns a percentage of `next` as far as only the end itself counts as 100.
int32_t Reached(uint64_t percent, bool at_end) {
    return static_cast<int32_t>(at_end ? kWhole : std::min(percent, kWhole - 1));
}

// Returns `number` as single precision has it. The events have always been computed so, and whoever
// draws them beside older ones would see a step.
uint64_t InSinglePrecision(uint64_t number) {
    const float rounded = static_cast<float>(number);
    return rounded < 0x1p64F ? static_cast<uint64_t>(rounded) : UINT64_MAX;
}

}  // namespace

Text<65> DiskProgress::Value(const char* section, const char* device) const {
    return profile_.Value<64>(section, device, kFirstAddress);
}

uint64_t DiskProgress::Number(const char* section, const char* device) const {
    return std::strtoull(Value(section, device).c_str(), nullptr, 0);
}

int32_t ProgressPercent(uint64_t next, uint64_t maximum) {
    return Reached(Percent(next, maximum), next != 0 && next == maximum);
}

int32_t EndPercent(uint64_t next, uint64_t maximum) {
    if (next == 0 || maximum == 0) return 0;
    return Reached(Percent(InSinglePrecision(next), InSinglePrecision(maximum)), next == maximum);
}

int32_t StartPercent(uint64_t start, uint64_t maximum) {
    return static_cast<int32_t>(std::min<uint64_t>(Percent(start, maximum), INT32_MAX));
}

// A copy without its file would have the next schedule start disks at addresses that nobody keeps
// any more.
void SaveProgressCopy(const char* path, const char* copy_path) {
    if (KeepProfileAs(path, copy_path)) return;
    const int error = errno;
    if (FileExists(path)) {
        ReportFileTrouble(__func__, "update", copy_path, "link", error);
        return;
    }
    const DataLock lock(copy_path);
    if (lock.held()) unlink(copy_path);
}

}  // namespace patrol
