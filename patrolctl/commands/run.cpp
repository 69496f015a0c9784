// patrolctl run: an on-request diagnosis, as a person wants it.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/file.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "model/command.h"
#include "model/files.h"
#include "model/request.h"
#include "model/running.h"
#include "show/bars.h"
#include "show/escape.h"
#include "state/schedule_file.h"

namespace patrolctl {
namespace {

constexpr int kExitFault = 2;

volatile sig_atomic_t stop_asked = 0;

void AskToStop(int) { stop_asked = 1; }

// A signal ends the wait under way, and is handed on to the controller; a reader of the progress
// that went away is as good as one.
void CatchSignals() {
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = AskToStop;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaction(signal, &action, nullptr);
}

int Fail(const std::string& sentence) {
    PrintProblems({sentence});
    return kExitFailed;
}

bool IsProgram(const std::string& path) { return access(path.c_str(), X_OK) == 0; }

// Where the controller is: installed or built together with this program, where the package puts
// it, or on the path.
std::string FindController(const Options& options) {
    if (!options.controller.empty()) return options.controller;
    constexpr char kName[] = "/patrol.exe";
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self);
    std::string own(self, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    own.erase(std::min(own.rfind('/'), own.size()));
    // In a build tree it is one folder up.
    for (const std::string& folder :
         {own, own + "/../sbin", own + "/..", std::string("/usr/sbin")}) {
        if (IsProgram(folder + kName)) return folder + kName;
    }
    return kName + 1;
}

// The results that come into the histories of requests from now on.
class NewResults {
 public:
    explicit NewResults(const Places& places)
        : history_(places.log + "/" + patrol::kPadiagHistory),
          aged_(places.log + "/" + patrol::kAgedHistory),
          start_(std::time(nullptr)) {
        struct stat status = {};
        if (stat(history_.c_str(), &status) == 0) known_ = status.st_size;
    }

    // Whether the history has no more room, so that the newest result alone is kept.
    bool full() const { return known_ > patrol::kMaxHistorySize; }

    std::vector<Result> Read() const {
        std::vector<Result> results = ParseFrom(history_, known_);
        // The aged history is made anew for each result, so that its size says nothing.
        for (Result& result : ParseFrom(aged_, 0)) {
            if (result.time >= start_) results.push_back(std::move(result));
        }
        return results;
    }

 private:
    static std::vector<Result> ParseFrom(const std::string& path, off_t from) {
        constexpr off_t kMaxNews = 16 << 20;
        const patrol::Stream stream = patrol::OpenForReading(path.c_str());
        struct stat now = {};
        if (stream == nullptr || fstat(fileno(stream.get()), &now) != 0) return {};
        const off_t news = std::min(now.st_size - std::min(from, now.st_size), kMaxNews);
        return ParseRequestResults(
            ReadTail(fileno(stream.get()), now.st_size, static_cast<size_t>(news)));
    }

