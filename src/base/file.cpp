#include "base/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace patrol {

namespace {

// Without O_NONBLOCK the opening of a named pipe would wait for its other end.
constexpr int kWriteFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// Opens through a descriptor, as fopen has no way to ask for these flags.
Stream OpenWith(const char* path, int flags, const char* mode) {
    Descriptor file(open(path, flags, 0666));
    FILE* stream = file.ok() ? fdopen(file.get(), mode) : nullptr;
    if (stream != nullptr) file.Release();
    return Stream(stream);
}

}  // namespace

Stream OpenForReading(const char* path) {
    Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    // Looked at behind the opening, so that nothing can take its place in between.
    struct stat status = {};
    if (!file.ok() || fstat(file.get(), &status) != 0) return nullptr;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return nullptr;
    }
    FILE* stream = fdopen(file.get(), "r");
    if (stream != nullptr) file.Release();
    return Stream(stream);
}

Stream OpenForAppending(const char* path) { return OpenWith(path, kWriteFlags | O_APPEND, "a"); }

Stream OpenForWriting(const char* path) { return OpenWith(path, kWriteFlags | O_TRUNC, "w"); }

Stream OpenNew(const char* path, mode_t mode) {
    Descriptor file(open(path, kWriteFlags | O_EXCL | O_NOFOLLOW, mode));
    FILE* stream = file.ok() ? fdopen(file.get(), "w") : nullptr;
    if (stream != nullptr) {
        file.Release();
    } else if (file.ok()) {
        // A file without a stream is of no use, and nobody else knows that it is there.
        unlink(path);
    }
    return Stream(stream);
}

bool IsPassing(int error) {
    return error == EIO || error == ENOMEM || error == EMFILE || error == ENFILE ||
           error == EINTR || error == ESTALE || error == ETIMEDOUT;
}

bool FileExists(const char* path) { return access(path, F_OK) == 0 || IsPassing(errno); }

void ProtectNewFiles() { umask(StartFileMask() | S_IWGRP | S_IWOTH); }

mode_t StartFileMask() {
    static const mode_t mask = [] {
        // There is no way to ask for it alone.
        const mode_t found = umask(S_IWGRP | S_IWOTH);
        umask(found);
        return found;
    }();
    return mask;
}

void Descriptor::Reset(int fd) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
}

bool WriteAll(int fd, std::string_view bytes, size_t* written) {
    size_t done = 0;
    bool good = true;
    while (good && done < bytes.size()) {
        const ssize_t taken = write(fd, bytes.data() + done, bytes.size() - done);
        if (taken > 0) {
            done += static_cast<size_t>(taken);
        } else if (taken == 0 || errno != EINTR) {
            // A write of nothing says nothing in errno, and would be repeated for ever.
            if (taken == 0) errno = EIO;
            good = false;
        }
    }
    if (written != nullptr) *written = done;
    return good;
}

}  // namespace patrol
