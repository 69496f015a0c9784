// Fixed-width fields of a record.
#pragma once

#include <cctype>
#include <cstring>

#include "base/number.h"
#include "base/text.h"

namespace patrol {

// The N - 1 bytes at `at`, or fewer where a NUL ends them.
template <size_t N>
Text<N> Field(const char* at) {
    return Text<N>(std::string_view(at, strnlen(at, N - 1)));
}

// The printable characters at the start of the N - 1 bytes at `at`, without trailing blanks.
template <size_t N>
Text<N> NameField(const char* at) {
    size_t length = 0;
    while (length < N - 1 && std::isprint(static_cast<unsigned char>(at[length])) != 0) ++length;
    Text<N> name(std::string_view(at, length));
    name.TrimEnd(" ");
    return name;
}

// The number in a field of N - 1 bytes.
template <size_t N>
uint32_t NumberField(const char* at) {
    return ParseUnsigned(Field<N>(at).c_str(), 0);
}

}  // namespace patrol
