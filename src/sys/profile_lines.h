// The lines of a profile: what reading and writing share.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/file.h"

namespace patrol {

// The stream routines underneath. rf_fileopen tries four times; null when none succeeds.
// rf_filegets takes the next line from `rest`, at most size - 1 characters, and cleans it; false at
// the end. rf_fileclose returns 0, or 1 when the stream failed to close; it is gone either way, so
// there is no second attempt.
Stream rf_fileopen(const char* path, const char* mode);
bool rf_filegets(std::string* line, size_t size, std::string_view* rest);
int rf_fileclose(Stream stream);

// Reads the whole of a regular file, after the writes to it that were put off. Returns false when
// it is none (errno EINVAL), is larger than 16 MiB (EFBIG), cannot be opened or a read fails for
// good; `bytes` then holds what was read. `status`, where given, is the file's before it was read,
// cleared where there is none.
bool LoadProfile(const char* path, std::string* bytes, struct stat* status = nullptr);

// Takes the next line of `rest` with its line feed, at most `limit` characters of it. Empty at the
// end.
std::string_view TakePiece(std::string_view* rest, size_t limit);

// "[section]" and "key=", cut at `limit` characters.
std::string SectionPattern(std::string_view section, size_t limit);
std::string KeyPattern(std::string_view key, size_t limit);

// The header lines of a profile, each with what the caller knows its line by.
//
// A section is opened by the first header that contains its pattern anywhere. A plain name is found
// by hash, for Schedule files have a section for each of hundreds of disks; a name with brackets in
// it, or one so long that its pattern was cut, is searched for.
template <class Line>
class HeaderIndex {
 public:
    void Add(const std::string& header, Line line) {
        headers_.emplace_back(header, line);
        for (size_t open = header.find('['); open != std::string::npos;
             open = header.find('[', open + 1)) {
            const size_t next = header.find_first_of("[]", open + 1);
            if (next == std::string::npos) return;
            // The first of several headers for a name stays.
            if (header[next] == ']') plain_.emplace(header.substr(open, next - open + 1), line);
        }
    }

    // The line of the header that opens the section of `pattern`.
    std::optional<Line> Find(const std::string& pattern) const {
        if (pattern.find_first_of("[]", 1) == pattern.size() - 1) {
            const auto found = plain_.find(pattern);
            if (found == plain_.end()) return std::nullopt;
            return found->second;
        }
        const auto found = std::find_if(headers_.begin(), headers_.end(), [&](const auto& entry) {
            return entry.first.find(pattern) != std::string::npos;
        });
        if (found == headers_.end()) return std::nullopt;
        return found->second;
    }

 private:
    std::vector<std::pair<std::string, Line>> headers_;
    std::unordered_map<std::string, Line> plain_;  // "[name]" without a bracket in the name
};

}  // namespace patrol
