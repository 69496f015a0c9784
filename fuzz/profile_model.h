// The rules of profiles once more, plainly and without a thought of speed: what the profile
// routines are compared with, by a fuzz target and by a unit test.
#pragma once

#include <algorithm>
#include <climits>
#include <string>
#include <utility>
#include <vector>

namespace profile_model {

using Lines = std::vector<std::string>;

// The bytes cut behind each line feed, and where a line has `most` bytes without one.
inline Lines Cut(const std::string& bytes, size_t most) {
    Lines lines;
    bool begins = true;
    for (const char c : bytes) {
        if (begins) lines.emplace_back();
        lines.back() += c;
        begins = c == '\n' || lines.back().size() == most;
    }
    return lines;
}

inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline bool Begins(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

inline bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The lines as a reader with a buffer of `size` bytes sees them.
inline Lines CleanLines(const std::string& bytes, size_t size) {
    Lines lines = Cut(bytes, size - 1);
    for (std::string& line : lines) {
        line = line.c_str();  // up to its first NUL
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        while (!line.empty() && IsSpace(line.back())) line.pop_back();
        while (!line.empty() && IsSpace(line.front())) line.erase(0, 1);
    }
    return lines;
}

// The lines of a section, without headers and comments.
inline Lines SectionLines(const Lines& lines, const std::string& section, bool header_must_close) {
    Lines found;
    int state = 0;
    for (const std::string& line : lines) {
        if (state == 2) break;
        if (Begins(line, "[")) {
            if (header_must_close && !Has(line, "]")) continue;
            if (state == 1 || Has(line, "[" + section + "]")) ++state;
        } else if (state == 1 && !Begins(line, ";")) {
            found.push_back(line);
        }
    }
    return found;
}

// The count and the text that a string query gives.
inline std::pair<int, std::string> String(const std::string& bytes, const std::string& section,
                                          const std::string& key, size_t size) {
    std::string value = "d";
    for (const std::string& line : SectionLines(CleanLines(bytes, 2048), section, true)) {
        if (Begins(line, key + "=")) value = line.substr(key.size() + 1);
    }
    if (value.size() <= size) return {static_cast<int>(value.size()), value};
    return {static_cast<int>(size) - 2, value.substr(0, size - 1)};
}

inline int Int(const std::string& bytes, const std::string& section, const std::string& key) {
    int value = 5;
    for (const std::string& line : SectionLines(CleanLines(bytes, 512), section, false)) {
        if (!Begins(line, key + "=")) continue;
        size_t at = key.size() + 1;
        while (IsSpace(line[at])) ++at;
        const bool negative = line[at] == '-';
        if (negative || line[at] == '+') ++at;
        const size_t digits = at;
        long long number = 0;
        for (; line[at] >= '0' && line[at] <= '9'; ++at) {
            number = std::min(number * 10 + (line[at] - '0'), 1LL << 40);
        }
        if (negative) number = -number;
        if (at > digits) value = static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX));
    }
    return value;
}

// The offset and the list that a query for the names gives.
inline std::pair<int, std::string> Names(const std::string& bytes, size_t size) {
    std::string list;
    bool first = true;
    for (const std::string& line : CleanLines(bytes, 1024)) {
        if (!Begins(line, "[")) continue;
        const std::string name = line.substr(1, line.find(']') - 1);
        if (size <= list.size() + name.size() + 1) break;
        list += first ? name : '\0' + name;
        first = false;
    }
    const auto offset = static_cast<int>(list.size());
    list.resize(size);
    return {offset, list};
}

inline std::string Write(const std::string& bytes, const std::string& section,
                         const std::string& key, const std::string& value) {
    if (section.empty() || key.empty() || value.empty()) return bytes;
    const std::string entry = key + "=" + value + "\n";
    std::string out;
    int state = 0;
    bool written = false;
    for (const std::string& line : Cut(bytes, 511)) {
        const std::string text = line.c_str();
        if (Begins(text, "[") && Has(text, "]")) {
            if (state == 1 || Has(text, ("[" + section + "]").substr(0, 511))) ++state;
            if (state == 2 && !written) {
                out += entry;
                written = true;
            }
        } else if (state == 1 && !text.empty() && !Has("; \n\r#[", text.substr(0, 1)) &&
                   Begins(text, (key + "=").substr(0, 511))) {
            out += entry;
            written = true;
            continue;
        }
        out += line;
    }
    if (written) return out;
    // The last line is one even without its line feed.
    return out + (out.empty() || out.back() == '\n' ? "" : "\n") + entry;
}

}  // namespace profile_model
