// Which components are due in the next pass.
#pragma once

namespace patrol {

// Advances the patrol Schedule file after a pass: processors and memory alternate where both are
// enabled, disks alternate between odd and even numbers, at most "hdd_max" a pass (below 0: no
// limit). The group that the limit cut short keeps its own start; where it was cut becomes the
// start of the other group. Kept so, odd as it is. The file is read once before the changes, which
// take its place together.
void NextTestSchedule();

}  // namespace patrol
