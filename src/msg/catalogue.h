// Message texts by number: "pat_msge.txt" for what users see (I, W, E), a built-in table for the
// rest (L, T, D).
#pragma once

#include <string_view>

#include "base/text.h"

namespace patrol {

// A text of the catalogue in printf syntax. Longer ones are cut at its 81 characters.
using MessageFormat = Text<82>;

struct CatalogueEntry {
    Text<6> number;  // a letter and four digits
    MessageFormat format;
};

inline constexpr int kCatalogueSize = 128;

// The external catalogue; empty slots have an empty number.
extern CatalogueEntry global_msg_list[kCatalogueSize];

// Takes number and text from a line of the file. Returns whether it is one of this program's.
bool TakeCatalogueLine(std::string_view line, CatalogueEntry* entry);

// Loads "pat_msge.txt" of the data directory. Lines that are not "NUMBER","TEXT"; with a number of
// this program are passed over, as the file serves others too. A text ends before the character
// (the closing quote) that precedes the last ";" among its first 81 characters; a text without one
// comes out empty. Returns 0. A file that cannot be opened ends the program with status 1, after
// the usual messages about it.
int ptl_set_msglist();

// Returns the text of `number`, compared over its five characters; null when it is unknown.
const char* msgno_to_fmt(const char* number);

}  // namespace patrol
