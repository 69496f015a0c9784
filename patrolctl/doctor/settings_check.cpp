#include <algorithm>
#include <climits>
#include <cstdlib>
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
#include "report/system_event_settings.h"
#include "schedule/settings_files.h"
#include "state/schedule_file.h"
#include "sys/profile.h"

namespace patrolctl {
namespace {

using patrol::Setting;
using patrol::SettingForm;
using patrol::SettingLine;

constexpr size_t kMaxSettings = 16 << 20;
// The most that the test programs take.
constexpr int kMaxLevel = 255;
constexpr int kMaxRetries = 100;
constexpr std::string_view kBlank = " \t\r";

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// Whether a line says nothing to the controller.
bool IsComment(std::string_view line) {
    line = Trimmed(line);
    return line.empty() || line[0] == ';' || line[0] == '#';
}

// Whether a text is a decimal number and nothing else but blanks around it.
bool IsNumber(std::string_view text) {
    text = Trimmed(text);
    if (text.empty()) return false;
    if (text[0] == '-' || text[0] == '+') text.remove_prefix(1);
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A command in the place of a test: its file is in the data directory.
void CheckExternal(std::string_view test, int line, Findings* findings) {
    constexpr std::string_view kMark = "ext:";
    if (!BeginsWith(test, kMark)) return;
    const std::string name = std::string(test.substr(kMark.size(), test.find(' ') - kMark.size()));
    std::string path(patrol::env_path.view());
    path.replace(path.rfind('/') + 1, std::string::npos, "ext_" + name + ".ini");
    const FileText file = ReadText(path, 0);
    if (file.error == 0) return;
    findings->Warn(line, Quoted(test) + " is skipped: " + path + " " +
                             (file.missing() ? "is missing" : file.Fault()));
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

    // The number of a setting, the text of its value, and the line that it stands in; nothing where
    // the file has none.
    int Number(const std::string& section) const { return Find(numbers_, section); }
    std::string Text(const std::string& section) const { return Find(texts_, section); }
    int Line(const std::string& section) const { return Find(lines_, section); }

 private:
    template <class Value>
    static Value Find(const std::map<std::string, Value>& values, const std::string& section) {
        const auto found = values.find(section);
        return found != values.end() ? found->second : Value();
    }

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
        texts_[name] = line.text;
        if (line.text[0] == '[') {
            findings_->Warn(line.number,
                            Quoted(line.text) + " is taken as the value of [" + name + "]");
        }
        if (setting.form == SettingForm::kTestName) {
            return CheckExternal(line.text, line.number, findings_);
        }
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
    std::map<std::string, std::string> texts_;
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

constexpr Parameter kNonTargetParameters[] = {
    {"NON_TARGETLIST", "number", true}, {"LIST", "vendor"}, {"LIST", "model"}};

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

// The section without its number, where it is one of a level or of a list.
std::string WithoutNumber(const std::string& section) {
    const size_t at = section.find_last_not_of("0123456789") + 1;
    const std::string name = section.substr(0, at), number = section.substr(at);
    const bool level = EndsWith(name, "_LEVEL") && number >= "1" && number <= "3";
    const bool numbered = (level && number.size() == 1) || (name == "LIST" && !number.empty());
    return numbered ? name : section;
}

// What becomes of a value that is no number, or not all of it.
std::string CountsAs(std::string_view value) {
    const std::string text(value);
    char* end = nullptr;
    std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str()) return " is no number: the default counts";
    return " counts as " + std::to_string(patrol::ParseInt(text.c_str(), 10));
}

// What a value that is understood does beyond being handed to a test program.
void JudgeValue(const std::string& section, std::string_view key, std::string_view value,
                bool is_number, int line, Findings* findings) {
    const std::string text = std::string(key) + "=" + std::string(value);
    if (key == "tp") CheckExternal(value, line, findings);
    if (key == "error" && !BeginsWith(value, "OFF")) {
        findings->Warn(line, text + " in [" + section + "]: the test is made to fail");
    }
    const int limit = patrol::ParseInt(std::string(value).c_str(), 10);
    const int most = key == "lv" ? kMaxLevel : key == "retry" ? kMaxRetries : INT_MAX;
    if (is_number && key != "max" && key != "number" && (limit < 0 || limit > most)) {
        findings->Warn(line, text + " in [" + section +
                                 "]: out of range, and the test programs skip their tests");
    }
    if (section != "HDDDIAG_PARAM" || key != "max") return;
    if (limit == 0) findings->Warn(line, text + ": no disk falls due");
    if (limit < 0) findings->Warn(line, text + ": a pass tests any number of disks");
    if (limit > 0) findings->Note(line, text + ": a pass tests at most so many disks");
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
        return WithoutNumber(section) == row.section;
    };
    std::string section;
    bool section_known = false;
    ForEachLine(file.text, [&](std::string_view line, size_t number) {
        const int at = static_cast<int>(number);
        line = Trimmed(line);
        if (IsComment(line)) return;
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
            findings->Warn(at, std::string(line) + CountsAs(value));
        } else {
            JudgeValue(section, key, value, row->number, at, findings);
        }
    });
}

// Looks for the sections that test names are kept in: a name without one is written to the end of
// the file, and so becomes that of the section there.
void CheckTestSections(Findings* findings) {
    const FileText file = ReadText(std::string(patrol::para_path.view()), kMaxSettings);
    if (!file.Fault().empty()) return;
    for (const char* section : {"[CPUDIAG_PARAM]", "[MEMDIAG_PARAM]", "[HDDDIAG_PARAM]"}) {
        bool found = false;
        ForEachLine(file.text, [&](std::string_view line, size_t) {
            found = found || BeginsWith(Trimmed(line), section);
        });
        if (found) continue;
        findings->Warn(0, std::string("there is no section ") + section +
                              ": its test name goes into the last one");
    }
}

// Says what passes do with one kind.
PassSettings::OfKind SayPatrol(const SettingsFile& settings, const std::string& kind,
                               const std::string& what, Findings* findings) {
    const PassSettings::OfKind wanted = {settings.Number(kind + "_EXE") == 1,
                                         settings.Number(kind + "_TIMEOUT")};
    const int line = settings.Line(kind + "_EXE");
    const std::string test = settings.Text(kind + "_TEST");
    if (!wanted.enabled) {
        findings->Note(line, what + " not tested");
        return wanted;
    }
    std::string text = what + " tested by " + Quoted(test);
    if (wanted.timeout > 0) {
        text += ", with " + std::to_string(wanted.timeout) + " seconds to end in";
    }
    findings->Note(line, text);
    const patrol::ProfileReader parameters(patrol::para_path.c_str());
    const auto now = parameters.Value<512>((kind + "_PARAM").c_str(), "tp", "");
    if (!test.empty() && !now.empty() && now.view() != test) {
        findings->Warn(settings.Line(kind + "_TEST"),
                       Quoted(test) + " does not count yet, but " + Quoted(now.view()) +
                           " of the parameters: run \"patrol.exe reload\"");
    }
    return wanted;
}

PassSettings CheckPatrolSettings(Findings* findings) {
    SettingsFile settings(patrol::env_path.c_str(), patrol::PatrolSettings(), findings);
    if (!settings.Read()) {
        findings->Absent(Grade::kWarning, "passes test nothing");
        return {};
    }
    return {SayPatrol(settings, "CPUDIAG", "processors are", findings),
            SayPatrol(settings, "MEMDIAG", "memory is", findings),
            SayPatrol(settings, "HDDDIAG", "disks are", findings)};
}

void CheckPadiagSettings(Findings* findings) {
    SettingsFile settings(patrol::env_path2.c_str(), patrol::PadiagSettings(), findings);
    if (!settings.Read()) {
        findings->Absent(Grade::kNote, "nothing is asked for");
        return;
    }
    std::string kinds;
    for (const char* kind : {"cpu", "mem", "hdd"}) {
        if (settings.Number(kind) == 1) kinds += (kinds.empty() ? "" : ", ") + std::string(kind);
    }
    const int level = settings.Number("level");
    const int seconds = settings.Number("time");
    findings->Note(settings.Line("level"),
                   "on request, tests of kinds " + (kinds.empty() ? "none" : kinds) + " at level " +
                       std::to_string(level) + " for " +
                       (seconds == 0 ? "one round" : std::to_string(seconds) + " seconds"));
    if (level < 1 || level > 3) {
        findings->Warn(settings.Line("level"), "there is no level " + std::to_string(level) +
                                                   ": no test is started on request");
    }
    if (seconds < 0) {
        findings->Warn(settings.Line("time"), "the test programs refuse a time below 0");
    }
}

// Judges a line of [sdb] in "common.ini".
void JudgeCommon(std::string_view line, int number, Findings* findings) {
    const size_t equals = line.find('=');
    std::string_view key = line.substr(0, equals);
    key.remove_suffix(key.size() - (key.find_last_not_of(kBlank) + 1));
    if (key != "enable" && key != "facility") {
        findings->Warn(number, Quoted(key) + " is no key that is known in [sdb]");
    } else if (equals == std::string_view::npos) {
        findings->Warn(number, Quoted(key) + " has no value");
    } else if (const auto value = line.substr(equals + 1); !IsNumber(value)) {
        findings->Warn(number, std::string(Trimmed(line)) + CountsAs(value));
    } else if (const int facility = patrol::ParseInt(std::string(value).c_str(), 10);
               key == "facility" && (facility < 0 || facility > 7)) {
        findings->Warn(number, std::string(Trimmed(line)) + " counts as 0");
    }
}

// "common.ini" switches the announcements of on-request tests on.
void CheckCommon(const Places& places, Findings* findings) {
    if (places.config.empty()) return;
    findings->About(places.config + "/common.ini");
    // The controller looks for it there.
    setenv("KVX_config", places.config.c_str(), 1);
    patrol::SystemEventSettings settings;
    if (patrol::check_config_file(&settings) != 0) {
        findings->Absent(Grade::kNote, "on-request tests are not announced to the system log");
        return;
    }
    const int facility = settings.facility;
    const bool known = facility >= 0 && facility <= 7;
    findings->Note(0, settings.enable == 0
                          ? "on-request tests are not announced to the system log"
                          : "on-request tests are announced to the system log as local" +
                                std::to_string(known ? facility : 0));
    bool inside = false;
    const FileText file = ReadText(places.config + "/common.ini", kMaxSettings);
    ForEachLine(file.text, [&](std::string_view line, size_t number) {
        if (BeginsWith(line, "[")) {
            inside = BeginsWith(line, "[sdb]");
        } else if (inside && !IsComment(line)) {
            JudgeCommon(line, static_cast<int>(number), findings);
        }
    });
}

}  // namespace

