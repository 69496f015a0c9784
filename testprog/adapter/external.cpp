#include "adapter/external.h"

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <deque>

#include "adapter/settings.h"
#include "counters/counters.h"
#include "lib/command.h"
#include "lib/file.h"
#include "lib/options.h"
#include "lib/run.h"

namespace testprog {

namespace {

constexpr std::string_view kMark = "ext:";
constexpr size_t kMaxSettings = 64 << 10;
constexpr uint64_t kDefaultSeconds = 60;
constexpr uint64_t kDefaultGrace = 10;
constexpr size_t kDetails = 10;
constexpr double kLook = 0.2;

struct Options {
    CommonOptions common;
    // What stands on the command line, by the option's word, for the command to take over.
    std::map<std::string, std::string> words;
    bool spoilt = false;  // the test is to fail on purpose
};

std::vector<Option> OptionTable(Options* options) {
    std::vector<Option> table = CommonOptionTable(&options->common);
    for (const char* word : {"lba", "sc", "retry", "wide", "count", "size", "data"}) {
        table.push_back(TextOption(word, &options->words[word]));
    }
    static bool ignored;
    for (const char* word : {"ide", "affinity"}) table.push_back(SwitchOption(word, &ignored));
    table.push_back(SwitchOption("debug2", &options->spoilt));
    for (const char* word : {"dbg_modid", "dbg_point"}) {
        table.push_back(
            {word, true, [options](const std::string&) { return options->spoilt = true; }});
    }
    return table;
}

// One command as a test, over as many rounds as the run has.
class ExternalTest {
 public:
    ExternalTest(const Options& options, ExternalSettings settings, Run& run)
        : options_(options), settings_(std::move(settings)), run_(run) {}

    Outcome Test() {
        const std::string complaint = Prepare();
        if (!complaint.empty()) return {EndCode::kSkip, complaint};
        Outcome outcome = run_.Rounds([this] { return Round(); });
        run_.SetDetails({last_.begin(), last_.end()});
        if (outcome.code == EndCode::kOk && options_.spoilt) {
            outcome = {EndCode::kNg, "the test was asked to fail"};
        }
        return outcome;
    }

 private:
    // Reads what the settings say; returns what is wrong with them.
    std::string Prepare() {
        if (settings_.Text("command").empty()) {
            return Format("no command for %s at level %llu", options_.common.device.c_str(),
                          static_cast<unsigned long long>(options_.common.level));
        }
        const std::pair<const char*, Pattern*> patterns[] = {
            {"ok_pattern", &ok_pattern_},
            {"ng_pattern", &ng_pattern_},
            {"skip_pattern", &skip_pattern_},
            {"progress_pattern", &progress_pattern_},
            {"remaining_pattern", &remaining_pattern_}};
        for (const auto& [key, pattern] : patterns) {
            const std::string complaint = pattern->Parse(settings_.Text(key));
            if (!complaint.empty()) return Format("setting \"%s\": %s", key, complaint.c_str());
        }
        const std::string& ok = settings_.Text("ok");
        const std::pair<const char*, bool> statuses[] = {
            {"ok", ok_.Parse(ok.empty() ? "0" : ok)},
            {"ng", ng_.Parse(settings_.Text("ng"))},
            {"skip", skip_.Parse(settings_.Text("skip"))}};
        for (const auto& [key, right] : statuses) {
            if (!right) return Format("setting \"%s\" is no list of exit statuses", key);
        }
        const auto seconds = settings_.Seconds("seconds", kDefaultSeconds);
        const auto grace = settings_.Seconds("grace", kDefaultGrace);
        const auto limit = settings_.Seconds("limit", 2 * seconds.value_or(0) + kDefaultSeconds);
        if (!seconds || !grace || !limit) return "a time in the settings is no number of seconds";
        seconds_ = static_cast<double>(*seconds);
        grace_ = static_cast<double>(*grace);
        limit_ = static_cast<double>(*limit);
        const auto runtime = static_cast<double>(options_.common.runtime);
        if (runtime > 0) limit_ = std::max(limit_, runtime + grace_);
        return {};
    }

