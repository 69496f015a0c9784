// Bounded text: the one place where characters are copied into fixed storage.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace patrol {

// Formats as printf does: writes at most `size` bytes including the terminator. Returns the length
// that the whole text would have had.
[[gnu::format(printf, 3, 4)]] int snprintfx(char* buffer, size_t size, const char* format, ...);

// Returns whether `text` begins with `start`; an empty start begins everything.
inline bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// Returns `text` without its control characters (below 32, and 127), so that it stays on one line
// and does nothing to a terminal. Tabs stay, and so do bytes from 128 on, which are letters of
// other alphabets.
std::string WithoutControls(std::string_view text);

// NUL-terminated text in N bytes, so at most N - 1 characters. Assigning, appending and formatting
// cut at that size without a word. What is assigned ends at its first NUL.
template <size_t N>
class Text {
 public:
    static_assert(N > 1);
    static constexpr size_t kSize = N;

    Text() = default;
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is as good as a text
    Text(std::string_view text) { Assign(text); }
    // NOLINTNEXTLINE(google-explicit-constructor)
    Text(const char* text) { Assign(text); }

    const char* c_str() const { return chars_; }
    std::string_view view() const { return chars_; }
    size_t size() const { return std::strlen(chars_); }
    bool empty() const { return chars_[0] == '\0'; }

    // Returns the raw bytes, for a callee that fills them and ends them with NUL within N.
    char* data() { return chars_; }

    void Clear() { chars_[0] = '\0'; }

    // `text` may be a part of this text itself.
    void Assign(std::string_view text) { Put(0, text); }

    void Append(std::string_view text) { Put(size(), text); }

    [[gnu::format(printf, 2, 3)]] void Format(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        FormatList(format, arguments);
        va_end(arguments);
    }

    // The same for a routine that itself takes arguments as printf does.
    [[gnu::format(printf, 2, 0)]] void FormatList(const char* format, va_list arguments) {
        std::vsnprintf(chars_, N, format, arguments);
    }

    // Cuts trailing characters that stand in `unwanted`.
    void TrimEnd(const char* unwanted) {
        size_t length = size();
        while (length > 0 && std::strchr(unwanted, chars_[length - 1]) != nullptr) --length;
        chars_[length] = '\0';
    }

 private:
    void Put(size_t at, std::string_view text) {
        text = text.substr(0, text.find('\0'));
        text = text.substr(0, N - 1 - at);
        if (!text.empty()) std::memmove(chars_ + at, text.data(), text.size());
        chars_[at + text.size()] = '\0';
    }

    char chars_[N] = {};
};

}  // namespace patrol
