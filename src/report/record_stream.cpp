#include "report/record_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/number.h"
#include "base/paths.h"
#include "base/text.h"
#include "msg/call_failure.h"
#include "report/records.h"

namespace patrol {
namespace {

constexpr size_t kMagicSize = sizeof kRecordMagic - 1;
// One separator stands between the magic and the length.
constexpr size_t kLengthAt = kMagicSize + 1;
constexpr size_t kFirstPiece = 1 << 16;  // of a body

int LengthIn(const char* prefix) { return ParseInt(prefix + kLengthAt, 0); }

}  // namespace

std::optional<int> AnnouncedLength(const char* prefix) {
    if (!StartsWith(prefix, kRecordMagic)) return std::nullopt;
    return LengthIn(prefix);
}

RecordReader::Prefix RecordReader::ReadPrefix(int* length) {
    char prefix[kPrefixSize + 1] = {};
    if (pipe_.Read(prefix, kPrefixSize) != kPrefixSize) return Prefix::kNone;
    const std::optional<int> announced = AnnouncedLength(prefix);
    if (!announced) return Prefix::kStray;
    *length = *announced;
    return Prefix::kFound;
}

// Room is doubled as the bytes come, so that a body of a gigabyte that is only announced takes 64
// KiB.
RecordReader::Body RecordReader::ReadBody(int length) {
    body_.reset();
    size_ = 0;
    if (length < 0) return Body::kShort;
    if (length > kMaxBody) return Body::kNoMemory;
    const auto announced = static_cast<size_t>(length);
    size_t room = 0;
    do {
        // A damaged length is not to take memory that no bytes ever fill.
        room = std::min(announced, std::max(2 * room, kFirstPiece));
        if (!Grow(room)) return Body::kNoMemory;
        size_ += pipe_.Read(body_.get() + size_, room - size_);
        std::memset(body_.get() + size_, 0, kRecordSlack);
    } while (size_ == room && room < announced);
    return size_ == announced ? Body::kWhole : Body::kShort;
}

// Makes room for `size` bytes and the slack. Not by new, whose failure ends the program.
bool RecordReader::Grow(size_t size) {
    char* const old = body_.release();
    char* const grown = static_cast<char*>(std::realloc(old, size + kRecordSlack));
    body_.reset(grown != nullptr ? grown : old);
    return grown != nullptr;
}

int check_pipedata(long* offset) {
    const FileEntry* file = FindFile(kFileTmp);
    if (file->stream != nullptr) std::clearerr(file->stream);
    if (file->stream == nullptr || std::fseek(file->stream, *offset, SEEK_SET) != 0) return -1;
    char line[512];
    long line_start = *offset;
    while (std::fgets(line, sizeof line, file->stream) != nullptr) {
        const char* prefix = std::strstr(line, kRecordMagic);
        if (prefix != nullptr && prefix[kMagicSize] != '\0') {
            const int length = LengthIn(prefix);
            if (length > 0) {
                *offset = line_start + (prefix - line) + static_cast<long>(kPrefixSize);
                return length;
            }
        }
        line_start = std::ftell(file->stream);
    }
    if (std::ferror(file->stream) == 0) return 0;
    CallFailure failure("fgets", errno);
    failure.file = file->path;
    ReportCallFailure(failure);
    return -1;
}

}  // namespace patrol
