#include "state/disk_progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "base/file.h"
#include "state/schedule_file.h"
#include "sys/profile_writer.h"

namespace patrol {

Text<65> DiskProgress::Value(const char* section, const char* device) const {
    return profile_.Value<64>(section, device, kFirstAddress);
}

uint64_t DiskProgress::Number(const char* section, const char* device) const {
    return std::strtoull(Value(section, device).c_str(), nullptr, 0);
}

int32_t ProgressPercent(uint64_t next, uint64_t maximum) {
    if (next == 0) return 0;
    if (maximum == 0) return 1;
    if (next == maximum) return 100;
    const float ratio = static_cast<float>(next) / static_cast<float>(maximum) * 100.0F;
    return static_cast<int32_t>(std::clamp(ratio, 1.0F, 99.0F));
}

int32_t EndPercent(uint64_t next, uint64_t maximum) {
    return maximum == 0 ? 0 : ProgressPercent(next, maximum);
}

int32_t StartPercent(uint64_t start, uint64_t maximum) {
    if (start == 0) return 0;
    if (maximum == 0) return 1;
    const double percent = static_cast<double>(start) / static_cast<double>(maximum) * 100;
    return static_cast<int32_t>(std::clamp(percent, 1.0, 2147483647.0));
}

void SaveProgressCopy(const char* path, const char* copy_path) {
    if (KeepProfileAs(path, copy_path) || FileExists(path)) return;
    const DataLock lock(copy_path);
    if (lock.held()) unlink(copy_path);
}

}  // namespace patrol
