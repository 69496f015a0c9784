// The values in a JSON text, by their places.
#pragma once

#include <map>
#include <string>

namespace testprog {

// Returns every number, text, true, false and null of a JSON text by its place, as
// "table[0].raw.value"; texts without quotes, and escapes in them without their backslash. Reads on
// up to the first thing that is no JSON or whose place takes more than 200 characters, and 32
// levels deep.
std::map<std::string, std::string> FlattenJson(const std::string& text);

}  // namespace testprog
