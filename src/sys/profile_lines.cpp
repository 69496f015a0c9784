#include "sys/profile_lines.h"

#include <cerrno>
#include <cstdio>

#include "sys/deferred_writes.h"

namespace patrol {
namespace {

constexpr int kAttempts = 4;
// No settings file comes near; a damaged one is not to take all memory.
constexpr off_t kMaxSize = off_t{16} << 20;
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

}  // namespace

Stream rf_fileopen(const char* path, const char* mode) {
    const std::string closing_mode = std::string(mode) + "e";
    Stream stream;
    for (int i = 0; i < kAttempts && stream == nullptr; ++i) {
        stream.reset(std::fopen(path, closing_mode.c_str()));
    }
    return stream;
}

bool rf_filegets(std::string* line, size_t size, std::string_view* rest) {
    const std::string_view piece = TakePiece(rest, size - 1);
    if (piece.empty()) return false;
    line->assign(piece.substr(0, piece.find('\0')));
    const auto is_line_end = [](char c) { return c == '\r' || c == '\n'; };
    line->erase(std::remove_if(line->begin(), line->end(), is_line_end), line->end());
    line->erase(line->find_last_not_of(kWhiteSpace) + 1);
    line->erase(0, std::min(line->find_first_not_of(kWhiteSpace), line->size()));
    return true;
}

int rf_fileclose(Stream stream) { return std::fclose(stream.release()) == 0 ? 0 : 1; }

bool LoadProfile(const char* path, std::string* bytes, struct stat* status) {
    FlushDeferredWrites(path);
    bytes->clear();
    // Looked at before it is opened: a named pipe in its place would hold this program up until
    // somebody writes to it.
    struct stat found = {};
    const bool there = stat(path, &found) == 0;
    if (status != nullptr) *status = found;
    if (!there) return false;
    if (!S_ISREG(found.st_mode) || found.st_size > kMaxSize) {
        errno = S_ISREG(found.st_mode) ? EFBIG : EINVAL;
        return false;
    }
    Stream stream = rf_fileopen(path, "r");
    if (stream == nullptr) return false;
    char piece[16384];
    int failures = 0;
    int error = 0;
    while (std::feof(stream.get()) == 0 && failures < kAttempts) {
        bytes->append(piece, std::fread(piece, 1, sizeof piece, stream.get()));
        if (std::ferror(stream.get()) != 0) {
            ++failures;
            error = errno != 0 ? errno : EIO;
            std::clearerr(stream.get());
            // Where a failed read leaves the stream is not said anywhere.
            std::fseek(stream.get(), static_cast<long>(bytes->size()), SEEK_SET);
        }
    }
    const bool whole = std::feof(stream.get()) != 0;
    rf_fileclose(std::move(stream));
    if (!whole) errno = error;
    return whole;
}

std::string_view TakePiece(std::string_view* rest, size_t limit) {
    std::string_view piece = rest->substr(0, limit);
    const size_t line_feed = piece.find('\n');
    if (line_feed != std::string_view::npos) piece = piece.substr(0, line_feed + 1);
    rest->remove_prefix(piece.size());
    return piece;
}

std::string SectionPattern(std::string_view section, size_t limit) {
    return ("[" + std::string(section) + "]").substr(0, limit);
}

std::string KeyPattern(std::string_view key, size_t limit) {
    return (std::string(key) + "=").substr(0, limit);
}

}  // namespace patrol
