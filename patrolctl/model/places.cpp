#include "model/places.h"

#include <cstdlib>
#include <string_view>

#include "base/paths.h"
#include "model/files.h"

namespace patrolctl {
namespace {

constexpr size_t kMaxEnvironment = 1 << 20;

// A value as the environment file has it: quotes around the whole of it are none of it.
std::string_view Unquoted(std::string_view value) {
    const bool quoted = value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                        value.front() == value.back();
    return quoted ? value.substr(1, value.size() - 2) : value;
}

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r";
    const size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::map<std::string, std::string> ReadEnvironmentFile(const std::string& path,
                                                       std::string* fault) {
    std::map<std::string, std::string> variables;
    const FileText file = ReadText(path, kMaxEnvironment);
    if (!file.missing()) *fault = file.Fault();
    ForEachLine(file.text, [&](std::string_view line, size_t) {
        line = Trimmed(line);
        const size_t equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string_view::npos) return;
        const std::string_view value = Unquoted(Trimmed(line.substr(equals + 1)));
        variables[std::string(Trimmed(line.substr(0, equals)))] = value;
    });
    return variables;
}

std::string FromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

std::string Places::HoldFile() const {
    const size_t slash = pipe.rfind('/');
    return slash == std::string::npos ? root + "/run/patrol/hold" : pipe.substr(0, slash) + "/hold";
}

Places FindPlaces(Places given) {
    given.root = FromEnvironment("PATROL_ROOT");
    given.variables =
        ReadEnvironmentFile(given.root + "/etc/patrol/environment", &given.environment_fault);
    // What a person has set goes before what the file says.
    for (auto& [name, value] : given.variables) {
        const std::string own = FromEnvironment(name.c_str());
        if (!own.empty()) value = own;
    }
    const std::pair<const char*, std::string*> directories[] = {
        {"KVX_data", &given.data}, {"KVX_log", &given.log},       {"KVX_bin", &given.bin},
        {"KVX_temp", &given.temp}, {"KVX_config", &given.config}, {"KVX_PIPE", &given.pipe},
    };
    for (const auto& [name, value] : directories) {
        if (value->empty()) *value = FromEnvironment(name);
        if (value->empty()) *value = given.variables[name];
        if (value->empty()) {
            given.variables.erase(name);
        } else {
            given.variables[name] = *value;
        }
    }
    patrol::BuildPaths(given.data.c_str());
    return given;
}

std::string MissingPlaces(const Places& places) {
    if (!places.data.empty() && !places.log.empty()) return "";
    const std::string word = places.data.empty() ? "data" : "log";
    const std::string& fault = places.environment_fault;
    return "The " + word + " directory is not known: set KVX_" + word +
           " in the environment or in /etc/patrol/environment" +
           (fault.empty() ? "" : ", which " + fault) + ", or give --" + word + " DIR.";
}

}  // namespace patrolctl
