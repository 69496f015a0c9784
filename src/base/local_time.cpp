#include "base/local_time.h"

#include <cstdlib>

namespace patrol {
namespace {

constexpr int kHoursADay = 24;
constexpr int kMinutesAnHour = 60;

// Days before the first of the year count below 0.
int MinuteOfYear(const std::tm& time) {
    return (time.tm_yday * kHoursADay + time.tm_hour) * kMinutesAnHour + time.tm_min;
}

}  // namespace

std::tm LocalTime(std::time_t time) {
    std::tm local = {};
    localtime_r(&time, &local);
    return local;
}

IsoTime ZonedTime(const std::tm& local, bool west, int minutes) {
    IsoTime text;
    text.Format("%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, west ? '-' : '+',
                minutes / kMinutesAnHour, minutes % kMinutesAnHour);
    return text;
}

void date2iso8601(std::time_t time, IsoTime* text) {
    const int offset = get_timezone_offset();
    // The number is positive west of UTC, where the sign in the text is a minus.
    *text = ZonedTime(LocalTime(time), offset > 0, std::abs(offset));
}

int get_timezone_offset() {
    const std::time_t now = std::time(nullptr);
    std::tm local = LocalTime(now);
    std::tm utc = {};
    gmtime_r(&now, &utc);
    // Across New Year one of the days belongs to the year before.
    if (utc.tm_year < local.tm_year) utc.tm_yday = -1;
    if (utc.tm_year > local.tm_year) local.tm_yday = -1;
    return MinuteOfYear(utc) - MinuteOfYear(local);
}

}  // namespace patrol
