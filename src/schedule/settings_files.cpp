#include "schedule/settings_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/file.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/settings.h"
#include "msg/call_failure.h"
#include "msg/trace.h"
#include "state/schedule_file.h"
#include "sys/profile.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

constexpr int kMinTimeout = 5;
constexpr int kMaxTimeout = 50;

constexpr Setting kPatrolSettings[] = {
    {"CPUDIAG_EXE", SettingForm::kSwitch, &f_cpu_exe},
    {"CPUDIAG_TEST", SettingForm::kTestName, nullptr, &cpu_test_name, "CPUDIAG_PARAM",
     "Instruction+Register"},
    {"CPUDIAG_TIMEOUT", SettingForm::kTimeout, &cpu_timeout_data},
    {"MEMDIAG_EXE", SettingForm::kSwitch, &f_mem_exe},
    {"MEMDIAG_TEST", SettingForm::kTestName, nullptr, &mem_test_name, "MEMDIAG_PARAM", "BMOVE"},
    {"MEMDIAG_TIMEOUT", SettingForm::kTimeout, &mem_timeout_data},
    {"HDDDIAG_EXE", SettingForm::kSwitch, &f_hdd_exe},
    {"HDDDIAG_TEST", SettingForm::kTestName, nullptr, &hdd_test_name, "HDDDIAG_PARAM", "sector"},
    {"HDDDIAG_TIMEOUT", SettingForm::kTimeout, &hdd_timeout_data},
};

constexpr Setting kPadiagSettings[] = {
    {"cpu", SettingForm::kSwitchEitherCase, &f_padiag_cpu},
    {"mem", SettingForm::kSwitchEitherCase, &f_padiag_mem},
    {"hdd", SettingForm::kSwitchEitherCase, &f_padiag_hdd},
    {"level", SettingForm::kNumber, &padiag_level},
    {"time", SettingForm::kNumber, &padiag_time},
};

// The launchers know the test parameters alone, so the name has to stand among them.
void StoreTestName(const Setting& setting, const char* name, ProfileWriter* parameters) {
    setting.name->Assign(name);
    parameters->Write(setting.param_section, "tp", name);
}

// Stores a value. `caller` is the routine that it is traced under.
void TakeValue(const char* caller, const Setting& setting, const char* line,
               ProfileWriter* parameters) {
    if (setting.form == SettingForm::kTestName) {
        StoreTestName(setting, line, parameters);
        Ptltrprintf("[%s] %s = %s.\n", caller, setting.section, setting.name->c_str());
        return;
    }
    *setting.number = SettingNumber(setting.form, line);
    const char* meaning = "";
    if (setting.form == SettingForm::kSwitch) meaning = " ( 0->OFF, 1->ON)";
    if (setting.form == SettingForm::kSwitchEitherCase) meaning = " ( 0->off, 1->on)";
    Ptltrprintf("[%s] %s = %d%s.\n", caller, setting.section, *setting.number, meaning);
}

// Returns the setting whose section the line opens; null for any other line. What follows the
// closing bracket does not count.
const Setting* FindSection(SettingList settings, std::string_view line) {
    for (const Setting& setting : settings) {
        const std::string_view name = setting.section;
        if (StartsWith(line, "[") && StartsWith(line.substr(1), name) &&
            StartsWith(line.substr(1 + name.size()), "]")) {
            return &setting;
        }
    }
    return nullptr;
}

void ReadSettings(const char* caller, SettingList settings, FILE* file, const char* path,
                  ProfileWriter* parameters = nullptr) {
    ScanSettings(settings, file, [&](const SettingLine& line) {
        if (line.value_of != nullptr) TakeValue(caller, *line.value_of, line.text, parameters);
    });
    // What was not read reads as switched off, which somebody has to know.
    if (std::ferror(file) != 0) ReportFileTrouble(caller, "read", path, "fgets", errno);
}

// Puts the test names in place. A parameter file that is missing is not made for them.
void SaveTestNames(const char* caller, ProfileWriter* parameters) {
    if (parameters->failure().error != ENOENT) parameters->SaveOrReport(caller);
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

// The switches have none: without settings they stay what they are, which is off in a fresh run.
void SetPatrolDefaults(ProfileWriter* parameters) {
    cpu_timeout_data = mem_timeout_data = hdd_timeout_data = kDefaultTimeout;
    for (const Setting& setting : kPatrolSettings) {
        if (setting.form == SettingForm::kTestName)
            StoreTestName(setting, setting.default_name, parameters);
    }
}

}  // namespace

SettingList PatrolSettings() { return {kPatrolSettings, std::size(kPatrolSettings)}; }

SettingList PadiagSettings() { return {kPadiagSettings, std::size(kPadiagSettings)}; }

void ScanSettings(SettingList settings, FILE* file,
                  const std::function<void(const SettingLine& line)>& take) {
    char text[256];
    int number = 1;
    const Setting* current = nullptr;
    while (std::fgets(text, sizeof text, file) != nullptr) {
        // A longer line comes in pieces.
        const bool ends = std::strchr(text, '\n') != nullptr;
        StrNrDelete(text);
        if (text[0] != '#' && text[0] != '\0') {
            const Setting* opens = FindSection(settings, text);
            take({number, text, opens, opens == nullptr ? current : nullptr});
            current = opens;
        }
        if (ends) ++number;
    }
}

int SettingNumber(SettingForm form, const char* text) {
    switch (form) {
        case SettingForm::kSwitch:
            return StartsWith(text, "ON") ? 1 : 0;
        case SettingForm::kSwitchEitherCase:
            return StartsWith(text, "on") || StartsWith(text, "ON") ? 1 : 0;
        case SettingForm::kTimeout:
            return std::clamp(ParseInt(text, 10), kMinTimeout, kMaxTimeout);
        default:
            return ParseInt(text, 10);
    }
}

void ReadEnvIni() {
    Ptltrprintf("[%s] Start.\n", __func__);
    for (TestName* name : {&cpu_test_name, &mem_test_name, &hdd_test_name}) name->Clear();
    const Stream file = OpenSettings(__func__, env_path);
    ProfileWriter parameters(para_path.c_str());
    if (file == nullptr) {
        SetPatrolDefaults(&parameters);
        SaveTestNames(__func__, &parameters);
        Ptltrprintf("[%s] Warning End.\n", __func__);
        return;
    }
    ReadSettings(__func__, PatrolSettings(), file.get(), env_path.c_str(), &parameters);
    SaveTestNames(__func__, &parameters);
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
    ReadSettings(__func__, PadiagSettings(), file.get(), env_path2.c_str());
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
