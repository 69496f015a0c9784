#include "sys/replace_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace patrol {
namespace {

constexpr size_t kMaxName = 4095;

// Whether a file may take the place of what stands at `path`: a regular file, described in
// `*status`, or nothing yet, which leaves it cleared.
bool Replaceable(const char* path, struct stat* status) {
    if (stat(path, status) != 0) return errno == ENOENT;
    if (!S_ISREG(status->st_mode)) {
        errno = S_ISDIR(status->st_mode) ? EISDIR : EINVAL;
        return false;
    }
    return true;
}

}  // namespace

std::string SideName(const char* path, const char* suffix) {
    return (std::string(path) + suffix).substr(0, kMaxName);
}

FileReplacement::FileReplacement(const char* path)
    : path_(path), temporary_(SideName(path, ".new")) {
    struct stat status = {};
    if (!Replaceable(path, &status)) return;
    // A killed run may have left it, even as a second name of the file that is to be kept.
    unlink(temporary_.c_str());
    stream_ = OpenForWriting(temporary_.c_str());
    created_ = stream_ != nullptr;
    if (created_ && status.st_nlink > 0) fchmod(fileno(stream_.get()), status.st_mode & 0777);
}

FileReplacement::~FileReplacement() {
    stream_.reset();
    if (created_) unlink(temporary_.c_str());
}

bool FileReplacement::Write(std::string_view bytes) {
    if (stream_ == nullptr) return false;
    std::fwrite(bytes.data(), 1, bytes.size(), stream_.get());
    return Finish();
}

bool FileReplacement::Commit() {
    if (!Finish() || std::rename(temporary_.c_str(), path_.c_str()) != 0) return false;
    created_ = false;
    return true;
}

bool FileReplacement::Finish() {
    if (stream_ != nullptr) {
        const bool written = std::ferror(stream_.get()) == 0;
        finished_ = std::fclose(stream_.release()) == 0 && written;
    }
    return finished_;
}

}  // namespace patrol
