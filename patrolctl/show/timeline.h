// A picture of results over time.
#pragma once

#include <string>

#include "model/state.h"

namespace patrolctl {

// An SVG picture with a row for each component that has results; empty when none has.
std::string TimelineSvg(const State& state);

}  // namespace patrolctl
