#include "hdd_progress.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <vector>

#include "record.h"

namespace testprog {

namespace {

using Lines = std::vector<std::string>;

Lines ReadLines(const std::string& path) {
    Lines lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

// Replaces the key's line in the section, or adds what is missing of them.
void SetKey(Lines* lines, const std::string& section, const std::string& key,
            const std::string& value) {
    const std::string entry = key + "=";
    auto head = std::find(lines->begin(), lines->end(), "[" + section + "]");
    if (head == lines->end()) head = lines->insert(head, "[" + section + "]");
    const auto end = std::find_if(head + 1, lines->end(), [](const std::string& line) {
        return line.compare(0, 1, "[") == 0;
    });
    const auto old = std::find_if(head + 1, end, [&entry](const std::string& line) {
        return line.compare(0, entry.size(), entry) == 0;
    });
    if (old == end) {
        lines->insert(end, entry + value);
    } else {
        *old = entry + value;
    }
}

bool WriteLines(const std::string& path, const Lines& lines) {
    std::ofstream file(path, std::ios::trunc);
    for (const std::string& line : lines) file << line << '\n';
    file.close();
    return !file.fail();
}

}  // namespace

bool SaveProgress(const std::string& directory, const std::string& device, std::uint64_t blocks,
                  std::uint64_t next) {
    const std::string path = directory + "/lba_outfile.ini";
    const std::string fresh = path + ".hddtest";
    const int lock =
        open((directory + "/lba_outfile.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lock < 0) return false;
    const auto number = [](std::uint64_t value) {
        return Format("0x%016llx", static_cast<unsigned long long>(value));
    };
    bool saved = false;
    if (lockf(lock, F_LOCK, 0) == 0) {
        Lines lines = ReadLines(path);
        SetKey(&lines, "HDD_MAX_LBA", device, number(blocks));
        SetKey(&lines, "HDD_NEXT_LBA", device, number(next));
        saved = WriteLines(fresh, lines) && std::rename(fresh.c_str(), path.c_str()) == 0;
        if (!saved) std::remove(fresh.c_str());
    }
    close(lock);  // gives the lock back
    return saved;
}

}  // namespace testprog
