#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "base/signals.h"
#include "sys/profile.h"
#include "sys/replace_file.h"

namespace patrol {
namespace {

constexpr size_t kMaxPiece = 511;
constexpr size_t kMaxPattern = 511;

bool Empty(const char* text) { return text == nullptr || text[0] == '\0'; }

// The piece as the text functions see it: up to its first NUL.
std::string BeforeNul(const std::string& piece) { return piece.substr(0, piece.find('\0')); }

bool IsHeader(const std::string& piece) {
    return piece[0] == '[' && BeforeNul(piece).find(']') != std::string::npos;
}

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

struct PutOff {
    std::string section;
    std::string key;
    std::string value;
};

// Writes that are to come, all to one profile.
std::vector<PutOff> put_off;
std::string put_off_path;

void PutAllWrites() { PutProfileWrites(); }

}  // namespace

ProfileWriter::ProfileWriter(const char* path) : path_(path) {
    std::string bytes;
    loaded_ = LoadProfile(path, &bytes);
    if (!loaded_) return;
    std::string_view rest = bytes;
    while (!rest.empty()) {
        lines_.emplace_back(TakePiece(&rest, kMaxPiece));
        const auto last = std::prev(lines_.end());
        if (IsHeader(*last)) IndexHeader(BeforeNul(*last), last, &first_header_);
    }
}

void ProfileWriter::Write(const char* section, const char* key, const char* value) {
    if (!loaded_ || Empty(section) || Empty(key) || Empty(value)) return;
    if (pending_.has_value()) Apply(*pending_);
    pending_ = Entry{("[" + std::string(section) + "]").substr(0, kMaxPattern),
                     (std::string(key) + "=").substr(0, kMaxPattern),
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
    // Before a single write, what must be kept is the very file that stands there.
    if (writes_ == 1 && LinkAs(path_, old_path)) return fresh.Commit();
    FileReplacement kept(old_path.c_str());
    // Where there is no room for what stood there before the last write, the file as it is will do.
    if (!kept.Write(before)) LinkAs(path_, old_path);
    if (!fresh.Commit()) return false;
    kept.Commit();
    return true;
}

void ProfileWriter::Apply(const Entry& entry) {
    const auto header = FindHeader(entry.section);
    bool written = false;
    auto end = header;
    if (header != lines_.end()) {
        for (end = std::next(header); end != lines_.end() && !IsHeader(*end); ++end) {
            if (std::strchr("; \n\r#[", (*end)[0]) != nullptr) continue;
            if (end->compare(0, entry.key.size(), entry.key) != 0) continue;
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

// The header that opens the section; the end when there is none.
ProfileWriter::Lines::iterator ProfileWriter::FindHeader(const std::string& section) {
    if (section.find_first_of("[]", 1) == section.size() - 1) {
        const auto found = first_header_.find(section);
        return found != first_header_.end() ? found->second : lines_.end();
    }
    return std::find_if(lines_.begin(), lines_.end(), [&](const std::string& line) {
        return IsHeader(line) && BeforeNul(line).find(section) != std::string::npos;
    });
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

void WritePrivateProfileString(const char* section, const char* key, const char* value,
                               const char* path) {
    ProfileWriter writer(path);
    writer.Write(section, key, value);
    writer.Save();
}

void WriteProfileSoon(const char* section, const char* key, const char* value, const char* path) {
    if (Empty(section) || Empty(key) || Empty(value)) return;
    if (put_off_path != path) PutAllWrites();
    put_off_path = path;
    put_off.push_back({section, key, value});
    CallBeforeBlocking(PutAllWrites);
}

void PutProfileWrites(const char* path) {
    if (put_off.empty() || (path != nullptr && put_off_path != path)) return;
    CallBeforeBlocking(nullptr);
    // Emptied first: the writer reads the profile, and so comes by here again.
    const std::vector<PutOff> writes = std::exchange(put_off, {});
    ProfileWriter writer(put_off_path.c_str());
    for (const PutOff& write : writes) {
        writer.Write(write.section.c_str(), write.key.c_str(), write.value.c_str());
    }
    writer.Save();
}

}  // namespace patrol
