#include "model/running.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <tuple>

#include "base/file.h"
#include "base/kinds.h"
#include "base/number.h"
#include "model/command.h"
#include "model/files.h"
#include "report/record_fields.h"
#include "report/record_stream.h"
#include "report/records.h"

namespace patrolctl {
namespace {

// The one name of a program in a folder that may have several, such as those of links to it.
std::string Normal(const std::filesystem::path& path) {
    std::error_code error;
    return (std::filesystem::weakly_canonical(path.parent_path(), error) / path.filename())
        .string();
}

// The words of a process; none for one that is gone or not to be looked at.
std::vector<std::string> WordsOf(const std::string& process) {
    constexpr size_t kMaxWords = 16384;
    std::vector<std::string> words;
    const std::string text = ReadText(process + "/cmdline", kMaxWords).text;
    for (size_t at = 0; at < text.size();) {
        words.emplace_back(text.c_str() + at);
        at += words.back().size() + 1;
    }
    return words;
}

// The kind whose test program `words` run, directly or through an interpreter; 0 for none.
int KindOfWords(const std::vector<std::string>& words, const std::string& bin) {
    for (size_t i = 0; i < std::min<size_t>(words.size(), 2); ++i) {
        for (const patrol::Kind& kind : patrol::kKinds) {
            // Most words are settled by their ends.
            if (!EndsWith(words[i], kind.program)) continue;
            if (Normal(words[i]) == Normal(bin + "/" + kind.program)) return kind.code;
        }
    }
    return 0;
}

// Seconds since the process began.
long long AgeOf(const std::string& proc, const std::string& process) {
    constexpr int kStartField = 19;  // behind that of the state; the name before may hold blanks
    std::string stat = ReadText(process + "/stat", 4096).text;
    stat.erase(0, stat.rfind(')') + 1);
    const char* at = stat.c_str();
    for (int i = 0; i < kStartField && at != nullptr; ++i) at = std::strchr(at + 1, ' ');
    if (at == nullptr) return 0;
    const double began = std::strtod(at, nullptr) / static_cast<double>(sysconf(_SC_CLK_TCK));
    const double up = std::strtod(ReadText(proc + "/uptime", 256).text.c_str(), nullptr);
    return std::max(0LL, static_cast<long long>(up - began));
}

// What the process has written to its standard output up to now, the end of it; empty when that is
// no regular file or may not be read.
std::string OutputOf(const std::string& process) {
    constexpr size_t kEnough = 1 << 16;
    const std::string position = ReadText(process + "/fdinfo/1", 4096).text;
    constexpr std::string_view kMark = "pos:";
    if (!BeginsWith(position, kMark)) return "";
    struct stat status = {};
    const std::string path = process + "/fd/1";
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
    const patrol::Descriptor fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    // The controller does not cut off what an earlier run has left in the file.
    const long long end = std::strtoll(position.c_str() + kMark.size(), nullptr, 10);
    return fd.ok() ? ReadTail(fd.get(), end, kEnough) : "";
}

// The numbers of a progress body up to its line feed; none for a body that is not whole.
std::optional<Progress> ParseProgress(const char* body) {
    constexpr size_t kFields = 4;  // seconds, limit, level, percent
    uint32_t fields[kFields] = {};
    if (std::strchr(body, '\n') == nullptr) return std::nullopt;
    for (uint32_t& field : fields) {
        field = patrol::ParseUnsigned(body, 0);
        const char* comma = std::strchr(body, ',');
        if (comma == nullptr) return std::nullopt;
        body = comma + 1;
    }
    Progress progress;
    progress.seconds = fields[0];
    progress.limit = fields[1];
    progress.percent = static_cast<int>(std::min<uint32_t>(fields[3], 100));
    return progress;
}

// What the last whole progress record in `output` says.
std::optional<Progress> LastProgress(const std::string& output) {
    constexpr size_t kBodyAt = patrol::kPrefixSize + patrol::kHeaderSize;
    size_t at = output.rfind(patrol::kRecordMagic);
    while (at != std::string::npos) {
        const char* record = output.c_str() + at;
        if (output.size() - at > kBodyAt &&
            patrol::NumberField<5>(record + patrol::kPrefixSize) == patrol::kTypeProgress) {
            if (auto progress = ParseProgress(record + kBodyAt)) return progress;
        }
        at = at == 0 ? std::string::npos : output.rfind(patrol::kRecordMagic, at - 1);
    }
    return std::nullopt;
}

// What a test of a pass shows beside its output, which is a pipe: the body of its last progress
// record, in a file that is open there and has no name any more.
std::optional<Progress> ShownProgress(const std::string& process) {
    constexpr char kName[] = "/patrol-progress.";
    constexpr size_t kEnough = 256;
    std::error_code error;
    std::filesystem::directory_iterator file(process + "/fd", error);
    for (; file != std::filesystem::directory_iterator(); file.increment(error)) {
        const std::string target = std::filesystem::read_symlink(file->path(), error).string();
        if (target.find(kName) == std::string::npos) continue;
        return ParseProgress(ReadText(file->path().string(), kEnough).text.c_str());
    }
    return std::nullopt;
}

std::string ValueOf(const std::vector<std::string>& words, const char* option) {
    const auto found = std::find(words.begin(), words.end(), option);
    return found != words.end() && found + 1 != words.end() ? *(found + 1) : "";
}

// A test as the histories name its device.
std::string DeviceOf(int kind, const std::vector<std::string>& words) {
    return kind == patrol::kKindHdd ? ValueOf(words, "-dev") : patrol::FindKind(kind)->name;
}

bool IsPid(const char* name) { return name[0] >= '1' && name[0] <= '9'; }

// Whether what comes from the agent's status command lets a pass run: the controller takes it in
// pieces of this size, and a piece that begins so says yes.
bool SaysReady(const std::string& answer) {
    constexpr size_t kPiece = 63;
    bool ready = false;
    ForEachLine(answer, [&](std::string_view line, size_t) {
        for (size_t at = 0; at < line.size(); at += kPiece) ready = ready || line[at] == '0';
    });
    return ready;
}

// "1 WORD: TEXT", further lines of it behind a blank.
Hold ParseAnswer(const std::string& answer) {
    std::string text;
    ForEachLine(answer, [&](std::string_view line, size_t number) {
        if (number > 1 && BeginsWith(line, " ")) line.remove_prefix(1);
        text += line;
    });
    Hold hold;
    if (BeginsWith(text, "1 ")) text.erase(0, 2);
    const size_t colon = text.find(": ");
    if (colon != std::string::npos && text.find(' ') > colon) {
        hold.word = text.substr(0, colon);
        text.erase(0, colon + 2);
    }
    hold.reason = text.empty() ? "the agent does not say why" : text;
    return hold;
}

}  // namespace

double Progress::Done() const {
    const double done = limit > 0 ? static_cast<double>(seconds) / static_cast<double>(limit)
                                  : static_cast<double>(percent) / 100;
    return std::min(done, 1.0);
}

std::vector<RunningTest> FindRunningTests(const Places& places) {
    const std::string proc = places.root + "/proc";
    std::vector<RunningTest> tests;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(proc.c_str()), closedir);
    if (directory == nullptr || places.bin.empty()) return tests;
    while (const dirent* entry = readdir(directory.get())) {
        if (!IsPid(entry->d_name)) continue;
        const std::string process = proc + "/" + entry->d_name;
        const std::vector<std::string> words = WordsOf(process);
        RunningTest test;
        test.kind = KindOfWords(words, places.bin);
        if (test.kind == 0) continue;
        test.pid = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
        test.device = DeviceOf(test.kind, words);
        test.seconds = AgeOf(proc, process);
        test.on_request = !ValueOf(words, "/runtime").empty();
        test.progress = test.on_request ? LastProgress(OutputOf(process)) : ShownProgress(process);
        tests.push_back(std::move(test));
    }
    std::sort(tests.begin(), tests.end(), [](const RunningTest& a, const RunningTest& b) {
        return std::tie(a.kind, a.device, a.pid) < std::tie(b.kind, b.device, b.pid);
    });
    return tests;
}

std::optional<Hold> FindHold(const Places& places) {
    constexpr int kSeconds = 5;
    constexpr size_t kMaxAnswer = 4096;
    const std::string command = places.bin + "/get";
    if (!places.bin.empty() && access(command.c_str(), X_OK) == 0) {
        const CommandResult result =
            RunCommand({command, "agent_status"}, places, kMaxAnswer, kSeconds);
        if (!result.ended) return Hold{"", "the agent's status command gives no answer"};
        if (SaysReady(result.output)) return std::nullopt;
        return ParseAnswer(result.output);
    }
    const std::string path = places.HoldFile();
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) return std::nullopt;
    const FileText file = ReadText(path, kMaxAnswer);
    Hold hold;
    hold.word = "hold";
    hold.reason = file.text.substr(0, file.text.find_last_not_of("\r\n") + 1);
    if (hold.reason.empty()) hold.reason = "no reason is given in " + path;
    return hold;
}

}  // namespace patrolctl
