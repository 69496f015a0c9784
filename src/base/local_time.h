// Local times.
#pragma once

#include <ctime>

#include "base/text.h"

namespace patrol {

// Returns `time` in the zone of this process.
std::tm LocalTime(std::time_t time);

using IsoTime = Text<64>;

// Returns `local` as "yyyy-mm-ddThh:mm:ss+hh:mm", in a zone that is `minutes` (0 or above) east of
// UTC, or west of it.
IsoTime ZonedTime(const std::tm& local, bool west, int minutes);

// Stores `time` as ZonedTime has it, with the offset that the zone has now.
void date2iso8601(std::time_t time, IsoTime* text);

// Returns the minutes by which UTC is ahead of local time now; the seconds of either do not count.
int get_timezone_offset();

}  // namespace patrol
