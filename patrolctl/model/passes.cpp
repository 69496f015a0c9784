#include "model/passes.h"

#include <algorithm>
#include <string>
#include <unordered_set>

namespace patrolctl {
namespace {

using patrol::Selection;

// The launchers take a flag that only begins with "OFF" for off.
bool IsTested(const Selection::Component& component) { return component.due == patrol::Flag::kOn; }

Pass TestedNow(const Selection& selection) {
    Pass pass;
    if (IsTested(selection.cpu)) pass.push_back(0);
    if (IsTested(selection.memory)) pass.push_back(1);
    for (size_t i = 0; i < selection.disks.size(); ++i) {
        if (IsTested(selection.disks[i])) pass.push_back(i + 2);
    }
    return pass;
}

// All that the passes after this one depend on; what is enabled does not change.
std::string Fingerprint(const Selection& selection) {
    std::string print = std::to_string(selection.phase) + " " +
                        std::to_string(selection.odd_start) + " " +
                        std::to_string(selection.even_start) + " ";
    const auto add = [&](const Selection::Component& component) {
        print += static_cast<char>('0' + static_cast<int>(component.due));
    };
    add(selection.cpu);
    add(selection.memory);
    for (const Selection::Component& disk : selection.disks) add(disk);
    return print;
}

}  // namespace

std::vector<Pass> NextPasses(Selection selection, int count) {
    std::vector<Pass> passes;
    for (int i = 0; i < count; ++i) {
        passes.push_back(TestedNow(selection));
        patrol::AdvanceSelection(&selection);
    }
    return passes;
}

void SetTurns(Selection selection, std::vector<Component>* components) {
    // Looking further ahead would take longer than reading everything.
    constexpr size_t kMaxSteps = 1 << 18;
    const auto enabled = [](const Component& component) { return component.enabled; };
    auto waiting = std::count_if(components->begin(), components->end(), enabled);
    std::unordered_set<std::string> seen;
    for (size_t steps = 0; waiting > 0 && steps < kMaxSteps; steps += components->size()) {
        // From a state that was there before on, all comes again.
        if (!seen.insert(Fingerprint(selection)).second) break;
        for (const size_t i : TestedNow(selection)) {
            Component& component = (*components)[i];
            if (component.turn != kNoTurn) continue;
            component.turn = static_cast<int>(seen.size());
            if (component.enabled) --waiting;
        }
        patrol::AdvanceSelection(&selection);
    }
    const bool all_tried = seen.count(Fingerprint(selection)) != 0;
    for (Component& component : *components) {
        if (component.turn == kNoTurn && !all_tried) component.turn = kLateTurn;
    }
}

}  // namespace patrolctl
