// Local times.
#pragma once

#include <ctime>

#include "base/text.h"

namespace patrol {

// `time` in the zone of this process.
std::tm LocalTime(std::time_t time);

using IsoTime = Text<64>;

// `local` as "yyyy-mm-ddThh:mm:ss+hh:mm", in a zone that is `minutes` (0 or above) east of UTC, or
// west of it.
IsoTime ZonedTime(const std::tm& local, bool west, int minutes);

}  // namespace patrol
