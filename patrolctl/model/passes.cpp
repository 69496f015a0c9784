#include "model/passes.h"

#include <algorithm>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace patrolctl {
namespace {

using patrol::Selection;

// Looking further ahead would take longer than reading everything.
constexpr size_t kMaxSteps = 1 << 18;

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
        if (component.turn == kNoTurn && component.enabled && !all_tried)
            component.turn = kLateTurn;
    }
}

std::vector<size_t> LeftOut(Selection selection) {
    std::vector<Pass> passes;
    std::unordered_map<std::string, size_t> seen;
    for (size_t steps = 0; steps < kMaxSteps; steps += selection.disks.size() + 2) {
        const auto [first, is_new] = seen.emplace(Fingerprint(selection), passes.size());
        if (!is_new) {  // from there on, all comes again
            passes.erase(passes.begin(), passes.begin() + static_cast<long>(first->second));
            break;
        }
        passes.push_back(TestedNow(selection));
        patrol::AdvanceSelection(&selection);
    }
    std::set<size_t> tested;
    for (const Pass& pass : passes) tested.insert(pass.begin(), pass.end());
    std::vector<size_t> left_out;
    for (size_t i = 0; i < selection.disks.size(); ++i) {
        const bool enabled = selection.disks[i].enabled == patrol::Flag::kOn;
        if (enabled && tested.count(i + 2) == 0) left_out.push_back(i);
    }
    return left_out;
}

}  // namespace patrolctl