    std::string history_;
    std::string aged_;
    std::time_t start_;
    off_t known_ = 0;
};

// A test that was asked for.
struct Wanted {
    int kind = 0;
    std::string device = {};
    bool seen = false;  // running, at some time
    bool ended = false;
    Progress progress = {};
};

// The tests that the controller's schedule of requests holds.
std::vector<Wanted> ReadWanted() {
    const patrol::ScheduleFile schedule(patrol::sche_path2.c_str());
    const auto asked = [&](int kind, const char* section) {
        return patrol::ReadFlag(schedule.profile(), section, patrol::KeysOf(kind).requested) ==
               patrol::Flag::kOn;
    };
    std::vector<Wanted> wanted;
    for (const int kind : {patrol::kKindCpu, patrol::kKindMemory}) {
        if (asked(kind, patrol::KeysOf(kind).section)) {
            wanted.push_back({kind, patrol::FindKind(kind)->name});
        }
    }
    for (int i = 0; i < patrol::BoundedCount(schedule.DiskCount()); ++i) {
        if (!asked(patrol::kKindHdd, patrol::DiskSection(i).c_str())) continue;
        wanted.push_back({patrol::kKindHdd, std::string(schedule.Device<512>(i).view())});
    }
    return wanted;
}

// Brings what is known of the wanted tests up to date.
void Update(const Places& places, std::vector<Wanted>* wanted) {
    const std::vector<RunningTest> running = FindRunningTests(places);
    for (Wanted& test : *wanted) {
        const auto found =
            std::find_if(running.begin(), running.end(), [&](const RunningTest& other) {
                return other.on_request && other.kind == test.kind && other.device == test.device;
            });
        test.ended = test.seen && found == running.end();
        if (found == running.end()) continue;
        test.seen = true;
        test.progress = found->progress.value_or(test.progress);
    }
}

std::vector<Bar> BarsOf(const std::vector<Wanted>& wanted, bool cancelled) {
    std::vector<Bar> bars;
    for (const Wanted& test : wanted) {
        const Progress& progress = test.progress;
        Bar bar;
        bar.name =
            std::string(patrol::FindKind(test.kind)->program) + " " + ForTerminal(test.device);
        bar.done = test.ended && !cancelled ? 1 : progress.Done();
        if (test.ended) {
            bar.state = "ended";
        } else if (cancelled) {
            bar.state = "cancelling";
        } else if (!test.seen) {
            bar.state = "waiting";
        } else {
            bar.state = std::to_string(progress.seconds) + " s";
            if (progress.limit > 0) bar.state += " of " + std::to_string(progress.limit) + " s";
        }
        bars.push_back(bar);
    }
    return bars;
}

// Waits for the controller and shows how its tests come on; hands a signal on. Its wait status.
int Watch(const Places& places, pid_t controller, std::vector<Wanted>* wanted) {
    constexpr timespec kTick = {0, 200'000'000};
    Bars bars;
    bool cancelled = false;
    int status = 0;
    while (waitpid(controller, &status, WNOHANG) == 0) {
        if (stop_asked != 0) {
            stop_asked = 0;
            signal(SIGPIPE, SIG_IGN);  // every line would bring it again
            cancelled = true;
            kill(controller, SIGINT);
        }
        Update(places, wanted);
        bars.Show(BarsOf(*wanted, cancelled));
        nanosleep(&kTick, nullptr);
    }
    for (Wanted& test : *wanted) test.seen = test.ended = true;
    bars.Show(BarsOf(*wanted, cancelled));
    return status;
}

// The exit status that the results come to; without wanted tests it is none of success.
int StatusOfRun(const std::vector<Wanted>& wanted, const std::vector<Result>& results) {
    const auto is_error = [](const Result& result) { return result.code == patrol::kResultError; };
    if (std::any_of(results.begin(), results.end(), is_error)) return kExitFault;
    const bool all = std::all_of(wanted.begin(), wanted.end(), [&](const Wanted& test) {
        return std::any_of(results.begin(), results.end(), [&](const Result& result) {
            return result.kind == test.kind && result.device == test.device &&
                   result.code == patrol::kResultOk && !result.Skipped();
        });
    });
    return all && !wanted.empty() ? kExitOk : kExitFailed;
}

const char* VerdictText(int status) {
    if (status == kExitFault) return "A fault was found.";
    return status == kExitOk ? "All tests passed." : "Not every test was done to its end.";
}

std::string ResultTable(const std::vector<Result>& results, bool colour) {
    Table table({"TEST", "DEVICE", "RESULT", "TOOK", "TEXT"});
    for (const Result& result : results) {
        table.Add({result.program, result.device, Cell(ResultText(result), ColourOf(result)),
                   std::to_string(result.seconds) + " s", result.text});
    }
    return results.empty() ? "No test has given a result.\n" : table.Text(colour);
}

RequestSettings SettingsOf(const Options& options) {
    const auto has = [&](const char* kind) {
        return options.kinds.find(kind) != std::string::npos;
    };
    return {options.level, options.seconds, has("cpu"), has("mem"), has("hdd")};
}

// Takes the lock of all that runs the controller; says so where that takes time.
bool TakeTurn(Request* request) {
    if (request->Lock(false)) return true;
    if (errno != EWOULDBLOCK) return false;
    Print("Another run of the controller is under way; waiting for its end.\n");
    std::fflush(stdout);
    return request->Lock(true);
}

// The signals of the terminal come to this process alone, which hands them on.
pid_t StartController(const std::vector<std::string>& words, const Places& places) {
    ChildOutput child;
    child.own_group = true;
    return StartProgram(words, places, child);
}

// Has the controller make its schedule of requests. Empty, or what failed.
std::string MakeSchedule(const Options& options, const std::vector<std::string>& words) {
    const pid_t pid = StartController(words, options.places);
    if (pid < 0) return words[0] + " cannot be started: " + std::strerror(errno);
    const int status = WaitForProgram(pid);
    if (status == 0 && patrol::FileExists(patrol::sche_path2.c_str())) return "";
    return "the controller has not made its schedule; the end of " + options.places.log +
           "/padiag_log says why";
}

}  // namespace

int RunDiagnosis(const Options& options) {
    const Places& places = options.places;
    if (!PlacesKnown(places)) return kExitFailed;
    if (places.bin.empty()) return Fail("KVX_bin is not set: the test programs are not known");
    if (const auto hold = FindHold(places)) {
        return Fail("the agent lets no diagnosis run now: " + hold->reason);
    }
    CatchSignals();
    Request request(places);
    if (!TakeTurn(&request)) {
        if (stop_asked != 0) return Fail("cancelled");
        return Fail(places.data + "/run.lock cannot be locked: " + std::strerror(errno));
    }
    std::string complaint = request.Place(SettingsOf(options));
    const std::vector<std::string> words = {FindController(options), "pastart"};
    if (complaint.empty()) complaint = MakeSchedule(options, words);
    request.PutSettingsBack();
    if (!complaint.empty()) return Fail(complaint);

    std::vector<Wanted> wanted = ReadWanted();
    if (wanted.empty()) return Fail("there is nothing of these kinds to diagnose");
    if (stop_asked != 0) return Fail("cancelled");
    const NewResults news(places);
    const pid_t pid = StartController(words, places);
    if (pid < 0) return Fail(words[0] + " cannot be started: " + std::strerror(errno));
    const int status = Watch(places, pid, &wanted);
    const std::vector<Result> results = news.Read();
    const int verdict = StatusOfRun(status == 0 ? wanted : std::vector<Wanted>(), results);
    Print("\n" + ResultTable(results, options.colour) + VerdictText(verdict) + "\n");
    if (status != 0) PrintProblems({"the controller ended with an error"});
    if (news.full() && results.size() < wanted.size()) {
        PrintProblems({"the history is full, and keeps the newest result alone: move away " +
                       places.log + "/" + patrol::kPadiagHistory});
    }
    return verdict;
}

}  // namespace patrolctl