PassSettings CheckSettings(const Places& places, Findings* findings) {
    const PassSettings passes = CheckPatrolSettings(findings);
    CheckParameters(patrol::para_path.c_str(), kPatrolParameters,
                    "test names are kept nowhere, and the defaults count", findings);
    CheckTestSections(findings);
    if (patrol::FileExists(patrol::nontarget_path.c_str())) {
        CheckParameters(patrol::nontarget_path.c_str(), kNonTargetParameters, "", findings);
    }
    CheckPadiagSettings(findings);
    CheckParameters(patrol::para_path2.c_str(), kPadiagParameters, "the defaults count", findings);
    CheckCommon(places, findings);
    return passes;
}

void CheckCatalogue(const Places& places, Findings* findings) {
    // The messages that the controller takes from there.
    static constexpr const char* kNeeded[] = {"E0809", "E3823", "E3825", "E3895",
                                              "E3899", "I0807", "W2824", "W2896"};
    const std::string path = places.data + "/pat_msge.txt";
    findings->About(path);
    const FileText file = ReadText(path, kMaxSettings);
    if (file.error != 0) return findings->Absent(Grade::kError, "nothing runs without it");
    if (file.cut) findings->Fail(0, file.Fault());
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
    findings->Note(0, std::to_string(numbers.size()) + " messages are read");
    for (const char* name : kNeeded) {
        if (numbers.count(name) == 0) findings->Warn(0, std::string(name) + " is missing");
    }
}

}  // namespace patrolctl
