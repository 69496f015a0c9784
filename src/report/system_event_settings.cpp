// Settings for the system events, and their times.

#include "report/system_event_settings.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/number.h"
#include "report/system_event.h"

namespace patrol {

SystemEventSettings event_settings;

namespace {

constexpr int kLineSize = 99;

// Takes "key=N" or "key = N" at the start of `line`.
void TakeNumber(const char* line, const char* key, int* value) {
    const size_t length = std::strlen(key);
    if (std::strncmp(line, key, length) != 0) return;
    const char* at = line + length;
    at += std::strspn(at, " \t");
    if (*at != '=') return;
    char* end = nullptr;
    const long long number = std::strtoll(at + 1, &end, 10);
    if (end != at + 1) *value = ClampToInt(number);
}

}  // namespace

int check_config_file() {
    event_settings = SystemEventSettings();
    const char* directory = std::getenv("KVX_config");
    if (directory == nullptr) return -1;
    const Stream file = OpenForReading((std::string(directory) + "/common.ini").c_str());
    if (file == nullptr) return -1;
    char line[kLineSize];
    bool inside = false;
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (line[0] == '[') inside = std::strncmp(line, "[sdb]", 5) == 0;
        if (!inside) continue;
        TakeNumber(line, "enable", &event_settings.enable);
        TakeNumber(line, "facility", &event_settings.facility);
    }
    return 0;
}

void date2iso8601(std::time_t time, IsoTime* text) {
    std::tm local = {};
    localtime_r(&time, &local);
    const int offset = get_timezone_offset();
    const int magnitude = std::abs(offset);
    text->Format("%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, offset <= 0 ? '+' : '-',
                 magnitude / 60, magnitude % 60);
}

int get_timezone_offset() {
    constexpr int kHours = 24;
    constexpr int kMinutes = 60;
    const std::time_t now = std::time(nullptr);
    std::tm utc = {};
    std::tm local = {};
    gmtime_r(&now, &utc);
    localtime_r(&now, &local);
    // Across New Year one of the days belongs to the year before.
    if (utc.tm_year < local.tm_year) utc.tm_yday = -1;
    if (utc.tm_year > local.tm_year) local.tm_yday = -1;
    return utc.tm_min - local.tm_min + (utc.tm_yday * kHours + utc.tm_hour) * kMinutes -
           (local.tm_yday * kHours + local.tm_hour) * kMinutes;
}

}  // namespace patrol
