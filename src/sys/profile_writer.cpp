#include "sys/profile_writer.h"

#include <cerrno>
#include <cstring>
#include <iterator>

#include "base/text.h"
#include "msg/call_failure.h"
#include "sys/replace_file.h"

namespace patrol {
namespace {

constexpr size_t kMaxPiece = 511;    // of a line; a longer one counts as several
constexpr size_t kMaxPattern = 511;  // of a section or key

bool Empty(const char* text) { return text == nullptr || text[0] == '\0'; }

// The piece as the text functions see it: up to its first NUL.
std::string BeforeNul(const std::string& piece) { return piece.substr(0, piece.find('\0')); }

// Unlike the readers of numbers, this takes no "[" for a header that nothing closes.
bool IsHeader(const std::string& piece) {
    return piece[0] == '[' && BeforeNul(piece).find(']') != std::string::npos;
}

// Returns whether the line is copied as it stands, whatever it holds.
bool IsPassedOver(const std::string& piece) { return std::strchr("; \n\r#[", piece[0]) != nullptr; }

}  // namespace

// The file is kept as the pieces it was cut into, so that every byte which is not written to stays
// as it is: comments, blanks, odd line ends.
ProfileWriter::ProfileWriter(const char* path) : lock_(path), path_(path) {
    std::string bytes;
    if (!lock_.held()) {
        failure_ = {lock_.call(), lock_.error()};
    } else if (!LoadProfile(path, &bytes)) {
        failure_ = {"read", errno};
    }
    if (!Loaded()) return;
    std::string_view rest = bytes;
    while (!rest.empty()) {
        lines_.emplace_back(TakePiece(&rest, kMaxPiece));
        const auto last = std::prev(lines_.end());
        if (IsHeader(*last)) headers_.Add(BeforeNul(*last), last);
    }
}

void ProfileWriter::Write(const char* section, const char* key, const char* value) {
    if (Empty(section) || Empty(key) || Empty(value)) return;
    ++writes_;
    if (!Loaded()) return;
    // The write before is certain not to be the last. This one may be, and what stood there before
    // it becomes the backup.
    if (pending_.has_value()) Apply(*pending_);
    pending_ = Entry{SectionPattern(section, kMaxPattern), KeyPattern(key, kMaxPattern),
                     std::string(key) + "=" + value + "\n"};
}

bool ProfileWriter::Save() {
    if (!Loaded()) return writes_ == 0;
    if (!pending_.has_value()) return true;
    const std::string before = Join();
    Apply(*pending_);
    pending_.reset();

    FileReplacement fresh(path_.c_str());
    const std::string old_path = SideName(path_.c_str(), ".old");
    bool placed = fresh.Write(Join());
    // A single write keeps the very file that stands there.
    if (placed && writes_ == 1 && LinkInPlace(path_, old_path)) {
        placed = fresh.Commit();
    } else if (placed) {
        FileReplacement kept(old_path.c_str());
        // Where there is no room for what stood there before the last write, the file as it is will
        // do: a backup that is a little older is better than one that is half written.
        if (!kept.Write(before)) LinkInPlace(path_, old_path);
        placed = fresh.Commit();
        if (placed) kept.Commit();
    }
    failure_ = fresh.failure();
    if (placed && !SyncDirectory(path_)) failure_ = {"fsync", errno};
    return failure_.call == nullptr;
}

void ProfileWriter::SaveOrReport(const char* caller) {
    if (Save()) return;
    ReportFileTrouble(caller, "update", path_.c_str(), failure_.call, failure_.error);
}

void ProfileWriter::Apply(const Entry& entry) {
    bool written = false;
    // Where a new line goes: the end of the section, or that of the file.
    auto end = lines_.end();
    // Of a section that stands there twice the first is written to, as it is the one that is read.
    if (const auto header = headers_.Find(entry.section); header.has_value()) {
        for (end = std::next(*header); end != lines_.end() && !IsHeader(*end); ++end) {
            if (IsPassedOver(*end) || !StartsWith(*end, entry.key)) continue;
            *end = entry.line;
            written = true;
        }
    }
    if (!written) Insert(end, entry.line);
}

void ProfileWriter::Insert(Lines::iterator at, const std::string& line) {
    // A last line without a line feed is a line of its own all the same.
    if (at == lines_.end() && !lines_.empty() && lines_.back().back() != '\n') {
        if (lines_.back().size() == kMaxPiece) {
            lines_.emplace_back("\n");
        } else {
            lines_.back() += '\n';
        }
    }
    lines_.insert(at, line);
}

std::string ProfileWriter::Join() const {
    std::string bytes;
    for (const std::string& line : lines_) bytes += line;
    return bytes;
}

bool KeepProfileAs(const char* path, const std::string& kept_path) {
    const DataLock lock(path);
    if (!lock.held()) return false;
    if (LinkInPlace(path, kept_path)) return SyncDirectory(path);
    std::string bytes;
    FileReplacement kept(kept_path.c_str());
    return LoadProfile(path, &bytes) && kept.Write(bytes) && kept.Commit() && SyncDirectory(path);
}

}  // namespace patrol
