#include "base/local_time.h"

namespace patrol {

std::tm LocalTime(std::time_t time) {
    std::tm local = {};
    localtime_r(&time, &local);
    return local;
}

IsoTime ZonedTime(const std::tm& local, bool west, int minutes) {
    constexpr int kMinutesAnHour = 60;
    IsoTime text;
    text.Format("%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, west ? '-' : '+',
                minutes / kMinutesAnHour, minutes % kMinutesAnHour);
    return text;
}

}  // namespace patrol
