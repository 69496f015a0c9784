#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <set>

#include "base/file.h"
#include "base/number.h"
#include "base/paths.h"
#include "doctor/checks.h"
#include "model/files.h"
#include "msg/catalogue.h"
#include "schedule/settings_files.h"
#include "state/schedule_file.h"

namespace patrolctl {
namespace {

using patrol::Setting;
using patrol::SettingForm;
using patrol::SettingLine;

constexpr size_t kMaxSettings = 16 << 20;

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// Whether a text is a decimal number and nothing else but blanks around it.
bool IsNumber(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r";
    const size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) return false;
    text = text.substr(first, text.find_last_not_of(kBlank) - first + 1);
    if (text[0] == '-' || text[0] == '+') text.remove_prefix(1);
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A settings file whose values stand alone on the line behind their section.
class SettingsFile {
 public:
    SettingsFile(const char* path, patrol::SettingList settings, Findings* findings)
        : path_(path), settings_(settings), findings_(findings) {}

    // False when there is no such file.
    bool Read() {
        findings_->About(path_);
        const patrol::Stream file = patrol::OpenForReading(path_.c_str());
        if (file == nullptr) return false;
        patrol::ScanSettings(settings_, file.get(),
                             [this](const SettingLine& line) { Take(line); });
        ExpectValue();
        for (const Setting& setting : settings_) {
            if (opened_.count(setting.section) == 0) {
                findings_->Warn(0, "there is no section [" + std::string(setting.section) + "]");
            }
        }
        return true;
    }

    // The number of a setting; none where the file has none.
    int Number(const std::string& section) const {
        const auto found = numbers_.find(section);
        return found != numbers_.end() ? found->second : 0;
    }
    // The line of its value.
    int Line(const std::string& section) const {
        const auto found = lines_.find(section);
        return found != lines_.end() ? found->second : 0;
    }

 private:
    void Take(const SettingLine& line) {
        if (line.value_of != nullptr) {
            open_ = nullptr;
            TakeValue(line);
            return;
        }
        ExpectValue();
        open_ = line.opens;
        open_line_ = line.number;
        if (line.opens != nullptr) {
            if (!opened_.insert(line.opens->section).second) {
                findings_->Warn(line.number, "[" + std::string(line.opens->section) +
                                                 "] stands here again; the last value counts");
            }
        } else if (line.text[0] == '[') {
            findings_->Warn(line.number, Quoted(line.text) + " is no section that is known");
        } else {
            findings_->Warn(line.number, Quoted(line.text) + " is passed over: no section is open");
        }
    }

    void ExpectValue() {
        if (open_ == nullptr) return;
        findings_->Warn(open_line_, "[" + std::string(open_->section) + "] has no value");
        open_ = nullptr;
    }

    void TakeValue(const SettingLine& line) {
        const Setting& setting = *line.value_of;
        const std::string name = setting.section;
        lines_[name] = line.number;
        if (line.text[0] == '[') {
            findings_->Warn(line.number,
                            Quoted(line.text) + " is taken as the value of [" + name + "]");
        }
        if (setting.form == SettingForm::kTestName) return;
        const int number = numbers_[name] = patrol::SettingNumber(setting.form, line.text);
        const std::string text = line.text;
        if (setting.form == SettingForm::kNumber || setting.form == SettingForm::kTimeout) {
            if (!IsNumber(text) || patrol::ParseInt(line.text, 10) != number) {
                findings_->Warn(line.number, "[" + name + "] " + Quoted(text) + " counts as " +
                                                 std::to_string(number));
            }
        } else if (number == 0 && text != "OFF" && text != "off") {
            findings_->Warn(line.number, "[" + name + "] " + Quoted(text) + " counts as off");
        }
    }

