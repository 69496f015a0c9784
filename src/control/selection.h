// Which components are due in the next pass.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "state/schedule_file.h"

namespace patrol {

// What the selection goes by: the part of a patrol Schedule file that a pass moves on.
struct Selection {
    struct Component {
        Flag enabled = Flag::kOff;
        Flag due = Flag::kOff;
    };
    Component cpu;
    Component memory;
    std::vector<Component> disks;
    int limit = 0;      // most disks that a pass makes due; below 0: no limit
    int phase = 0;      // 1: odd disks are next, else even ones
    int odd_start = 0;  // the first disk of each group to consider
    int even_start = 0;
};

// Returns the selection that `schedule` holds.
Selection ReadSelection(const ScheduleFile& schedule);

// A key that the selection changes.
struct ScheduleChange {
    std::string section;
    const char* key;
    std::string value;
};

// What a pass comes to.
struct SelectionStep {
    std::vector<ScheduleChange> changes;  // in their order
    std::string note;                     // for the trace; empty: nothing is to be said
};

// Moves `selection` on by one pass: processors and memory alternate where both are enabled, disks
// alternate between odd and even numbers, at most the limit a pass. The group that the limit cut
// short keeps its own start; where it was cut becomes the start of the other group. This is odd,
// but readers of the file count on it. The rule works on the data alone, so that passes to come can
// be tried on a copy.
SelectionStep AdvanceSelection(Selection* selection);

// Advances the patrol Schedule file after a pass. It is read once before the changes, which take
// its place together.
void NextTestSchedule();

}  // namespace patrol
