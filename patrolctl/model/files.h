// Reading files that others write, and that may be anything.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace patrolctl {

struct FileText {
    std::string text;
    int error = 0;     // errno of what failed; 0 when all of it was read
    bool cut = false;  // there is more than was asked for

    bool missing() const;
    // Why the text is not whole, in words; empty when it is.
    std::string Fault() const;
};

// The first `limit` bytes of a regular file; nothing else is opened. `flags` are more for open.
FileText ReadText(const std::string& path, size_t limit, int flags = 0);

// Why the file, which is there, cannot be read; empty when it can, or is not there.
std::string WhyUnreadable(const std::string& path);

// Why nothing can be found in a directory; empty when it can.
std::string WhyClosed(const std::string& directory);

// The last `limit` bytes of the first `end` of an open file.
std::string ReadTail(int fd, long long end, size_t limit);

// Calls `take` with each line without its line feed and its number from 1 on.
void ForEachLine(std::string_view text,
                 const std::function<void(std::string_view line, size_t number)>& take);

// "FOLDER/NAME", and "PATH: WHAT" of what there is to say of a file.
std::string PathIn(const std::string& folder, const std::string& name);
std::string Said(const std::string& path, const std::string& what);

bool BeginsWith(std::string_view text, std::string_view start);
bool EndsWith(std::string_view text, std::string_view end);

}  // namespace patrolctl
