// A profile read once and asked many times.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "base/text.h"
#include "sys/profile_lines.h"

namespace patrol {

// Answers by the rules of sys/profile.h.
class ProfileReader {
 public:
    explicit ProfileReader(const char* path);

    // Reads the file again if another one stands in its place, or it was changed. Writes that were
    // put off and are still to come are not looked for.
    void Refresh();

    // Returns whether the file could be read; else every answer is the default, and `error` is the
    // errno.
    bool loaded() const { return error_ == 0; }
    int error() const { return error_; }

    // As GetPrivateProfileString, GetPrivateProfileInt and GetPrivateProfileSectionNames.
    int String(const char* section, const char* key, const char* default_value, char* result,
               int size) const;
    int Int(const char* section, const char* key, int default_value) const;
    int SectionNames(char* result, int size) const;

    // The value of `key` as String stores it in `Size` bytes and one more: up to Size characters
    // whole, of a longer value the first Size - 1.
    template <size_t Size>
    Text<Size + 1> Value(const char* section, const char* key, const char* default_value) const {
        Text<Size + 1> value;
        String(section, key, default_value, value.data(), static_cast<int>(Size));
        return value;
    }

    // The first N - 1 characters of the value, which is what a field of N bytes holds.
    template <size_t N>
    void Field(const char* section, const char* key, const char* default_value,
               Text<N>* result) const {
        result->Assign(Value<N>(section, key, default_value).view());
    }

 private:
    // The cleaned lines that may be headers or entries, cut at one line size.
    struct Lines {
        std::vector<std::string> lines;
        HeaderIndex<size_t> headers;
    };
    const Lines& CutAt(size_t line_size, std::optional<Lines>* cached) const;

    // The number of the line behind the header that opens `section`; the number of lines when there
    // is no such section.
    static size_t FirstLine(const Lines& cut, const char* section);

    void Load();

    std::string path_;
    struct stat status_ = {};
    std::string bytes_;
    int error_ = 0;
    // Texts and numbers are read with different line sizes, so that a very long line is cut at
    // different places for the two.
    mutable std::optional<Lines> string_lines_;
    mutable std::optional<Lines> int_lines_;
};

}  // namespace patrol
