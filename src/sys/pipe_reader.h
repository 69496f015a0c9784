// Reading what a child writes, through the wait that lets signals in.
#pragma once

#include <cstddef>

#include "base/signals.h"

namespace patrol {

// Reads ahead from a pipe that it does not own: records are taken in small parts, and a call to the
// system for each part would cost more than the work on it.
class PipeReader {
 public:
    // The wait for what comes from `fd` begins here.
    explicit PipeReader(int fd) : fd_(fd) {}

    // Reads until `size` bytes are there, the pipe ends, a read fails or, with nothing to read, a
    // signal of this wait ends it. Returns how many bytes came.
    size_t Read(char* to, size_t size);

    // Reads one line with its line feed, or `size` - 1 characters of it where it is longer, and
    // ends it with NUL. Returns false when nothing came: the pipe ended, or `interrupted`.
    bool ReadLine(char* to, size_t size);

    // Returns whether a signal ended the last wait.
    bool interrupted() const { return interrupted_; }

    // What the wait goes by. It may go on behind the end of the pipe.
    const SignalWatch& watch() const { return watch_; }

 private:
    bool Fill();

    SignalWatch watch_;
    int fd_;
    size_t at_ = 0;
    size_t end_ = 0;
    bool interrupted_ = false;
    char ahead_[16384];
};

}  // namespace patrol