    std::string path_;
    patrol::SettingList settings_;
    Findings* findings_;
    const Setting* open_ = nullptr;
    int open_line_ = 0;
    std::set<std::string> opened_;
    std::map<std::string, int> numbers_;
    std::map<std::string, int> lines_;
};

// The parameters that the command lines of test programs are made of.
struct Parameter {
    const char* section;
    const char* key;
    bool number = false;
};

constexpr Parameter kPatrolParameters[] = {
    {"CPUDIAG_PARAM", "dev"},         {"CPUDIAG_PARAM", "lv", true},
    {"CPUDIAG_PARAM", "tp"},          {"CPUDIAG_PARAM", "log", true},
    {"CPUDIAG_PARAM", "gen", true},   {"CPUDIAG_PARAM", "error"},
    {"CPUDIAG_PARAM", "dbg_modid"},   {"CPUDIAG_PARAM", "dbg_point"},
    {"MEMDIAG_PARAM", "dev"},         {"MEMDIAG_PARAM", "lv", true},
    {"MEMDIAG_PARAM", "tp"},          {"MEMDIAG_PARAM", "tp_error"},
    {"MEMDIAG_PARAM", "log", true},   {"MEMDIAG_PARAM", "gen", true},
    {"MEMDIAG_PARAM", "error"},       {"HDDDIAG_PARAM", "lv", true},
    {"HDDDIAG_PARAM", "tp"},          {"HDDDIAG_PARAM", "log", true},
    {"HDDDIAG_PARAM", "gen", true},   {"HDDDIAG_PARAM", "retry", true},
    {"HDDDIAG_PARAM", "max", true},   {"HDDDIAG_PARAM", "error"},
    {"HDD_DIAGPARAM", "param_error"},
};

// A section whose name ends in "_LEVEL" stands for the three that have a level's number behind it.
constexpr Parameter kPadiagParameters[] = {
    {"CPUDIAG_PARAM_LEVEL", "dev"},
    {"CPUDIAG_PARAM_LEVEL", "tp"},
    {"CPUDIAG_PARAM_LEVEL", "waitusec", true},
    {"CPUDIAG_PARAM_LEVEL", "error"},
    {"CPUDIAG_PARAM", "dbg_modid"},
    {"CPUDIAG_PARAM", "dbg_point"},
    {"MEMDIAG_PARAM_LEVEL", "dev"},
    {"MEMDIAG_PARAM_LEVEL", "tp"},
    {"MEMDIAG_PARAM_LEVEL", "tp_error"},
    {"MEMDIAG_PARAM_LEVEL", "size"},
    {"MEMDIAG_PARAM_LEVEL", "data"},
    {"MEMDIAG_PARAM_LEVEL", "waitsec", true},
    {"MEMDIAG_PARAM_LEVEL", "error"},
    {"HDDDIAG_PARAM_LEVEL", "tp"},
    {"HDDDIAG_PARAM_LEVEL", "wide", true},
    {"HDDDIAG_PARAM_LEVEL", "count", true},
    {"HDDDIAG_PARAM_LEVEL", "sc"},
    {"HDDDIAG_PARAM_LEVEL", "error"},
    {"HDDDIAG_PARAM_LEVEL", "param_error"},
};

// The section without the number of its level, where it is one of a level.
std::string WithoutLevel(const std::string& section) {
    constexpr std::string_view kLevel = "_LEVEL";
    const size_t at = section.size() - std::min<size_t>(section.size(), 1);
    const bool level =
        EndsWith(section.substr(0, at), kLevel) && section[at] >= '1' && section[at] <= '3';
    return level ? section.substr(0, at) : section;
}

// Judges a file of sections and KEY=VALUE lines.
template <size_t N>
void CheckParameters(const char* path, const Parameter (&known)[N], const char* without,
                     Findings* findings) {
    findings->About(path);
    const FileText file = ReadText(path, kMaxSettings);
    if (!file.Fault().empty()) {
        findings->Warn(0, file.missing() ? std::string("is missing: ") + without : file.Fault());
        if (file.missing()) return;
    }
    const auto same = [](const std::string& section, const Parameter& row) {
        return WithoutLevel(section) == row.section;
    };
    std::string section;
    bool section_known = false;
    ForEachLine(file.text, [&](std::string_view line, size_t number) {
        const int at = static_cast<int>(number);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.empty() || line[0] == ';' || line[0] == '#') return;
        if (line[0] == '[') {
            section = line.substr(1, line.find(']') - 1);
            section_known = std::any_of(std::begin(known), std::end(known),
                                        [&](const Parameter& row) { return same(section, row); });
            if (!section_known) findings->Warn(at, Quoted(line) + " is no section that is known");
            return;
        }
        if (!section_known) return;
        const std::string_view key = line.substr(0, line.find('='));
        const Parameter* row = std::find_if(
            std::begin(known), std::end(known),
            [&](const Parameter& other) { return same(section, other) && key == other.key; });
        if (row == std::end(known)) {
            findings->Warn(at, Quoted(key) + " is no key that is known in [" + section + "]");
        } else if (key.size() == line.size()) {
            findings->Warn(at, Quoted(key) + " has no value");
        } else if (const auto value = line.substr(key.size() + 1);
                   row->number && !IsNumber(value)) {
            findings->Warn(at, std::string(key) + "=" + std::string(value) + " is no number");
        } else if (key == "error" && !BeginsWith(value, "OFF")) {
            findings->Warn(at, "error=" + std::string(value) + " in [" + section +
                                   "]: the test is made to fail");
        }
    });
}

void SayEnabled(const SettingsFile& settings, const char* section, const char* what,
                Findings* findings) {
    const bool on = settings.Number(section) == 1;
    findings->Note(settings.Line(section), std::string(what) + (on ? " tested" : " not tested"));
}

Enabled CheckPatrolSettings(Findings* findings) {
    SettingsFile settings(patrol::env_path.c_str(), patrol::PatrolSettings(), findings);
    if (!settings.Read()) {
        findings->Warn(0, "is missing: passes test nothing");
        return {};
    }
    SayEnabled(settings, "CPUDIAG_EXE", "processors are", findings);
    SayEnabled(settings, "MEMDIAG_EXE", "memory is", findings);
    SayEnabled(settings, "HDDDIAG_EXE", "disks are", findings);
    return {settings.Number("CPUDIAG_EXE") == 1, settings.Number("MEMDIAG_EXE") == 1,
            settings.Number("HDDDIAG_EXE") == 1};
}

void CheckPadiagSettings(Findings* findings) {
    SettingsFile settings(patrol::env_path2.c_str(), patrol::PadiagSettings(), findings);
    if (!settings.Read()) {
        findings->Note(0, "is missing: nothing is asked for");
        return;
    }
    const int level = settings.Number("level");
    if (level < 1 || level > 3) {
        findings->Warn(settings.Line("level"), "there is no level " + std::to_string(level) +
                                                   ": no test is started on request");
    }
    if (settings.Number("time") < 0) {
        findings->Warn(settings.Line("time"), "the test programs refuse a time below 0");
    }
}

void CheckDiskLimit(Findings* findings) {
    findings->About(patrol::para_path.c_str());
    const patrol::ProfileReader parameters(patrol::para_path.c_str());
    const int limit = parameters.Int("HDDDIAG_PARAM", "max", patrol::kDefaultHddMax);
    if (limit <= 0) findings->Warn(0, "max=" + std::to_string(limit) + ": no disk falls due");
}

// "common.ini" switches the announcements of on-request tests on.
void CheckCommon(const Places& places, Findings* findings) {
    if (places.config.empty()) return;
    const std::string path = places.config + "/common.ini";
    findings->About(path);
    const FileText file = ReadText(path, kMaxSettings);
    if (file.missing()) {
        findings->Note(0, "is missing: on-request tests are not announced to the system log");
    } else if (!file.Fault().empty()) {
        findings->Warn(0, file.Fault());
    }
}

}  // namespace

