#include "base/number.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace patrol {

int ClampToInt(int64_t value) {
    return static_cast<int>(std::clamp<int64_t>(value, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
}

int BoundedCount(int count) { return std::clamp(count, 0, kMaxCount); }

int ParseInt(const char* text, int base) { return ClampToInt(std::strtoll(text, nullptr, base)); }

// A number above the range stays the highest one instead of losing its upper half: a damaged
// address is then beyond the end of the disk and not somewhere on it.
uint32_t ParseUnsigned(const char* text, int base) {
    // strtoull would turn "-1" into its huge complement, so the sign is judged first.
    const long long number = std::strtoll(text, nullptr, base);
    return static_cast<uint32_t>(
        std::clamp<long long>(number, 0, std::numeric_limits<uint32_t>::max()));
}

}  // namespace patrol
