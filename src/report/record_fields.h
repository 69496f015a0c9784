// Fixed-width fields of a record.
#pragma once

#include <cctype>
#include <cstring>

#include "base/number.h"
#include "base/text.h"

namespace patrol {

// Returns the `Size` bytes at `at`, or fewer where a NUL ends them.
template <size_t Size>
Text<Size + 1> Field(const char* at) {
    return Text<Size + 1>(std::string_view(at, strnlen(at, Size)));
}

// Returns the printable characters at the start of the `Size` bytes at `at`, without trailing
// blanks.
template <size_t Size>
Text<Size + 1> NameField(const char* at) {
    size_t length = 0;
    while (length < Size && std::isprint(static_cast<unsigned char>(at[length])) != 0) ++length;
    Text<Size + 1> name(std::string_view(at, length));
    name.TrimEnd(" ");
    return name;
}

// Returns the number in a field of `Size` bytes.
template <size_t Size>
uint32_t NumberField(const char* at) {
    return ParseUnsigned(Field<Size>(at).c_str(), 0);
}

}  // namespace patrol
