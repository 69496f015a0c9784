#include "model/times.h"

#include <cstdlib>

#include "base/local_time.h"

namespace patrolctl {
namespace {

struct Unit {
    char letter;
    long long seconds;
    const char* name;
};

constexpr Unit kUnits[] = {
    {'w', 604800, nullptr}, {'d', 86400, "day"}, {'h', 3600, "hour"},
    {'m', 60, "minute"},    {'s', 1, "second"},
};

bool IsDigits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The seconds that an offset such as "+01:00", "-0730" or "Z" is east of UTC.
std::optional<long> ParseOffset(std::string text) {
    if (text == "Z") return 0;
    const bool west = text[0] == '-';
    if (!west && text[0] != '+') return std::nullopt;
    text.erase(0, 1);
    if (text.size() == 5 && text[2] == ':') text.erase(2, 1);
    if (text.size() == 2) text += "00";
    if (text.size() != 4 || !IsDigits(text)) return std::nullopt;
    const long hundreds = std::strtol(text.c_str(), nullptr, 10);
    const long seconds = hundreds / 100 * 3600 + hundreds % 100 * 60;
    return west ? -seconds : seconds;
}

}  // namespace

std::string IsoTime(std::time_t time) {
    const std::tm local = patrol::LocalTime(time);
    char text[64];
    std::string iso(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local));
    return iso.insert(iso.size() - 2, ":");
}

std::string PlainTime(std::time_t time) {
    const std::tm local = patrol::LocalTime(time);
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local)};
}

std::string FileStamp(std::time_t time) {
    const std::tm local = patrol::LocalTime(time);
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%S", &local)};
}

std::string Span(long long seconds) {
    for (const Unit& unit : kUnits) {
        // Two of a unit say more than one of the next.
        if (unit.name == nullptr || (seconds < 2 * unit.seconds && unit.seconds > 1)) continue;
        const long long count = seconds / unit.seconds;
        return std::to_string(count) + " " + unit.name + (count == 1 ? "" : "s");
    }
    return "0 seconds";
}

std::optional<std::time_t> ParseIsoTime(std::string text) {
    constexpr size_t kSecondsEnd = sizeof "20261121T221507" - 1;
    // A time alone is one of today.
    const size_t hour = text[0] == 'T' ? 1 : 0;
    if (text.find(':') == hour + 2) {
        text = IsoTime(std::time(nullptr)).substr(0, sizeof "2026-11-21T" - 1) + text.substr(hour);
    }
    // Results have no parts of a second.
    const size_t point = text.find_first_of(".,", kSecondsEnd);
    if (point != std::string::npos) {
        text.erase(point, text.find_first_not_of("0123456789", point + 1) - point);
    }
    // The year has four digits.
    const bool basic = IsDigits(text.substr(0, 8));
    if (!basic && (!IsDigits(text.substr(0, 4)) || text.find('-') != 4)) return std::nullopt;
    for (const char* format :
         {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M",
          "%Y-%m-%dT%H", "%Y-%m-%d", "%Y%m%dT%H%M%S", "%Y%m%dT%H%M", "%Y%m%d"}) {
        std::tm time = {};
        const char* end = strptime(text.c_str(), format, &time);
        if (end == nullptr) continue;
        const int day = time.tm_mday;
        time.tm_isdst = -1;
        const std::optional<long> offset = *end == '\0' ? 0 : ParseOffset(end);
        if (!offset) continue;
        const std::time_t seconds = *end == '\0' ? std::mktime(&time) : timegm(&time) - *offset;
        // No month has a day that lands in the next one.
        if (time.tm_mday == day) return seconds;
    }
    return std::nullopt;
}

std::optional<long long> ParseSpan(const std::string& text) {
    const std::string number = text.substr(0, text.size() - (text.empty() ? 0 : 1));
    if (!IsDigits(number) || number.size() > 9) return std::nullopt;
    for (const Unit& unit : kUnits) {
        if (text.back() == unit.letter)
            return std::strtoll(number.c_str(), nullptr, 10) * unit.seconds;
    }
    return std::nullopt;
}

}  // namespace patrolctl
