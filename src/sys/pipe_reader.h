// Reading what a child writes, through the wait that lets signals in.
#pragma once

#include <cstddef>

namespace patrol {

// Reads ahead from a pipe that it does not own: records are taken in small parts, and a call to the
// system for each part would cost more than the work on it.
class PipeReader {
 public:
    explicit PipeReader(int fd) : fd_(fd) {}

    // Reads until `size` bytes are there, the pipe ends, a read fails or a signal ends the wait.
    // Returns how many bytes came.
    size_t Read(char* to, size_t size);

    // Reads one line with its line feed, or `size` - 1 characters of it where it is longer, and
    // ends it with NUL. False when nothing came: the pipe ended, or `interrupted`.
    bool ReadLine(char* to, size_t size);

    // Whether a signal ended the last wait.
    bool interrupted() const { return interrupted_; }

 private:
    bool Fill();

    int fd_;
    size_t at_ = 0;
    size_t end_ = 0;
    bool interrupted_ = false;
    char ahead_[16384];
};

}  // namespace patrol
