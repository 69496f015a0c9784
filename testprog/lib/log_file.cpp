#include "lib/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "lib/record.h"

namespace testprog {

namespace {

// More generations than anybody keeps; a damaged setting must not rename for hours.
constexpr uint64_t kMaxGenerations = 100;

}  // namespace

LogFile::LogFile(std::string directory, std::string name, uint64_t max_kib, uint64_t generations)
    : directory_(std::move(directory)),
      name_(std::move(name)),
      max_size_(max_kib * 1024),
      generations_(std::min(generations, kMaxGenerations)) {}

std::string LogFile::Path(uint64_t generation) const {
    return directory_ + "/" + name_ + "." + std::to_string(generation) + ".log";
}

bool LogFile::Rotate() const {
    if (generations_ == 1) return unlink(Path(0).c_str()) == 0;
    for (uint64_t i = generations_ - 1; i > 1; --i) {
        std::rename(Path(i - 1).c_str(), Path(i).c_str());  // a gap among the old ones is none
    }
    return std::rename(Path(0).c_str(), Path(1).c_str()) == 0;
}

bool LogFile::Append(std::string_view text) const {
    if (directory_.empty() || max_size_ == 0 || generations_ == 0) return false;
    const std::string line = Format("%s %d %s\n", TimeStamp().c_str(), static_cast<int>(getpid()),
                                    Printable(text).c_str());
    struct stat current = {};
    const bool full = stat(Path(0).c_str(), &current) == 0 && current.st_size > 0 &&
                      static_cast<uint64_t>(current.st_size) + line.size() > max_size_;
    const bool rotated = full && Rotate();
    if (full && !rotated) return false;
    // Not to wait for the other end should a pipe stand in the file's place.
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    const int fd = open(Path(0).c_str(), kFlags, 0644);
    if (fd < 0) return rotated;
    [[maybe_unused]] const ssize_t written = write(fd, line.data(), line.size());
    close(fd);
    return rotated;
}

}  // namespace testprog
