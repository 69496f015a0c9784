// The words that the program is started with.
#pragma once

#include "base/text.h"

namespace patrol {

// Returns all words joined, each with a blank behind it, for the trace alone.
using CommandText = Text<513>;
CommandText JoinWords(int count, const char* const* words);

// Sets entry_cmd and error_point from the words after the program's name, judging them one by one
// from left to right. Does not come back for "version" and "KVXend" (status 0) nor for a parameter
// error (status 3, or 1 when the run environment is missing).
void ParseCommandLine(int count, const char* const* words, const CommandText& command);

}  // namespace patrol
