#include "msg/format.h"

#include <algorithm>

namespace patrol {
namespace {

// A width from outside is not to fill the memory with blanks.
constexpr size_t kMaxField = 4096;
constexpr std::string_view kLetters = "diuoxXcs";

struct Conversion {
    bool left = false;
    bool zero = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    size_t width = 0;
    size_t precision = std::string_view::npos;  // npos: none given
    char letter = '\0';
    size_t length = 0;  // characters from the "%" to the letter, both included
};

// Reads digits from `*at` on, held within kMaxField.
size_t TakeNumber(std::string_view text, size_t* at) {
    size_t number = 0;
    while (*at < text.size() && text[*at] >= '0' && text[*at] <= '9') {
        number = std::min(number * 10 + static_cast<size_t>(text[*at] - '0'), kMaxField);
        ++*at;
    }
    return number;
}

// Reads the conversion at the start of `text` (its "%"). Returns false when the text ends within
// it.
bool ReadConversion(std::string_view text, Conversion* result) {
    size_t at = 1;
    for (; at < text.size(); ++at) {
        if (text[at] == '-')
            result->left = true;
        else if (text[at] == '0')
            result->zero = true;
        else if (text[at] == '+')
            result->plus = true;
        else if (text[at] == ' ')
            result->blank = true;
        else if (text[at] == '#')
            result->alternate = true;
        else
            break;
    }
    result->width = TakeNumber(text, &at);
    if (at < text.size() && text[at] == '.') {
        ++at;
        result->precision = TakeNumber(text, &at);
    }
    while (at < text.size() &&
           std::string_view("hlqjzt").find(text[at]) != std::string_view::npos) {
        ++at;
    }
    if (at >= text.size()) return false;
    result->letter = text[at];
    result->length = at + 1;
    return true;
}

std::string Digits(uint64_t value, unsigned base, bool upper) {
    const char* symbols = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string digits;
    do {
        digits.insert(digits.begin(), symbols[value % base]);
        value /= base;
    } while (value != 0);
    return digits;
}

// Fills up to the width; zeros go between `prefix` (sign or "0x") and the body.
std::string Pad(const Conversion& conversion, const std::string& prefix, const std::string& body,
                bool zeros) {
    const size_t size = prefix.size() + body.size();
    const size_t fill = conversion.width > size ? conversion.width - size : 0;
    if (conversion.left) return prefix + body + std::string(fill, ' ');
    if (zeros) return prefix + std::string(fill, '0') + body;
    return std::string(fill, ' ') + prefix + body;
}

// As printf does it, but for what it leaves undefined: a sign with an unsigned conversion is passed
// over.
std::string FormatNumber(const Conversion& conversion, const FormatArg& argument) {
    std::string prefix;
    std::string body;
    switch (conversion.letter) {
        case 'u':
            body = Digits(argument.bits(), 10, false);
            break;
        case 'o':
            body = Digits(argument.bits(), 8, false);
            break;
        case 'x':
        case 'X':
            body = Digits(argument.bits(), 16, conversion.letter == 'X');
            if (conversion.alternate && argument.bits() != 0) prefix = {'0', conversion.letter};
            break;
        default: {
            const bool negative = argument.number() < 0;
            const auto magnitude = static_cast<uint64_t>(argument.number());
            body = Digits(negative ? uint64_t{0} - magnitude : magnitude, 10, false);
            if (negative)
                prefix = "-";
            else if (conversion.plus)
                prefix = "+";
            else if (conversion.blank)
                prefix = " ";
        }
    }
    const bool has_precision = conversion.precision != std::string_view::npos;
    if (has_precision && body.size() < conversion.precision) {
        body.insert(0, conversion.precision - body.size(), '0');
    }
    return Pad(conversion, prefix, body, conversion.zero && !has_precision);
}

// The argument decides, not the letter: a text from a file cannot make a number be read as an
// address.
std::string FormatOne(const Conversion& conversion, const FormatArg& argument) {
    if (argument.is_text()) {
        const std::string_view text = argument.text();
        // A precision belongs to the text only where a text was asked for.
        const size_t kept = conversion.letter == 's' ? conversion.precision : text.size();
        return Pad(conversion, "", std::string(text.substr(0, kept)), false);
    }
    if (conversion.letter == 'c') {
        return Pad(conversion, "", std::string(1, static_cast<char>(argument.number())), false);
    }
    return FormatNumber(conversion, argument);
}

}  // namespace

uint64_t FormatArg::bits() const {
    const auto all = static_cast<uint64_t>(number_);
    return width_ >= sizeof all ? all : all & ((uint64_t{1} << (width_ * 8)) - 1);
}

std::string FormatMessage(std::string_view format, const FormatArg* arguments, size_t count) {
    std::string result;
    size_t used = 0;
    while (!format.empty()) {
        const size_t plain = std::min(format.find('%'), format.size());
        result += format.substr(0, plain);
        format.remove_prefix(plain);
        if (format.empty()) break;

        Conversion conversion;
        size_t taken = 1;
        const bool whole = ReadConversion(format, &conversion);
        if (whole && used < count && kLetters.find(conversion.letter) != std::string_view::npos) {
            result += FormatOne(conversion, arguments[used++]);
            taken = conversion.length;
        } else {
            // "%%", or a "%" that stands for itself.
            result += '%';
            if (whole && conversion.letter == '%' && conversion.length == 2) taken = 2;
        }
        format.remove_prefix(taken);
    }
    return result;
}

}  // namespace patrol
