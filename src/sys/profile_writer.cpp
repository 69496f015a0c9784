#include "sys/profile_writer.h"

#include <unistd.h>

#include <cstring>
#include <iterator>

#include "base/text.h"
#include "sys/replace_file.h"

namespace patrol {
namespace {

constexpr size_t kMaxPiece = 511;    // of a line; a longer one counts as several
constexpr size_t kMaxPattern = 511;  // of a section or key

bool Empty(const char* text) { return text == nullptr || text[0] == '\0'; }

// The piece as the text functions see it: up to its first NUL.
std::string BeforeNul(const std::string& piece) { return piece.substr(0, piece.find('\0')); }

bool IsHeader(const std::string& piece) {
    return piece[0] == '[' && BeforeNul(piece).find(']') != std::string::npos;
}

// Whether the line is copied as it stands, whatever it holds.
bool IsPassedOver(const std::string& piece) { return std::strchr("; \n\r#[", piece[0]) != nullptr; }

// Makes `old_path` a second name of the file at `path`. False where links are refused.
bool LinkAs(const std::string& path, const std::string& old_path) {
    const std::string temporary = SideName(old_path.c_str(), ".new");
    unlink(temporary.c_str());
    if (link(path.c_str(), temporary.c_str()) != 0) return false;
    const bool renamed = std::rename(temporary.c_str(), old_path.c_str()) == 0;
    // Still there where both names meant the same file already.
    unlink(temporary.c_str());
    return renamed;
}

}  // namespace

ProfileWriter::ProfileWriter(const char* path) : path_(path) {
    std::string bytes;
    loaded_ = LoadProfile(path, &bytes);
    if (!loaded_) return;
    std::string_view rest = bytes;
    while (!rest.empty()) {
        lines_.emplace_back(TakePiece(&rest, kMaxPiece));
        const auto last = std::prev(lines_.end());
        if (IsHeader(*last)) headers_.Add(BeforeNul(*last), last);
    }
}

void ProfileWriter::Write(const char* section, const char* key, const char* value) {
    if (!loaded_ || Empty(section) || Empty(key) || Empty(value)) return;
    if (pending_.has_value()) Apply(*pending_);
    pending_ = Entry{SectionPattern(section, kMaxPattern), KeyPattern(key, kMaxPattern),
                     std::string(key) + "=" + value + "\n"};
    ++writes_;
}

bool ProfileWriter::Save() {
    if (!pending_.has_value()) return loaded_;
    const std::string before = Join();
    Apply(*pending_);
    pending_.reset();

    FileReplacement fresh(path_.c_str());
    if (!fresh.Write(Join())) return false;
    const std::string old_path = SideName(path_.c_str(), ".old");
    // A single write keeps the very file that stands there.
    if (writes_ == 1 && LinkAs(path_, old_path)) return fresh.Commit();
    FileReplacement kept(old_path.c_str());
    // Where there is no room for what stood there before the last write, the file as it is will do:
    // a backup that is a little older is better than one that is half written.
    if (!kept.Write(before)) LinkAs(path_, old_path);
    if (!fresh.Commit()) return false;
    kept.Commit();
    return true;
}

void ProfileWriter::Apply(const Entry& entry) {
    bool written = false;
    // Where a new line goes: the end of the section, or that of the file.
    auto end = lines_.end();
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

bool KeepProfileAsOld(const char* path) {
    const std::string old_path = SideName(path, ".old");
    if (LinkAs(path, old_path)) return true;
    std::string bytes;
    FileReplacement kept(old_path.c_str());
    return LoadProfile(path, &bytes) && kept.Write(bytes) && kept.Commit();
}

}  // namespace patrol
