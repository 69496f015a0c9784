#include "sys/replace_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "base/text.h"

namespace patrol {
namespace {

constexpr size_t kMaxName = 4095;
constexpr char kSideSuffix[] = ".new";  // followed by a full stop and the process id

// The name under which this process makes the successor of `path`.
std::string TemporaryName(const std::string& path) {
    const std::string own = kSideSuffix + ("." + std::to_string(getpid()));
    return path.substr(0, kMaxName - own.size()) + own;
}

// Removes what killed processes left of successors of `path`. Nobody else is making one: the caller
// has the lock.
void RemoveStale(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1) + kSideSuffix;
    const std::string directory = DirectoryOf(path);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    if (entries == nullptr) return;
    while (const dirent* entry = readdir(entries.get())) {
        const std::string_view found = entry->d_name;
        if (!StartsWith(found, name)) continue;
        const std::string_view rest = found.substr(name.size());
        const bool numbered = StartsWith(rest, ".") && rest.size() > 1 &&
                              rest.find_first_not_of("0123456789", 1) == std::string_view::npos;
        if (rest.empty() || numbered) unlinkat(dirfd(entries.get()), entry->d_name, 0);
    }
}

// Returns whether a file may take the place of what stands at `path`: a regular file, described in
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
    : lock_(path), path_(path), temporary_(TemporaryName(path_)) {
    struct stat status = {};
    if (!lock_.held()) {
        Fail(lock_.call(), lock_.error());
    } else if (!Replaceable(path, &status)) {
        Fail("stat", errno);
    } else {
        RemoveStale(path_);
        stream_ = OpenNew(temporary_.c_str(), 0666);
        created_ = stream_ != nullptr;
        if (!created_) Fail("open", errno);
        if (created_ && status.st_nlink > 0) fchmod(fileno(stream_.get()), status.st_mode & 0775);
    }
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
    if (!Finish()) return false;
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) return Fail("rename", errno);
    created_ = false;
    return true;
}

// The bytes are brought to the disk before the rename. A file system may do the two in the other
// order, and a power cut in between would leave an empty file under the name.
bool FileReplacement::Finish() {
    if (stream_ != nullptr) {
        if (std::fflush(stream_.get()) != 0 || std::ferror(stream_.get()) != 0) {
            Fail("write", errno);
        } else if (fsync(fileno(stream_.get())) != 0) {
            Fail("fsync", errno);
        }
        if (std::fclose(stream_.release()) != 0) Fail("close", errno);
    }
    return failure_.call == nullptr;
}

bool FileReplacement::Fail(const char* call, int error) {
    if (failure_.call == nullptr) failure_ = {call, error};
    return false;
}

// Two names for one file take no room and no time. They can share it because nothing here writes
// into a file that has its place; it is only ever replaced.
bool LinkInPlace(const std::string& path, const std::string& link_path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.ok() || fsync(file.get()) != 0) return false;
    RemoveStale(link_path);
    const std::string temporary = TemporaryName(link_path);
    if (link(path.c_str(), temporary.c_str()) != 0) return false;
    const bool renamed = std::rename(temporary.c_str(), link_path.c_str()) == 0;
    // Still there where both names meant the same file already.
    unlink(temporary.c_str());
    return renamed;
}

bool SyncDirectory(const std::string& path) {
    const Descriptor directory(open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // EINVAL: there is nothing to be synced on this file system.
    return directory.ok() && (fsync(directory.get()) == 0 || errno == EINVAL);
}

}  // namespace patrol
