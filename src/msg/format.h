// Message formatting with checked arguments.
//
// Message texts come from a file and from test programs, so they are data: a conversion only ever
// takes an argument that is there, whatever it asks for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/text.h"

namespace patrol {

// One argument: a number or a text.
class FormatArg {
 public:
    // NOLINTBEGIN(google-explicit-constructor): arguments are written as they come
    FormatArg(const char* text) : text_(text != nullptr ? text : "(null)"), is_text_(true) {}
    FormatArg(std::string_view text) : text_(text), is_text_(true) {}
    FormatArg(const std::string& text) : text_(text), is_text_(true) {}
    template <size_t N>
    FormatArg(const Text<N>& text) : text_(text.view()), is_text_(true) {}
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    FormatArg(Number number) : number_(static_cast<int64_t>(number)), width_(sizeof(Number)) {}
    // NOLINTEND(google-explicit-constructor)

    bool is_text() const { return is_text_; }
    std::string_view text() const { return text_; }
    int64_t number() const { return number_; }
    // Returns the number without sign, at the width of its type: -1 as int is 0xffffffff.
    uint64_t bits() const;

 private:
    std::string_view text_;
    int64_t number_ = 0;
    size_t width_ = sizeof(int);
    bool is_text_ = false;
};

// Formats `arguments` in printf syntax: flags, width and precision with d i u o x X c s, and "%%".
// Length letters are passed over, as the argument knows its own size. Width and precision are held
// within 4096. A text asked for as a number and a number asked for as text come out as what they
// are. A conversion that is unknown, or whose argument is missing, comes out as it stands.
std::string FormatMessage(std::string_view format, const FormatArg* arguments, size_t count);

}  // namespace patrol
