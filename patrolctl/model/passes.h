// What the passes to come will test, by the controller's own rule.
#pragma once

#include <cstddef>
#include <vector>

#include "control/selection.h"
#include "model/state.h"

namespace patrolctl {

// The components that a pass tests, as numbers in the list of components: the processors, the
// memory, and then the disks.
using Pass = std::vector<size_t>;

// The next `count` passes; the first is the one that is due now.
std::vector<Pass> NextPasses(patrol::Selection selection, int count);

// Sets in how many passes the turn of each component comes.
void SetTurns(patrol::Selection selection, std::vector<Component>* components);

// Returns the disks, as numbers in the selection, that are enabled and yet tested by no pass once
// the first turns are over.
std::vector<size_t> LeftOut(patrol::Selection selection);

}  // namespace patrolctl
