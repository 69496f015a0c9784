// A test program's own log: generations of bounded size in the directory named by "KVX_log".

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace testprog {

class LogFile {
 public:
    // Lines go to "DIRECTORY/NAME.0.log", older generations are ".1.log" and up, `generations`
    // in all, each of at most `max_kib` KiB (or one line, should that be longer). Nothing is kept,
    // and nothing fails, without a directory, generations or a size. The file is opened for each
    // line, so that it may be moved away between lines.
    LogFile(std::string directory, std::string name, uint64_t max_kib, uint64_t generations);

    // Appends one line, stamped with time and process id; its control characters are dropped.
    // Returns true when a new generation was begun for it. A file that cannot be written, or is
    // full and cannot be moved away, loses the line: a test does not fail for its log.
    bool Append(std::string_view text) const;

 private:
    std::string Path(uint64_t generation) const;
    // Moves every generation up by one; the oldest falls out.
    bool Rotate() const;

    std::string directory_;
    std::string name_;
    uint64_t max_size_;
    uint64_t generations_;
};

}  // namespace testprog
