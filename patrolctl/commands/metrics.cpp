// patrolctl metrics: the state for Prometheus, in text format 0.0.4.

#include <cstdio>
#include <iterator>
#include <unordered_set>
#include <utility>

#include "base/kinds.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

class Metrics {
 public:
    // Begins a metric; nothing of it appears before its first value.
    void Begin(const char* name, const char* help) {
        name_ = name;
        head_ = std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
    }

    // A value for labels that have one already is left out: no reader takes two.
    void Add(const Labels& labels, double value) {
        std::string series = name_;
        for (size_t i = 0; i < labels.size(); ++i) {
            series += (i == 0 ? "{" : ",");
            series += labels[i].first;
            series += "=\"" + ForLabel(labels[i].second) + "\"";
        }
        if (!labels.empty()) series += "}";
        if (!seen_.insert(series).second) return;
        char number[32];
        std::snprintf(number, sizeof number, " %.15g\n", value);
        text_ += head_ + series + number;
        head_.clear();
    }

    const std::string& text() const { return text_; }

 private:
    std::string name_;
    std::string head_;
    std::string text_;
    std::unordered_set<std::string> seen_;
};

// What marks a component: its kind and, of a disk, its name and serial number.
Labels LabelsOf(const Component& component) {
    return {{"component", patrol::FindKind(component.kind)->name},
            {"device", component.kind == patrol::kKindHdd ? component.device : ""},
            {"serial", component.serial}};
}

// The controller's number of a result; one that says why nothing was tested has the next number.
double ResultNumber(const Result& result) {
    return result.Skipped() ? static_cast<double>(std::size(patrol::kResultWords)) : result.code;
}

void AddResults(const State& state, Metrics* metrics) {
    metrics->Begin("patrol_last_result",
                   "Last result: 0 OK, 1 ERROR, 2 ABORT, 3 TIMEOUT, 4 CANCEL, 5 not tested.");
    for (const Component& component : state.components) {
        if (component.last != nullptr) {
            metrics->Add(LabelsOf(component), ResultNumber(*component.last));
        }
    }
    metrics->Begin("patrol_last_result_timestamp_seconds", "When the last result was entered.");
    for (const Component& component : state.components) {
        if (component.last != nullptr) {
            metrics->Add(LabelsOf(component), static_cast<double>(component.last->time));
        }
    }
    metrics->Begin("patrol_results_kept", "Results in the histories, which keep a bounded past.");
    if (state.results.list.empty() && !state.results.faults.empty()) return;
    std::vector<double> counts(std::size(patrol::kResultWords));
    for (const Result& result : state.results.list) ++counts[static_cast<size_t>(result.code)];
    for (size_t i = 0; i < counts.size(); ++i) {
        metrics->Add({{"result", patrol::kResultWords[i]}}, counts[i]);
    }
}

void AddSchedule(const State& state, Metrics* metrics) {
    metrics->Begin("patrol_disk_progress_ratio",
                   "Part of a disk that lies before the place that its next test begins at.");
    for (const Component& component : state.components) {
        if (component.ratio) metrics->Add(LabelsOf(component), *component.ratio);
    }
    metrics->Begin("patrol_component_enabled", "Whether a component is tested at all.");
    for (const Component& component : state.components) {
        metrics->Add(LabelsOf(component), component.enabled ? 1 : 0);
    }
    metrics->Begin("patrol_component_due", "Whether the next pass tests a component.");
    for (const Component& component : state.components) {
        metrics->Add(LabelsOf(component), component.due ? 1 : 0);
    }
    metrics->Begin("patrol_schedule_age_seconds", "Time since the schedule was last written.");
    if (state.schedule_time != 0) {
        metrics->Add({}, static_cast<double>(state.now - state.schedule_time));
    }
}

void AddFaults(const State& state, Metrics* metrics) {
    metrics->Begin("patrol_fault_open", "Open faults of a component.");
    for (const Component& component : state.components) {
        metrics->Add(LabelsOf(component), static_cast<double>(component.faults.size()));
    }
    // Those of what is not, or no longer, in the schedule.
    for (const Fault& fault : state.faults.list) {
        if (fault.known) continue;
        metrics->Add(
            {{"component", fault.kind}, {"device", fault.device}, {"serial", fault.serial}}, 1);
    }
}

}  // namespace

int RunMetrics(const Options& options) {
    if (!PlacesKnown(options.places)) return kExitUnreadable;
    State state;
    ReadState(options.places, &state);
    Metrics metrics;
    metrics.Begin("patrol_build_info", "The version of this program.");
    metrics.Add({{"version", PATROL_VERSION}}, 1);
    AddResults(state, &metrics);
    AddSchedule(state, &metrics);
    AddFaults(state, &metrics);
    Print(metrics.text());
    PrintProblems(state.problems);
    return StatusOf(state.problems);
}

}  // namespace patrolctl
