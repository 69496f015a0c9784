#include "report/system_event_settings.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/number.h"
#include "base/text.h"

namespace patrol {
namespace {

constexpr int kLineSize = 99;  // longer lines count as several

// Takes "key=N" or "key = N" at the start of `line`. Not a profile: those have no blank before the
// "=".
void TakeNumber(const char* line, const char* key, int* value) {
    if (!StartsWith(line, key)) return;
    const char* at = line + std::strlen(key);
    at += std::strspn(at, " \t");
    if (*at != '=') return;
    char* end = nullptr;
    const long long number = std::strtoll(at + 1, &end, 10);
    if (end != at + 1) *value = ClampToInt(number);
}

}  // namespace

int check_config_file(SystemEventSettings* settings) {
    *settings = SystemEventSettings();
    const char* directory = std::getenv("KVX_config");
    if (directory == nullptr) return -1;
    const Stream file = OpenForReading((std::string(directory) + "/common.ini").c_str());
    if (file == nullptr) return -1;
    char line[kLineSize];
    bool inside = false;
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (line[0] == '[') inside = StartsWith(line, "[sdb]");
        if (!inside) continue;
        TakeNumber(line, "enable", &settings->enable);
        TakeNumber(line, "facility", &settings->facility);
    }
    return 0;
}

}  // namespace patrol
