// What the commands have in common.
#pragma once

#include <string>
#include <vector>

#include "model/state.h"
#include "model/verdict.h"
#include "options.h"
#include "show/json.h"
#include "show/table.h"

namespace patrolctl {

// Writes to standard output; nothing is lost at a short write.
void Print(const std::string& text);

// Says on standard error, a line each, what could not be read.
void PrintProblems(const std::vector<std::string>& problems);

// Whether the directories are known. Else says so, and the command has nothing to read.
bool PlacesKnown(const Places& places);

// kExitUnreadable where there are problems.
int StatusOf(const std::vector<std::string>& problems);

Colour ColourOf(Level level);
Colour ColourOf(const Result& result);

// The result's word; what was skipped says so.
std::string ResultText(const Result& result);

// A size in blocks of 512 bytes, such as "4.0 TB".
std::string SizeText(uint64_t blocks);

// How far a disk's tests have come, such as "0x1f400 (12 %)".
std::string PositionText(const Component& component);

// "/dev/sda" or "CPU", and "CPU" where a component has no name.
std::string Capital(std::string text);

}  // namespace patrolctl
