#include "text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/file.h"

namespace agent {
namespace {

// False on a failed read; `bytes` then holds what came before.
bool ReadUpTo(int fd, size_t limit, std::string* bytes) {
    char piece[4096];
    while (bytes->size() < limit) {
        const size_t wanted = std::min(sizeof piece, limit - bytes->size());
        const ssize_t got = read(fd, piece, wanted);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;
        bytes->append(piece, static_cast<size_t>(got));
    }
    return true;
}

}  // namespace

std::string Clean(std::string_view text, size_t limit) {
    constexpr std::string_view kBlanks(" \t\r\n\v\f\0", 7);
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    text = text.substr(first, text.find_last_not_of(kBlanks) + 1 - first).substr(0, limit);
    std::string clean(text);
    for (char& c : clean) {
        if (c < ' ' || c > '~') c = '?';
    }
    return clean;
}

std::string ReadWord(const std::string& path, size_t skip) {
    constexpr size_t kLimit = 4096;
    const patrol::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string bytes;
    if (file.get() < 0 || !ReadUpTo(file.get(), kLimit, &bytes)) return {};
    return Clean(std::string_view(bytes).substr(std::min(skip, bytes.size())));
}

std::optional<std::string> ReadRegularFile(const std::string& path, size_t limit) {
    const patrol::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    std::string bytes;
    if (file.get() < 0 || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !ReadUpTo(file.get(), limit, &bytes)) {
        return std::nullopt;
    }
    return bytes;
}

std::string EscapeXml(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

}  // namespace agent
