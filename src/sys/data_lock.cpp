#include "sys/data_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <vector>

namespace patrol {
namespace {

constexpr int64_t kWaitInAll = 10'000'000'000;  // nanoseconds
constexpr useconds_t kPause = 2000;             // microseconds between two tries

// What is left of it, and the directories that are locked now.
int64_t wait_left = kWaitInAll;
std::vector<std::string> locked;

int64_t Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

Descriptor OpenDirectory(const char* path) {
    return Descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Takes the lock on an open directory. Returns 0 or the errno of the failure. Tries again and again
// instead of waiting in the call: a limit would take an alarm, which every other wait would have to
// tell from its own.
int TakeLock(int directory) {
    const int64_t began = Now();
    const int64_t end = began + wait_left;
    int error = 0;
    // Not lockf, whose locks a process loses when it closes any descriptor of the same directory.
    while (flock(directory, LOCK_EX | LOCK_NB) != 0) {
        error = errno;
        if ((error != EWOULDBLOCK && error != EINTR) || Now() >= end) break;
        usleep(kPause);
        error = 0;
    }
    wait_left = std::max<int64_t>(wait_left - (Now() - began), 0);
    // Elsewhere a lock is worth waiting for; here there is none to be had.
    return error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS || error == EINVAL ? 0 : error;
}

}  // namespace

std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return path.substr(0, std::max<size_t>(slash, 1));
}

DataLock::DataLock(const char* path) : directory_(DirectoryOf(path)) {
    if (std::find(locked.begin(), locked.end(), directory_) == locked.end()) {
        lock_ = OpenDirectory(directory_.c_str());
        if (lock_.ok()) {
            error_ = TakeLock(lock_.get());
        } else {
            call_ = "open";
            error_ = errno;
        }
    }
    if (held()) locked.push_back(directory_);
}

DataLock::~DataLock() {
    if (held()) locked.erase(std::find(locked.begin(), locked.end(), directory_));
}

bool ClaimRun(const char* directory, int mode) {
    static Descriptor claim;
    // Two runs that look and claim at the same time would both find nobody.
    const DataLock turn((std::string(directory) + "/").c_str());
    claim = OpenDirectory(directory);
    if (!claim.ok()) return true;
    // A directory cannot be opened for writing, which a lock that excludes others needs. A shared
    // one does as well, once it is asked whether an excluding one would meet it.
    struct flock question = {};
    question.l_type = F_WRLCK;
    question.l_whence = SEEK_SET;
    question.l_start = mode;
    question.l_len = 1;
    struct flock mark = question;
    mark.l_type = F_RDLCK;
    if (fcntl(claim.get(), F_OFD_GETLK, &question) == 0 && question.l_type != F_UNLCK) return false;
    fcntl(claim.get(), F_OFD_SETLK, &mark);
    return true;
}

}  // namespace patrol
