#include "sys/profile_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/number.h"

namespace patrol {
namespace {

// Line buffers and pattern sizes; a longer line counts as several.
constexpr size_t kStringLine = 2048;
constexpr size_t kIntLine = 512;
constexpr size_t kNamesLine = 1024;
constexpr size_t kMaxSectionPattern = 514;
constexpr size_t kMaxKeyPattern = 513;

bool IsHeader(const std::string& line, bool bracket_needed) {
    return StartsWith(line, "[") && (!bracket_needed || line.find(']') != std::string::npos);
}

// Stores the value in `size` bytes and one more. Returns how many characters it says it has stored.
int CopyValue(std::string_view value, char* result, int size) {
    const auto room = static_cast<size_t>(size);
    if (value.size() <= room) {
        std::memcpy(result, value.data(), value.size());
        result[value.size()] = '\0';
        return static_cast<int>(value.size());
    }
    // One character less than there is room for, and a count that is one less again: readers of
    // long values have always been given that.
    std::memcpy(result, value.data(), room - 1);
    result[room - 1] = '\0';
    return size - 2;
}

// Size and modification time alone would miss a file that has taken the other's place within the
// same tick of the clock.
bool SameFile(const struct stat& a, const struct stat& b) {
    const auto same_time = [](const timespec& x, const timespec& y) {
        return x.tv_sec == y.tv_sec && x.tv_nsec == y.tv_nsec;
    };
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           same_time(a.st_mtim, b.st_mtim) && same_time(a.st_ctim, b.st_ctim);
}

}  // namespace

ProfileReader::ProfileReader(const char* path) : path_(path) { Load(); }

void ProfileReader::Load() {
    string_lines_.reset();
    int_lines_.reset();
    error_ = LoadProfile(path_.c_str(), &bytes_, &status_) ? 0 : errno;
}

void ProfileReader::Refresh() {
    struct stat now = {};
    if (stat(path_.c_str(), &now) != 0 || !loaded() || !SameFile(now, status_)) Load();
}

// Cleaning the lines once pays off: a Schedule file of many disks is asked hundreds of times.
const ProfileReader::Lines& ProfileReader::CutAt(size_t line_size,
                                                 std::optional<Lines>* cached) const {
    if (!cached->has_value()) {
        Lines& cut = cached->emplace();
        std::string_view rest = bytes_;
        std::string line;
        while (rf_filegets(&line, line_size, &rest)) {
            if (line.find_first_of("[=") == std::string::npos) continue;
            if (IsHeader(line, true)) cut.headers.Add(line, cut.lines.size());
            cut.lines.push_back(line);
        }
    }
    return **cached;
}

size_t ProfileReader::FirstLine(const Lines& cut, const char* section) {
    const std::optional<size_t> header =
        cut.headers.Find(SectionPattern(section, kMaxSectionPattern));
    return header.has_value() ? *header + 1 : cut.lines.size();
}

int ProfileReader::String(const char* section, const char* key, const char* default_value,
                          char* result, int size) const {
    if (section == nullptr) return SectionNames(result, size);
    if (size < 1) return 0;
    std::memset(result, 0, static_cast<size_t>(size));
    int count = 0;
    if (default_value != nullptr) {
        const std::string_view text = default_value;
        count = CopyValue(text.substr(0, static_cast<size_t>(size)), result, size);
    }
    const Lines& cut = CutAt(kStringLine, &string_lines_);
    const std::string pattern = KeyPattern(key, kMaxKeyPattern);
    for (size_t i = FirstLine(cut, section); i < cut.lines.size(); ++i) {
        const std::string& line = cut.lines[i];
        if (IsHeader(line, true)) break;
        // A "[" that nothing closes neither ends the section nor is an entry.
        if (StartsWith(line, ";") || StartsWith(line, "[")) continue;
        // The search goes on: of a key that stands there twice the last line counts.
        if (StartsWith(line, pattern)) {
            std::memset(result, 0, static_cast<size_t>(size));
            count = CopyValue(std::string_view(line).substr(pattern.size()), result, size);
        }
    }
    return count;
}

int ProfileReader::Int(const char* section, const char* key, int default_value) const {
    const Lines& cut = CutAt(kIntLine, &int_lines_);
    const std::string pattern = KeyPattern(key, kMaxKeyPattern);
    int value = default_value;
    for (size_t i = FirstLine(cut, section); i < cut.lines.size(); ++i) {
        const std::string& line = cut.lines[i];
        // Here a "[" that nothing closes ends the section as well.
        if (IsHeader(line, false)) break;
        if (StartsWith(line, ";") || !StartsWith(line, pattern)) continue;
        const char* digits = line.c_str() + pattern.size();
        char* end = nullptr;
        const long long number = std::strtoll(digits, &end, 10);
        // A value without digits leaves what an earlier line of the key has said.
        if (end != digits) value = ClampToInt(number);
    }
    return value;
}

int ProfileReader::SectionNames(char* result, int size) const {
    if (size < 1) return 0;
    const auto room = static_cast<size_t>(size);
    std::memset(result, 0, room);
    std::string_view rest = bytes_;
    std::string line;
    size_t total = 0;
    bool first = true;
    while (rf_filegets(&line, kNamesLine, &rest)) {
        if (!StartsWith(line, "[")) continue;
        const std::string name = line.substr(1, line.find(']') - 1);
        const size_t needed = total + name.size() + 1;
        if (room <= needed) break;
        std::copy(name.begin(), name.end(), result + (first ? 0 : total + 1));
        total = first ? name.size() : needed;
        first = false;
    }
    return static_cast<int>(total);
}

}  // namespace patrol
