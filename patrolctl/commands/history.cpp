// patrolctl history: the results that are kept.

#include <strings.h>

#include "base/kinds.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "model/times.h"

namespace patrolctl {
namespace {

bool SameWord(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

// The first time that is asked for.
std::time_t Since(const std::string& text) {
    if (text.empty()) return 0;
    const auto age = ParseSpan(text);
    if (age) return std::time(nullptr) - static_cast<std::time_t>(*age);
    return ParseIsoTime(text).value_or(0);
}

// Whether a result is of the kind ("Memory", or "mem" as "run" has it), the test program or the
// device of this name.
bool IsOf(const Result& result, const std::string& name) {
    const patrol::Kind* kind = patrol::FindKind(result.kind);
    const bool of_kind =
        kind != nullptr && (SameWord(name, kind->name) || SameWord(name + "test", kind->program));
    return name.empty() || of_kind || SameWord(name, result.program.c_str()) ||
           name == result.device || "/dev/" + name == result.device;
}

// `whole`: nothing was in the way of reading.
std::string Text(const std::vector<const Result*>& results, bool whole, bool colour) {
    Table table({"TIME", "RESULT", "TEST", "DEVICE", "TOOK", "ON", "PROGRESS", "TEXT"});
    for (const Result* result : results) {
        const auto& request = result->request;
        const std::string progress = request && request->has_progress
                                         ? std::to_string(request->progress_before) + " -> " +
                                               std::to_string(request->progress_after) + " %"
                                         : "";
        table.Add({PlainTime(result->time), Cell(ResultText(*result), ColourOf(*result)),
                   result->program, result->device, std::to_string(result->seconds) + " s",
                   request ? "request" : "patrol", progress, result->text});
    }
    return results.empty() && whole ? "There are no such results.\n" : table.Text(colour);
}

}  // namespace

int RunHistory(const Options& options) {
    if (!PlacesKnown(options.places)) return kExitUnreadable;
    const Results results = ReadResults(options.places);
    const std::time_t since = Since(options.since);
    std::vector<const Result*> wanted;
    for (const Result& result : results.list) {
        if (result.time < since || !IsOf(result, options.component)) continue;
        if (!options.failed || result.Failed()) wanted.push_back(&result);
    }
    Json json = Json::array();
    if (options.json) {
        for (const Result* result : wanted) json.push_back(ResultJson(*result));
    }
    Print(options.json ? JsonText(json) : Text(wanted, results.faults.empty(), options.colour));
    PrintProblems(results.faults);
    return StatusOf(results.faults);
}

}  // namespace patrolctl