Enabled CheckSettings(const Places& places, Findings* findings) {
    const Enabled enabled = CheckPatrolSettings(findings);
    CheckParameters(patrol::para_path.c_str(), kPatrolParameters,
                    "test names are kept nowhere, and the defaults count", findings);
    CheckDiskLimit(findings);
    CheckPadiagSettings(findings);
    CheckParameters(patrol::para_path2.c_str(), kPadiagParameters, "the defaults count", findings);
    CheckCommon(places, findings);
    return enabled;
}

void CheckCatalogue(const Places& places, Findings* findings) {
    // The messages that the controller takes from there.
    static constexpr const char* kNeeded[] = {"E3823", "E3825", "E3895", "E3899", "W2824", "W2896"};
    const std::string path = places.data + "/pat_msge.txt";
    findings->About(path);
    const FileText file = ReadText(path, kMaxSettings);
    if (!file.Fault().empty()) {
        findings->Fail(0, file.missing() ? "is missing: nothing runs without it" : file.Fault());
        if (file.missing()) return;
    }
    std::map<std::string, int> numbers;
    ForEachLine(file.text, [&](std::string_view line, size_t number) {
        const int at = static_cast<int>(number);
        patrol::CatalogueEntry entry;
        if (!patrol::TakeCatalogueLine(line, &entry)) return;
        const std::string name(entry.number.view());
        if (numbers.size() == patrol::kCatalogueSize) {
            findings->Warn(at, name + " is not read: there are more than " +
                                   std::to_string(patrol::kCatalogueSize) + " messages");
            return;
        }
        if (!numbers.emplace(name, at).second) {
            findings->Warn(at, name + " stands here again; the first one counts");
        } else if (entry.format.empty()) {
            findings->Warn(at, name + " has no text that ends with \";\"");
        }
    });
    for (const char* name : kNeeded) {
        if (numbers.count(name) == 0) findings->Warn(0, std::string(name) + " is missing");
    }
}

}  // namespace patrolctl
