#include "agent_dir.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace patrol_test {
namespace fs = std::filesystem;
namespace {

constexpr const char* kDirectories[] = {"log", "data", "bin", "temp", "config"};
constexpr char kShared[] = "/dev/shm";

// Where the value of a key stands in a profile text; npos where there is none.
size_t ValueAt(const std::string& text, const std::string& section, const std::string& key) {
    const size_t header = ("\n" + text).find("\n[" + section + "]\n");
    const size_t at = header == std::string::npos ? header : text.find("\n" + key + "=", header);
    const bool inside = at < text.find("\n[", std::min(header, text.size()));
    return inside ? at + key.size() + 2 : std::string::npos;
}

// Puts `by` in place of the head of each line that has one.
Strings ReplaceHeads(Strings lines, const std::string& head, const char* by) {
    for (std::string& line : lines) {
        const std::string start = line.substr(0, 300);  // more than any head has
        line.replace(0, start.size(), Masked(start, "^" + head, by));
    }
    return lines;
}

}  // namespace

std::string DeviceXml(const std::vector<Disk>& disks) {
    std::string words;
    for (const Disk& disk : disks) {
        words += " " + disk.device + " HDD S/N=" + disk.serial + " vendor=MAKER model=MODEL ok end";
    }
    return Xml("<devconf>" + words + " </devconf>");
}

std::string Xml(const std::string& words) {
    std::string text;
    for (const std::string& word : Split(words, ' ')) {
        const size_t equals = word.find('=');
        const auto attribute = [&text](const std::string& name, const std::string& value) {
            text += "<attr name=\"" + name + "\">" + value + "</attr>";
        };
        if (word.find('<') != std::string::npos) {
            text += word;
        } else if (word[0] == '/') {
            text += "<dev phypath=\"/p " + word + "\">";
        } else if (equals != std::string::npos) {
            attribute(word.substr(0, equals), word.substr(equals + 1));
        } else if (word == "end") {
            text += "</dev>";
        } else {
            attribute(word == "HDD" || word == "TAPE" ? "type" : "status", word);
        }
        text += "\r\n";
    }
    return text;
}

std::vector<Disk> NumberedDisks(int count) {
    std::vector<Disk> disks(static_cast<size_t>(count));
    for (size_t i = 0; i < disks.size(); ++i) {
        const std::string number = std::to_string(i);
        disks[i].device = "/dev/sd";
        if (i >= 26) disks[i].device += static_cast<char>('a' + i / 26 - 1);
        disks[i].device += static_cast<char>('a' + i % 26);
        disks[i].serial = "SN-" + std::string(4 - std::min<size_t>(4, number.size()), '0') + number;
    }
    return disks;
}

std::string PatrolSettings(const std::string& cpu, const std::string& memory,
                           const std::string& disks) {
    return "[CPUDIAG_EXE]\n" + cpu +
           "\n[CPUDIAG_TEST]\nInstruction+Register\n[CPUDIAG_TIMEOUT]\n45\n" + "[MEMDIAG_EXE]\n" +
           memory + "\n[MEMDIAG_TEST]\nBMOVE\n[MEMDIAG_TIMEOUT]\n45\n" + "[HDDDIAG_EXE]\n" + disks +
           "\n[HDDDIAG_TEST]\nsector\n[HDDDIAG_TIMEOUT]\n45\n";
}

Strings Split(const std::string& text, char separator) {
    Strings pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, separator);) pieces.push_back(piece);
    return pieces;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
    return text;
}

std::string Unescaped(const std::string& text) {
    return Replaced(Replaced(text, "\\", "\n"), "~", "\r");
}

std::string Masked(const std::string& text, const std::string& pattern, const std::string& by) {
    static std::map<std::string, std::regex> known;  // making one takes long
    return std::regex_replace(text, known.try_emplace(pattern, pattern).first->second, by);
}

std::vector<Strings> Rows(const std::string& table) {
    std::vector<Strings> rows;
    for (const std::string& line : Split(table)) {
        rows.push_back(Split(line, '|'));
        rows.back().resize(10);
    }
    return rows;
}

std::string Join(const Strings& pieces, const std::string& separator) {
    std::string text;
    for (const std::string& piece : pieces) text += piece + separator;
    return text;
}

std::string First(const Strings& lines) { return lines.empty() ? "(none)" : lines.front(); }

std::string Last(const Strings& lines) { return lines.empty() ? "(none)" : lines.back(); }

AgentDir::AgentDir() {
    // In memory where programs may be kept there: what is written is synced.
    struct statvfs shared = {};
    const bool usable = getenv("TMPDIR") == nullptr && access(kShared, W_OK) == 0 &&
                        statvfs(kShared, &shared) == 0 && (shared.f_flag & ST_NOEXEC) == 0;
    std::string name = (usable ? kShared : fs::temp_directory_path().string()) + "/patrol-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        ADD_FAILURE() << "no temporary directory " << name;
        return;
    }
    root_ = name;
    for (const char* dir : kDirectories) MakeDir(dir);
    Write("data/pat_msge.txt", ReadFile(SAMPLES "/data/pat_msge.txt"));
    Script("get", "echo 0");
}