    // Seconds that this round is to take.
    double RoundSeconds() const {
        const auto runtime = static_cast<double>(options_.common.runtime);
        return runtime == 0 ? seconds_ : std::max(1.0, std::ceil(runtime - (Now() - start_)));
    }

    Outcome Round() {
        // The command line counts more than the settings.
        std::map<std::string, std::string> values = settings_.values();
        for (const auto& [word, value] : options_.words) {
            if (std::string& known = values[word]; !value.empty()) known = value;
        }
        const double seconds = RoundSeconds();
        const std::string& device = options_.common.device;
        values["device"] = device;
        values["name"] = device.substr(device.rfind('/') + 1);
        values["level"] = std::to_string(options_.common.level);
        values["seconds"] = std::to_string(static_cast<long>(seconds));
        std::vector<std::string> words;
        if (!SplitWords(settings_.Text("command"), values, &words)) {
            return {EndCode::kSkip, "setting \"command\" has a brace or quote that does not fit"};
        }
        Command command;
        const std::string complaint = command.Start(words);
        if (!complaint.empty()) return {EndCode::kSkip, complaint};
        bad_line_.clear();
        skip_line_.clear();
        good_ = false;
        const bool stopped = Accompany(command, seconds);
        Outcome outcome = Judge(command.end().value_or(CommandEnd{}), stopped);
        // One that came to its end when the time was just over is a whole round all the same.
        const bool whole = outcome.code == EndCode::kOk && !stopped;
        const bool last = run_.Pause() || settings_.Text("repeat") == "no";
        if (whole && last) outcome.code = EndCode::kCompleted;
        return outcome;
    }

    // Listens until the command has ended; stops it in order when the run or its time is over.
    // Returns whether it was stopped.
    bool Accompany(Command& command, double seconds) {
        constexpr int kOrder[] = {SIGINT, SIGTERM, SIGKILL};
        const double begin = Now();
        const auto* next = std::begin(kOrder);
        double send = 0;  // when to send the next signal
        late_ = false;
        while (command.Listen(kLook, [this](const std::string& line) { Take(line); })) {
            const double now = Now();
            if (progress_pattern_.empty() && remaining_pattern_.empty()) {
                run_.SetDone(static_cast<uint64_t>(std::min(now - begin, seconds)),
                             static_cast<uint64_t>(std::max(seconds, 1.0)));
            }
            const bool stop = run_.Stop();
            late_ = late_ || now - begin > limit_;
            // When only the run time is over, the command may be about to end by itself.
            const auto runtime = static_cast<double>(options_.common.runtime);
            const bool out_of_time = runtime > 0 && now - start_ >= runtime;
            if (!late_ && (!stop || (out_of_time && now - start_ < runtime + grace_))) continue;
            if (next == std::end(kOrder) || now < send) continue;
            command.Signal(*next++);
            send = now + grace_;
        }
        return next != std::begin(kOrder);
    }

    void Take(const std::string& line) {
        run_.AppendLog(line);
        last_.push_back(line);
        if (last_.size() > kDetails) last_.pop_front();
        if (bad_line_.empty() && ng_pattern_.Matches(line)) bad_line_ = line;
        if (skip_line_.empty() && skip_pattern_.Matches(line)) skip_line_ = line;
        good_ = good_ || ok_pattern_.Matches(line);
        if (const auto done = progress_pattern_.Percent(line)) run_.SetDone(*done, 100);
        if (const auto left = remaining_pattern_.Percent(line)) run_.SetDone(100 - *left, 100);
    }

