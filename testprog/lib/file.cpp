#include "lib/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <utility>

#include "lib/record.h"

namespace testprog {

namespace {

constexpr auto kLockPause = std::chrono::milliseconds(50);
constexpr size_t kMaxAttribute = 4096;

}  // namespace

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

Descriptor::~Descriptor() {
    if (fd >= 0) close(fd);
}

std::optional<std::string> ReadWhole(const std::string& path, size_t limit, mode_t* mode) {
    // A pipe in the file's place must not keep the program waiting for its other end.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (file.fd < 0 || fstat(file.fd, &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return std::nullopt;
    }
    if (mode != nullptr) *mode = status.st_mode & 07777;
    std::string text;
    std::array<char, 4096> piece = {};
    ssize_t got = 0;
    while ((got = read(file.fd, piece.data(), piece.size())) > 0) {
        text.append(piece.data(), static_cast<size_t>(got));
        if (text.size() > limit) {
            errno = EFBIG;
            return std::nullopt;
        }
    }
    if (got < 0) return std::nullopt;
    return text;
}

std::string ReadAttribute(const std::string& path, size_t skip) {
    std::string text = ReadWhole(path, kMaxAttribute).value_or("");
    text = Printable(text.erase(0, skip));
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

std::vector<int> ReadNumbers(const std::string& path) {
    constexpr int kMost = 1 << 16;
    std::vector<int> numbers;
    std::istringstream list(ReadAttribute(path));
    for (int first = 0; list >> first; list.ignore()) {
        int last = first;
        if (list.peek() == '-') list.ignore() >> last;
        for (last = std::min(last, kMost); first <= last; ++first) numbers.push_back(first);
    }
    return numbers;
}

bool ReplaceWhole(const std::string& path, const std::string& suffix, const std::string& text,
                  mode_t mode) {
    const std::string fresh = path + "." + suffix;
    std::remove(fresh.c_str());
    Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file.fd < 0) return false;
    errno = ENOSPC;  // of a write that is taken in part
    const bool written =
        write(file.fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        fchmod(file.fd, mode) == 0 && fsync(file.fd) == 0 &&
        close(std::exchange(file.fd, -1)) == 0 && std::rename(fresh.c_str(), path.c_str()) == 0;
    if (written) return true;
    const int error = errno;
    std::remove(fresh.c_str());
    errno = error;
    return false;
}

bool LockInTime(int fd, const std::function<bool()>& stop) {
    for (int left = 20; lockf(fd, F_TLOCK, 0) != 0; --left) {
        if ((errno != EAGAIN && errno != EACCES) || left == 0) return false;
        if (stop()) left = std::min(left, 1);
        std::this_thread::sleep_for(kLockPause);
    }
    return true;
}

}  // namespace testprog
