// Numbers that come as text from outside: never trapped, always clamped.
#pragma once

#include <cstdint>

namespace patrol {

// Highest count that is believed when it comes from a file. A damaged number above it would keep a
// loop busy for hours; no machine has so many disks.
inline constexpr int32_t kMaxCount = 65536;

// Returns `value` held within what an int can print.
int ClampToInt(int64_t value);

// Returns `count` from a file as a loop bound: below 0 is none, above kMaxCount is kMaxCount.
int BoundedCount(int count);

// Return the number at the start of `text` after blanks, in the given base (0: decimal, "0x",
// leading 0), clamped to the range of the result; 0 when there is none.
int ParseInt(const char* text, int base);
uint32_t ParseUnsigned(const char* text, int base);

}  // namespace patrol