AgentDir::~AgentDir() {
    if (root_.empty()) return;
    std::error_code ignored;
    for (const char* dir : kDirectories) {
        fs::permissions(Path(dir), fs::perms::owner_all, ignored);
    }
    fs::remove_all(root_, ignored);
}

std::string AgentDir::Path(const std::string& relative) const {
    return relative.empty() ? root_ : root_ + "/" + relative;
}

bool AgentDir::Exists(const std::string& relative) const { return fs::exists(Path(relative)); }

void AgentDir::Write(const std::string& relative, const std::string& text) const {
    std::ofstream stream(Path(relative), std::ios::binary | std::ios::trunc);
    stream << text << std::flush;
    EXPECT_TRUE(stream.good()) << "cannot write " << relative;
}

bool AgentDir::LeftUnfinished() const {
    const std::filesystem::directory_iterator files(Path("data"));
    return std::any_of(begin(files), end(files), [](const auto& file) {
        return file.path().filename().string().find(".new") != std::string::npos;
    });
}

std::string AgentDir::Read(const std::string& relative) const { return ReadFile(Path(relative)); }

Strings AgentDir::Lines(const std::string& relative) const { return Split(Read(relative)); }

void AgentDir::MakeDir(const std::string& relative) const {
    EXPECT_EQ(mkdir(Path(relative).c_str(), 0700), 0) << "cannot make " << relative;
}

void AgentDir::Remove(const std::string& relative) const { fs::remove_all(Path(relative)); }

std::string AgentDir::Script(const std::string& name, const std::string& body) const {
    const std::string relative = "bin/" + name;
    // A new file each time: a script that is still running keeps its own text.
    Remove(relative);
    Write(relative, "#!/bin/sh\n" + body + "\n");
    EXPECT_EQ(chmod(Path(relative).c_str(), 0700), 0);
    return Path(relative);
}

std::string AgentDir::Key(const std::string& section, const std::string& key,
                          const std::string& file) const {
    const std::string text = Read(file);
    const size_t at = ValueAt(text, section, key);
    return at == std::string::npos ? "(none)" : text.substr(at, text.find('\n', at) - at);
}

void AgentDir::SetKey(const std::string& section, const std::string& key, const std::string& value,
                      const std::string& file) const {
    std::string text = Read(file);
    const size_t at = ValueAt(text, section, key);
    ASSERT_NE(at, std::string::npos) << "no " << key << " in [" << section << "] of " << file;
    Write(file, text.replace(at, text.find('\n', at) - at, value));
}

Strings AgentDir::Trace(const std::string& file) const {
    Strings lines = Lines(file);
    for (std::string& line : lines) {
        const size_t end = line.find("):");
        if (end != std::string::npos) line.erase(0, end + 2);
    }
    return lines;
}

bool AgentDir::Traced(const std::string& line, const std::string& file) const {
    const Strings lines = Trace(file);
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

Strings AgentDir::History(const std::string& file) const {
    return ReplaceHeads(Lines(file), R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d )", "");
}

Strings AgentDir::Log(const std::string& file) const {
    // host, time stamp, program, number, second name: none of these holds a comma.
    return ReplaceHeads(
        Lines(file),
        R"([^,]*,\d\d/\d\d/\d\d \d\d:\d\d:\d\d \d{3}\.\d{3},[^,]{20},([^,]*),[^,]{16},)", "$1 ");
}

Env AgentDir::Environment() const {
    Env env = {
        {"KVX_PIPE", Path("event_pipe")},
        {"LD_PRELOAD", SYSTEM_LOG_LIBRARY},
        {"SYSTEM_LOG", Path("system_log")},
        // The test programs shall not tell of what befalls the machine that the tests run on.
        {"TESTPROG_ROOT", Path("system")},
        {"PATH", "/usr/bin:/bin"},
        {"LC_ALL", "C"},
        {"TZ", "UTC0"}};
    for (const std::string dir : kDirectories) env["KVX_" + dir] = Path(dir);
    // A sanitizer's report must not look like one of the program's own exit statuses.
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
        const char* value = getenv(name);
        env[name] =
            std::string(value == nullptr ? "" : value) + ":exitcode=99:verify_asan_link_order=0";
    }
    return env;
}

std::unique_ptr<Process> AgentDir::Start(const Strings& words, const Launch& launch) {
    Strings arguments = {"patrol.exe"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    Env env = Environment();
    for (const auto& [name, value] : launch.env) env[name] = value;
    return std::make_unique<Process>(PATROL_EXE, arguments, env,
                                     Path("run" + std::to_string(runs_++)), launch);
}

Result AgentDir::Run(const Strings& words, const Launch& launch) {
    return Start(words, launch)->Wait();
}

EventPipe::EventPipe(const AgentDir& agent) {
    const std::string path = agent.Path("event_pipe");
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_GE(fd_, 0);
}

EventPipe::~EventPipe() { Leave(); }

Strings EventPipe::Lines() {
    std::string text;
    char piece[4096];
    for (ssize_t n; (n = read(fd_, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<size_t>(n));
    return Split(text);
}

void EventPipe::Leave() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

}  // namespace patrol_test
