#include "show/escape.h"

#include <cstdio>
#include <functional>

namespace patrolctl {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

bool IsTail(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The length of the character at the start of `text`; 0 when the bytes there are no UTF-8.
size_t CharacterSize(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    for (size_t i = 1; i < size; ++i) {
        if (!IsTail(byte(i))) return 0;
    }
    // Longer than needed, of a surrogate, or beyond the last character.
    if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F)) return 0;
    if ((first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F)) return 0;
    return size;
}

// Whether a character controls what shows it: C0, DEL, C1, and the marks that turn the direction of
// writing.
bool Controls(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    const auto last = static_cast<unsigned char>(character.back());
    if (character.size() == 2) return first == 0xC2 && last < 0xA0;
    const std::string_view start = character.substr(0, 2);
    if (start == "\xE2\x80") return last == 0x8E || last == 0x8F || (last >= 0xA8 && last <= 0xAE);
    return start == "\xE2\x81" && last >= 0xA6 && last <= 0xA9;
}

// What `good` makes of each character, and `bad` of one that controls or of a byte that is none.
template <class Good, class Bad>
std::string Map(std::string_view text, Good good, Bad bad) {
    std::string result;
    while (!text.empty()) {
        const size_t size = CharacterSize(text);
        const std::string_view piece = text.substr(0, size == 0 ? 1 : size);
        result += size == 0 || Controls(piece) ? bad(piece) : good(piece);
        text.remove_prefix(piece.size());
    }
    return result;
}

std::string Hexadecimal(std::string_view piece) {
    std::string text;
    for (const char c : piece) {
        char digits[8];
        std::snprintf(digits, sizeof digits, "\\x%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

}  // namespace

std::string ForTerminal(std::string_view text) {
    const auto as_it_is = [](std::string_view piece) { return std::string(piece); };
    return Map(text, as_it_is, Hexadecimal);
}

std::string ForHtml(std::string_view text) {
    const auto escape = [](std::string_view piece) -> std::string {
        switch (piece[0]) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '>':
                return "&gt;";
            case '"':
                return "&quot;";
            case '\'':
                return "&#39;";
            default:
                return std::string(piece);
        }
    };
    return Map(text, escape, [](std::string_view piece) -> std::string {
        return piece == "\n" || piece == "\t" ? std::string(piece) : kReplacement;
    });
}

std::string ForLabel(std::string_view text) {
    const auto escape = [](std::string_view piece) {
        const bool marked = piece == "\\" || piece == "\"";
        return (marked ? "\\" : "") + std::string(piece);
    };
    return Map(text, escape, [](std::string_view piece) -> std::string {
        return piece == "\n" ? "\\n" : kReplacement;
    });
}

size_t Columns(std::string_view text) {
    size_t columns = 0;
    for (const char c : text) columns += IsTail(static_cast<unsigned char>(c)) ? 0 : 1;
    return columns;
}

}  // namespace patrolctl
