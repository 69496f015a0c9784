// A test program's own log: generations of bounded size in the directory named by "KVX_log".

#ifndef TESTPROG_LOG_FILE_H_
#define TESTPROG_LOG_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace testprog {

class LogFile {
 public:
    // Lines go to "DIRECTORY/NAME.0.log", older generations are ".1.log" and up, `generations`
    // in all, each of at most `max_kib` KiB (or one line, should that be longer). Without a
    // directory, with no generations or no size, nothing is kept and nothing fails. The file is
    // opened for each line, so that it may be moved away between lines.
    LogFile(std::string directory, std::string name, std::uint64_t max_kib,
            std::uint64_t generations);

    // Appends one line, stamped with time and process id; its control characters are dropped.
    // Returns true when a new generation was begun for it. A file that cannot be written, or is
    // full and cannot be moved away, loses the line: a test does not fail for its log.
    bool Append(std::string_view text) const;

 private:
    std::string Path(std::uint64_t generation) const;
    // Moves every generation up by one; the oldest falls out.
    bool Rotate() const;

    std::string directory_;
    std::string name_;
    std::uint64_t max_size_;
    std::uint64_t generations_;
};

}  // namespace testprog

#endif  // TESTPROG_LOG_FILE_H_
