#include "hdd/progress.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "lib/file.h"
#include "lib/record.h"

namespace testprog {

namespace {

using Lines = std::vector<std::string>;

constexpr size_t kMaxFile = size_t{1} << 20;

// A line as its readers see it.
std::string Cleaned(std::string line) {
    constexpr char kBlanks[] = " \t\v\f";
    line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
    line.erase(line.find_last_not_of(kBlanks) + 1);
    return line.erase(0, line.find_first_not_of(kBlanks));
}

bool IsHeader(const std::string& line) {
    const std::string cleaned = Cleaned(line);
    return cleaned.compare(0, 1, "[") == 0 && cleaned.find(']') != std::string::npos;
}

// Replaces the key's lines in the section, or adds what is missing of them. Readers take the
// first header that contains the section's name, and the last line for the key.
void SetKey(Lines* lines, const std::string& section, const std::string& key,
            const std::string& value) {
    const std::string entry = key + "=";
    const std::string name = "[" + section + "]";
    auto head = std::find_if(lines->begin(), lines->end(), [&name](const std::string& line) {
        return IsHeader(line) && line.find(name) != std::string::npos;
    });
    if (head == lines->end()) head = lines->insert(head, name);
    const auto end = std::find_if(head + 1, lines->end(), IsHeader);
    const auto matches = [&entry](const std::string& line) {
        return Cleaned(line).compare(0, entry.size(), entry) == 0;
    };
    if (std::any_of(head + 1, end, matches)) {
        std::replace_if(head + 1, end, matches, entry + value);
    } else {
        lines->insert(end, entry + value);
    }
}

// Reads the lines of the file and its mode; a missing file has none and leaves the mode.
bool ReadLines(const std::string& path, Lines* lines, mode_t* mode) {
    const std::optional<std::string> text = ReadWhole(path, kMaxFile, mode);
    if (!text) return errno == ENOENT;
    std::string_view rest = *text;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        lines->emplace_back(line);
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    }
    return true;
}

bool Replace(const std::string& path, const std::string& device, uint64_t blocks, uint64_t next) {
    const auto number = [](uint64_t value) {
        return Format("0x%016llx", static_cast<unsigned long long>(value));
    };
    Lines lines;
    mode_t mode = 0644;
    if (!ReadLines(path, &lines, &mode)) return false;
    SetKey(&lines, "HDD_MAX_LBA", device, number(blocks));
    SetKey(&lines, "HDD_NEXT_LBA", device, number(next));
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    return ReplaceWhole(path, "hddtest", text, mode);
}

}  // namespace

std::string SaveProgress(const std::string& directory, const std::string& device, uint64_t blocks,
                         uint64_t next, const std::function<bool()>& stop) {
    if (directory.empty()) return "no directory is named";
    const Descriptor lock(open((directory + "/lba_outfile.lock").c_str(),
                               O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644));
    const bool saved = lock.fd >= 0 && LockInTime(lock.fd, stop) &&
                       Replace(directory + "/lba_outfile.ini", device, blocks, next);
    return saved ? "" : std::strerror(errno);
}

}  // namespace testprog
