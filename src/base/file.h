// Handles that close themselves. Everything opened here is close-on-exec.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

namespace patrol {

struct StreamCloser {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// Opens a regular file for reading. Returns null with errno set on failure; a device that never
// ends, or a named pipe that nobody writes to, is no regular file.
Stream OpenForReading(const char* path);

// Opens `path` for appending, or for writing from its start, and makes it where it is missing.
// Returns null with errno set on failure; a named pipe that nobody reads is one.
Stream OpenForAppending(const char* path);
Stream OpenForWriting(const char* path);

// Makes a new file with `mode` and opens it for writing. Returns null with errno set on failure;
// anything that stands at `path` already, be it a link that leads nowhere, is one (EEXIST).
Stream OpenNew(const char* path, mode_t mode);

// Returns whether a call on a file failed for a reason of the moment (no memory or descriptors
// left, a device that does not answer), so that it says nothing about the file.
bool IsPassing(int error);

// Returns whether something stands at `path`. Where the system fails to tell, something does: what
// cannot be looked at now is not to be made anew.
bool FileExists(const char* path);

// Has the files that this process makes from now on writable for their owner alone.
void ProtectNewFiles();

// The file mask that this process was started with.
mode_t StartFileMask();

// A descriptor that is closed when its holder goes. -1 is none.
class Descriptor {
 public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~Descriptor() { Reset(-1); }

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    int Release() { return std::exchange(fd_, -1); }
    void Reset(int fd);

 private:
    int fd_ = -1;
};

// Writes all of `bytes`, going on after a short or interrupted write. False with errno set when
// that fails; `*written`, if given, is how many bytes were taken either way.
bool WriteAll(int fd, std::string_view bytes, size_t* written = nullptr);

}  // namespace patrol
