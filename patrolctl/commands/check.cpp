// patrolctl check: one line and an exit status for a monitoring system.

#include "commands/commands.h"
#include "commands/common.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

// What node-problem-detector takes from a custom plugin: 0 well, 1 a problem, 2 unknown.
int ProblemStatus(Level level) {
    if (level == Level::kCritical) return 1;
    return level == Level::kUnknown ? 2 : 0;
}

std::string Text(const Verdict& verdict, bool npd) {
    static constexpr const char* kWords[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    const std::string word = kWords[static_cast<size_t>(verdict.level)];
    return (npd ? "" : "PATROL " + word + " - ") + ForTerminal(verdict.sentence) + "\n";
}

Json CheckJson(const Verdict& verdict, int status) {
    Json json;
    json["version"] = 1;
    json["status"] = status;
    json["state"] = LevelWord(verdict.level);
    json["sentence"] = verdict.sentence;
    json["findings"] = Json::array();
    for (const Finding& finding : verdict.findings) {
        json["findings"].push_back({{"level", LevelWord(finding.level)}, {"text", finding.text}});
    }
    return json;
}

}  // namespace

int RunCheck(const Options& options) {
    Verdict verdict;
    const std::string missing = MissingPlaces(options.places);
    if (missing.empty()) {
        State state;
        ReadState(options.places, &state);
        verdict = Judge(state, options.max_age);
    } else {
        verdict.level = Level::kUnknown;
        verdict.sentence = missing;
    }
    const int status = options.npd ? ProblemStatus(verdict.level) : static_cast<int>(verdict.level);
    Print(options.json ? JsonText(CheckJson(verdict, status)) : Text(verdict, options.npd));
    return status;
}

}  // namespace patrolctl
