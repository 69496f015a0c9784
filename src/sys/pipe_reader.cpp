#include "sys/pipe_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace patrol {

size_t PipeReader::Read(char* to, size_t size) {
    size_t done = 0;
    while (done < size && (at_ < end_ || Fill())) {
        const size_t piece = std::min(size - done, end_ - at_);
        std::memcpy(to + done, ahead_ + at_, piece);
        at_ += piece;
        done += piece;
    }
    return done;
}

bool PipeReader::ReadLine(char* to, size_t size) {
    size_t done = 0;
    while (done + 1 < size && Read(to + done, 1) == 1) {
        if (to[done++] == '\n') break;
    }
    to[done] = '\0';
    return done > 0 && !interrupted_;
}

// Waits for more, whatever comes of it. Returns false at the end of the pipe, a failure or a
// signal.
bool PipeReader::Fill() {
    interrupted_ = WaitReadable(fd_) != 0 && errno == EINTR;
    if (interrupted_) return false;
    const ssize_t got = read(fd_, ahead_, sizeof ahead_);
    at_ = 0;
    end_ = got > 0 ? static_cast<size_t>(got) : 0;
    return got > 0;
}

}  // namespace patrol
