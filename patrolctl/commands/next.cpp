// patrolctl next: what the next passes will test.

#include "base/paths.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "model/passes.h"
#include "show/escape.h"
#include "state/schedule_file.h"

namespace patrolctl {
namespace {

std::string PassText(const State& state, const Pass& pass) {
    std::string text;
    for (const size_t i : pass) {
        text += (text.empty() ? "" : " ") + ForTerminal(state.components[i].device);
    }
    return text.empty() ? "nothing" : text;
}

Json PassJson(const State& state, const Pass& pass) {
    Json json = Json::array();
    for (const size_t i : pass) {
        const Component& component = state.components[i];
        json.push_back({{"kind", KindJson(component.kind)},
                        {"device", component.device},
                        {"serial", TextOrNull(component.serial)}});
    }
    return json;
}

}  // namespace

int RunNext(const Options& options) {
    if (!PlacesKnown(options.places)) return kExitUnreadable;
    State state;
    ReadSchedule(options.places, &state);
    std::vector<Pass> passes;
    if (!state.components.empty()) {
        const patrol::ScheduleFile schedule(patrol::sche_path.c_str());
        passes = NextPasses(patrol::ReadSelection(schedule), options.passes);
    }
    Json json = Json::array();
    std::string text;
    for (size_t i = 0; i < passes.size(); ++i) {
        json.push_back(PassJson(state, passes[i]));
        text += "pass " + std::to_string(i + 1) + ": " + PassText(state, passes[i]) + "\n";
    }
    if (!state.has_schedule) text = "There is no schedule: nothing is tested.\n";
    Print(options.json ? JsonText(json) : text);
    PrintProblems(state.problems);
    return StatusOf(state.problems);
}

}  // namespace patrolctl
