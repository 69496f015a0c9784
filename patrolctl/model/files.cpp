#include "model/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/file.h"

namespace patrolctl {
namespace {

// Reads up to `limit` bytes from where the file stands.
FileText ReadUpTo(int fd, size_t limit) {
    constexpr size_t kPiece = 1 << 16;
    FileText file;
    while (file.text.size() < limit) {
        const size_t had = file.text.size();
        file.text.resize(had + std::min(kPiece, limit - had));
        const ssize_t count = read(fd, file.text.data() + had, file.text.size() - had);
        file.text.resize(had + static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (count == 0) return file;
        if (count < 0 && errno != EINTR) {
            file.error = errno;
            return file;
        }
    }
    char more = 0;
    file.cut = read(fd, &more, 1) > 0;
    return file;
}

}  // namespace

bool FileText::missing() const { return error == ENOENT || error == ENOTDIR; }

std::string FileText::Fault() const {
    if (error == EISDIR) return "is a directory";
    if (error == EINVAL) return "is no regular file";
    if (error != 0) return std::string("cannot be read: ") + std::strerror(error);
    return cut ? "is too large" : "";
}

FileText ReadText(const std::string& path, size_t limit, int flags) {
    FileText file;
    // Opening a pipe or a device without the second flag may wait for ever.
    const patrol::Descriptor fd(
        open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | flags));
    struct stat status = {};
    if (!fd.ok() || fstat(fd.get(), &status) != 0) {
        file.error = errno;
    } else if (!S_ISREG(status.st_mode)) {
        file.error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    } else {
        file = ReadUpTo(fd.get(), limit);
    }
    return file;
}

std::string WhyUnreadable(const std::string& path) {
    FileText file = ReadText(path, 0);
    file.cut = false;
    return file.missing() ? "" : file.Fault();
}

std::string WhyClosed(const std::string& directory) {
    if (access(directory.c_str(), R_OK | X_OK) == 0) return "";
    return std::string("cannot be read: ") + std::strerror(errno);
}

std::string ReadTail(int fd, long long end, size_t limit) {
    const long long from = std::max(0LL, end - static_cast<long long>(limit));
    if (end <= from || lseek(fd, from, SEEK_SET) < 0) return "";
    return ReadUpTo(fd, static_cast<size_t>(end - from)).text;
}

void ForEachLine(std::string_view text,
                 const std::function<void(std::string_view line, size_t number)>& take) {
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        take(text.substr(0, end), number);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

std::string PathIn(const std::string& folder, const std::string& name) {
    return folder + "/" + name;
}

std::string Said(const std::string& path, const std::string& what) { return path + ": " + what; }

bool BeginsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace patrolctl
