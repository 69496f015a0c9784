// Texts from files, made harmless for where they are shown.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace patrolctl {

// For a terminal: what would control it, and bytes that are no UTF-8, as "\x1b".
std::string ForTerminal(std::string_view text);

// For a page: as text or as an attribute's value in double quotes.
std::string ForHtml(std::string_view text);

// For the value of a label in the text format of metrics.
std::string ForLabel(std::string_view text);

// How many columns a text for the terminal takes.
size_t Columns(std::string_view text);

}  // namespace patrolctl
