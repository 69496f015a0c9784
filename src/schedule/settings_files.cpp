#include "schedule/settings_files.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/file.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/settings.h"
#include "msg/trace.h"
#include "state/schedule_file.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr int kMinTimeout = 5;
constexpr int kMaxTimeout = 50;

enum class Form { kSwitch, kSwitchEitherCase, kTestName, kTimeout, kNumber };

// One setting: the section that names it, in brackets in the file, and where its value goes.
struct Setting {
    const char* section;
    Form form;
    int* number;
    TestName* name = nullptr;
    const char* param_section = nullptr;  // of the test parameter file, for a test name
    const char* default_name = nullptr;
};

constexpr Setting kPatrolSettings[] = {
    {"CPUDIAG_EXE", Form::kSwitch, &f_cpu_exe},
    {"CPUDIAG_TEST", Form::kTestName, nullptr, &cpu_test_name, "CPUDIAG_PARAM",
     "Instruction+Register"},
    {"CPUDIAG_TIMEOUT", Form::kTimeout, &cpu_timeout_data},
    {"MEMDIAG_EXE", Form::kSwitch, &f_mem_exe},
    {"MEMDIAG_TEST", Form::kTestName, nullptr, &mem_test_name, "MEMDIAG_PARAM", "BMOVE"},
    {"MEMDIAG_TIMEOUT", Form::kTimeout, &mem_timeout_data},
    {"HDDDIAG_EXE", Form::kSwitch, &f_hdd_exe},
    {"HDDDIAG_TEST", Form::kTestName, nullptr, &hdd_test_name, "HDDDIAG_PARAM", "sector"},
    {"HDDDIAG_TIMEOUT", Form::kTimeout, &hdd_timeout_data},
};

constexpr Setting kPadiagSettings[] = {
    {"cpu", Form::kSwitchEitherCase, &f_padiag_cpu},
    {"mem", Form::kSwitchEitherCase, &f_padiag_mem},
    {"hdd", Form::kSwitchEitherCase, &f_padiag_hdd},
    {"level", Form::kNumber, &padiag_level},
    {"time", Form::kNumber, &padiag_time},
};

void StoreTestName(const Setting& setting, const char* name) {
    setting.name->Assign(name);
    WritePrivateProfileString(setting.param_section, "tp", name, para_path.c_str());
}

// `caller` is the routine that the value is traced under.
void TakeValue(const char* caller, const Setting& setting, const char* line) {
    switch (setting.form) {
        case Form::kSwitch:
            *setting.number = StartsWith(line, "ON") ? 1 : 0;
            Ptltrprintf("[%s] %s = %d ( 0->OFF, 1->ON).\n", caller, setting.section,
                        *setting.number);
            break;
        case Form::kSwitchEitherCase:
            *setting.number = StartsWith(line, "on") || StartsWith(line, "ON") ? 1 : 0;
            Ptltrprintf("[%s] %s = %d ( 0->off, 1->on).\n", caller, setting.section,
                        *setting.number);
            break;
        case Form::kTestName:
            StoreTestName(setting, line);
            Ptltrprintf("[%s] %s = %s.\n", caller, setting.section, setting.name->c_str());
            break;
        case Form::kTimeout:
            *setting.number = std::clamp(ParseInt(line, 10), kMinTimeout, kMaxTimeout);
            Ptltrprintf("[%s] %s = %d.\n", caller, setting.section, *setting.number);
            break;
        case Form::kNumber:
            *setting.number = ParseInt(line, 10);
            Ptltrprintf("[%s] %s = %d.\n", caller, setting.section, *setting.number);
            break;
    }
}

template <size_t N>
const Setting* FindSection(const Setting (&settings)[N], std::string_view line) {
    for (const Setting& setting : settings) {
        const std::string_view name = setting.section;
        if (StartsWith(line, "[") && StartsWith(line.substr(1), name) &&
            StartsWith(line.substr(1 + name.size()), "]")) {
            return &setting;
        }
    }
    return nullptr;
}

template <size_t N>
void ReadSettings(const char* caller, const Setting (&settings)[N], FILE* file) {
    char line[256];
    const Setting* current = nullptr;
    while (std::fgets(line, sizeof line, file) != nullptr) {
        StrNrDelete(line);
        if (line[0] == '#' || line[0] == '\0') continue;
        const Setting* section = FindSection(settings, line);
        if (section == nullptr && current != nullptr) TakeValue(caller, *current, line);
        current = section;
    }
}

// Opens a settings file; traces that defaults will be used where that fails.
Stream OpenSettings(const char* caller, const Path& path) {
    Stream file = OpenForReading(path.c_str());
    if (file == nullptr) {
        Ptltrprintf("[%s] File Open Failed.( %s )\n", caller, path.c_str());
        Ptltrprintf("[%s] Default Value Set.\n", caller);
    }
    return file;
}

void SetPatrolDefaults() {
    cpu_timeout_data = mem_timeout_data = hdd_timeout_data = kDefaultTimeout;
    for (const Setting& setting : kPatrolSettings) {
        if (setting.form == Form::kTestName) StoreTestName(setting, setting.default_name);
    }
}

}  // namespace

void ReadEnvIni() {
    Ptltrprintf("[%s] Start.\n", __func__);
    for (TestName* name : {&cpu_test_name, &mem_test_name, &hdd_test_name}) name->Clear();
    const Stream file = OpenSettings(__func__, env_path);
    if (file == nullptr) {
        SetPatrolDefaults();
        Ptltrprintf("[%s] Warning End.\n", __func__);
        return;
    }
    ReadSettings(__func__, kPatrolSettings, file.get());
    hdd_max_data = GetPrivateProfileInt("HDDDIAG_PARAM", "max", kDefaultHddMax, para_path.c_str());
    Ptltrprintf("[%s] End.\n", __func__);
}

void ReadPadiagIni() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const Stream file = OpenSettings(__func__, env_path2);
    if (file == nullptr) {
        f_padiag_cpu = f_padiag_mem = f_padiag_hdd = 0;
        padiag_level = kDefaultLevel;
        padiag_time = kDefaultTimeLimit;
        Ptltrprintf("[%s] Warning End.\n", __func__);
        return;
    }
    ReadSettings(__func__, kPadiagSettings, file.get());
    Ptltrprintf("[%s] End.\n", __func__);
}

void StrNrDelete(char* text) {
    if (text == nullptr) return;
    for (const char line_end : {'\n', '\r'}) {
        char* last = std::strrchr(text, line_end);
        if (last != nullptr) *last = '\0';
    }
}

}  // namespace patrol
