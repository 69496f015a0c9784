#include "model/verdict.h"

#include <algorithm>
#include <iterator>

#include "model/times.h"

namespace patrolctl {
namespace {

std::string WhyOf(const Result& result) { return result.text.empty() ? "" : ": " + result.text; }

void JudgeError(const Result& last, std::vector<Finding>* findings) {
    if (last.code != patrol::kResultError) return;
    findings->push_back({Level::kCritical, last.device + " failed" + WhyOf(last)});
}

// What a last result says against its component.
void JudgeResult(const Component& component, std::vector<Finding>* findings) {
    const Result& last = *component.last;
    const std::string why = WhyOf(last);
    JudgeError(last, findings);
    if (!component.enabled) return;  // whoever has switched it off knows
    if (last.code == patrol::kResultTimeout) {
        findings->push_back(
            {Level::kWarning, "the test of " + component.device + " did not end in time"});
    } else if (last.code == patrol::kResultAbort) {
        findings->push_back(
            {Level::kWarning, "the test of " + component.device + " was aborted" + why});
    } else if (last.Skipped()) {
        findings->push_back({Level::kWarning, component.device + " was not tested" + why});
    }
}

// An enabled component that nothing was heard of for too long. One that has no result at all is
// given the time since anything was entered.
void JudgeAge(const State& state, const Component& component, long long max_age,
              std::vector<Finding>* findings) {
    const std::time_t since =
        component.last != nullptr ? component.last->time : state.results.first;
    const long long age = state.now - since;
    if (!component.enabled || since == 0 || age <= max_age) return;
    const std::string span = component.last != nullptr ? "for " + Span(age) : "yet";
    findings->push_back({Level::kWarning, component.device + " has no result " + span});
}

void JudgePasses(const State& state, std::vector<Finding>* findings) {
    const auto enabled = [](const Component& component) { return component.enabled; };
    const bool any = std::any_of(state.components.begin(), state.components.end(), enabled);
    const auto warn = [&](const char* text) { findings->push_back({Level::kWarning, text}); };
    if (!state.has_schedule) {
        warn("there is no schedule: nothing is tested");
    } else if (!any && !state.components.empty()) {
        warn("no component is enabled: nothing is tested");
    }
    if (state.results.list.empty() && state.results.faults.empty()) warn("nothing has run yet");
    if (state.last_pass == PassEnd::kFailed) warn("the last pass ended with an error");
    if (state.last_pass == PassEnd::kKeptAway) {
        warn("the last pass ended with an error: the agent was not ready for it");
    }
}

int Rank(Level level) {
    switch (level) {
        case Level::kCritical:
            return 0;
        case Level::kUnknown:
            return 1;
        case Level::kWarning:
            return 2;
        default:
            return 3;
    }
}

std::string AllWell(const State& state) {
    const auto count = std::count_if(state.components.begin(), state.components.end(),
                                     [](const Component& component) { return component.enabled; });
    return "all well with " + std::to_string(count) + (count == 1 ? " component" : " components") +
           ", the newest result is " + Span(state.now - state.results.list.back().time) + " old";
}

}  // namespace

const char* LevelWord(Level level) {
    static constexpr const char* kWords[] = {"ok", "warning", "critical", "unknown"};
    return kWords[static_cast<size_t>(level)];
}

Verdict Judge(const State& state, long long max_age) {
    Verdict verdict;
    std::vector<Finding>& findings = verdict.findings;
    for (const Fault& fault : state.faults.list) {
        const std::string what = fault.device.empty() ? fault.kind : fault.device;
        findings.push_back({Level::kCritical, "fault " + fault.id + " of " + what + " is open" +
                                                  (fault.summary.empty() ? "" : ": ") +
                                                  fault.summary});
    }
    for (const Component& component : state.components) {
        if (component.last != nullptr) JudgeResult(component, &findings);
        JudgeAge(state, component, max_age, &findings);
    }
    for (const Result* last : state.unplaced) JudgeError(*last, &findings);
    JudgePasses(state, &findings);
    for (const std::string& problem : state.problems) {
        findings.push_back({Level::kUnknown, problem});
    }
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return Rank(a.level) < Rank(b.level);
    });
    if (findings.empty()) {
        verdict.sentence = AllWell(state);
        return verdict;
    }
    verdict.level = findings[0].level;
    verdict.sentence = findings[0].text;
    if (findings.size() > 1) {
        verdict.sentence += " (and " + std::to_string(findings.size() - 1) + " more)";
    }
    return verdict;
}

}  // namespace patrolctl
