// A word to a person who has started this program by hand.
#pragma once

#include <string_view>

namespace patrol {

// Writes a line to standard error where that is a terminal; agents, whose standard error is none,
// see nothing of it.
void TellTerminal(std::string_view line);

}  // namespace patrol