    Outcome Judge(const CommandEnd& end, bool stopped) const {
        const std::string words =
            Format(end.exited ? "exit status %d" : "ended by signal %d", end.number) +
            (last_.empty() ? "" : ": " + last_.back());
        if (!bad_line_.empty()) return {EndCode::kNg, bad_line_};
        if (late_) {
            return {EndCode::kAbort, Format("not at its end after %.0f s", limit_)};
        }
        if (stopped) return {};
        if (!skip_line_.empty()) return {EndCode::kSkip, skip_line_};
        if (ng_.Has(end.exited, end.number)) return {EndCode::kNg, words};
        if (skip_.Has(end.exited, end.number)) return {EndCode::kSkip, words};
        if (!ok_.Has(end.exited, end.number)) return {EndCode::kAbort, words};
        if (!ok_pattern_.empty() && !good_) {
            return {EndCode::kAbort, "the output does not say that all is well, " + words};
        }
        return {};
    }

    const Options& options_;
    const ExternalSettings settings_;
    Run& run_;
    const double start_ = Now();
    double seconds_ = 0, grace_ = 0, limit_ = 0;
    Statuses ok_, ng_, skip_;
    Pattern ok_pattern_, ng_pattern_, skip_pattern_, progress_pattern_, remaining_pattern_;
    // Of the command that runs.
    std::string bad_line_, skip_line_;
    bool good_ = false;
    bool late_ = false;
    std::deque<std::string> last_;
};

// Reads the settings of that name into `text`; returns what is wrong.
std::string ReadSettings(const std::string& name, std::string* text) {
    const auto foreign = [](char c) {
        return !std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_';
    };
    if (name.empty() || std::any_of(name.begin(), name.end(), foreign)) {
        return "option \"-tp\" with a wrong name \"" + name + "\"";
    }
    const std::string directory = Environment("KVX_data");
    if (directory.empty()) return "no directory is named for the settings of \"" + name + "\"";
    const std::string path = directory + "/ext_" + name + ".ini";
    mode_t mode = 0;
    const auto read = ReadWhole(path, kMaxSettings, &mode);
    if (!read) return "cannot read " + path + ": " + std::strerror(errno);
    // Who may write it says what runs with this program's rights.
    if ((mode & (S_IWGRP | S_IWOTH)) != 0) return path + " may be written by others";
    *text = *read;
    return {};
}

// Where commands are looked for: the agent's own, then as ever, then where administrators' are.
void SetPath() {
    const std::string path = Environment("KVX_bin") + ":" + Environment("PATH") +
                             ":/usr/local/sbin:/usr/sbin:/sbin:/usr/local/bin:/usr/bin:/bin";
    setenv("PATH", path.c_str(), 1);
}

Watched WatchedBy(const std::string& program) {
    if (program == "cputest") return Watched::kProcessors;
    return program == "memtest" ? Watched::kMemory : Watched::kDisk;
}

}  // namespace

bool AsksForExternal(int argc, const char* const* argv) {
    bool external = false;  // the last one counts
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string word = argv[i];
        if (word == "-tp" || word == "/tp") external = std::string(argv[++i]).rfind(kMark, 0) == 0;
    }
    return external;
}

int RunExternal(const std::string& program, int argc, const char* const* argv) {
    Options options;
    options.common.device = program == "cputest" ? "CPU" : program == "memtest" ? "mem" : "";
    std::string complaint = ParseOptions(argc, argv, OptionTable(&options));
    if (complaint.empty() && !AsksForExternal(argc, argv)) {
        complaint = "option \"-tp\" names no command, as ext:NAME";
    }
    std::string text;
    const std::string name =
        options.common.pattern.substr(std::min(kMark.size(), options.common.pattern.size()));
    if (complaint.empty()) complaint = ReadSettings(name, &text);
    ExternalSettings settings(text, options.common.device, options.common.level);
    std::string title = settings.Text("title");
    if (title.empty()) title = "External test " + name;
    Run run(program, title, options.common, program == "hddtest");
    // A disk's schedule keeps its place.
    run.SetNextAddress(ParseNumber(options.words["lba"]).value_or(0));
    if (!complaint.empty()) return run.Finish({EndCode::kSkip, complaint});
    SetPath();
    Watch(WatchedBy(program), options.common.device, &run);
    return run.Finish(ExternalTest(options, std::move(settings), run).Test());
}

}  // namespace testprog
