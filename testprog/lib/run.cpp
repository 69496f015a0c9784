#include "lib/run.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <new>
#include <utility>

#include "lib/file.h"
#include "lib/result.h"

namespace testprog {

namespace {

constexpr double kProgressInterval = 0.5;
constexpr int kCancelSignals[] = {SIGINT, SIGTERM, SIGHUP};

sigset_t CancelSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kCancelSignals) sigaddset(&set, signal);
    return set;
}

void SetDisposition(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

// Differs between processes that start at the same time, and between restarts of the machine.
uint32_t FreshSeed() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const uint64_t mixed =
        (static_cast<uint64_t>(now.tv_sec) * 1000000007 +
         static_cast<uint64_t>(now.tv_nsec) * 2654435761 + static_cast<uint64_t>(getpid())) *
        0x9e3779b97f4a7c15;
    return static_cast<uint32_t>(mixed >> 32);
}

// "/dev/sda" as a part of a file name: "sda".
std::string FileNamePart(const std::string& device) {
    std::string part = device.substr(device.rfind('/') + 1);
    const auto foreign = [](char c) {
        return std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_")
                   .find(c) == std::string_view::npos;
    };
    std::replace_if(part.begin(), part.end(), foreign, '_');
    return part.substr(0, 64);
}

// A file without a name, seen among the open files of this process alone: the last progress record
// stands there, as what a pipe carries nobody but its reader sees.
int OpenShown() {
    const std::string name = Format("/patrol-progress.%ld", static_cast<long>(getpid()));
    const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (fd >= 0) shm_unlink(name.c_str());
    return fd;
}

Extent ExtentOf(const CommonOptions& common) {
    if (common.runtime == 0) return {};
    return {Extent::Kind::kMinutes, static_cast<long>((common.runtime + 59) / 60)};
}

int ExitStatus(EndCode code) {
    switch (code) {
        case EndCode::kNg:
            return kExitNg;
        case EndCode::kSkip:
            return kExitSkip;
        case EndCode::kAbort:
            return kExitAbort;
        default:
            return kExitOk;
    }
}

}  // namespace

double Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void EnterBackground() {
    const sigset_t set = CancelSignals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    // A shell starts its background jobs with SIGINT ignored, and what is ignored never comes.
    for (const int signal : kCancelSignals) SetDisposition(signal, SIG_DFL);
    // A reader that went away and a file at its size limit are failed writes.
    for (const int signal : {SIGPIPE, SIGXFSZ}) SetDisposition(signal, SIG_IGN);

    // What is opened later must not come to stand where records go: those are to fail.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDONLY));
    }

    // Where the system refuses any of this the test runs all the same, only less politely.
    const Descriptor choice(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
    static_cast<void>(!write(choice.fd, "1000", 4));
    static_cast<void>(setpriority(PRIO_PROCESS, 0, 19));
#ifdef SYS_ioprio_set
    constexpr int kWhoProcess = 1;
    constexpr int kIdleClass = 3 << 13;
    static_cast<void>(syscall(SYS_ioprio_set, kWhoProcess, 0, kIdleClass));
#endif
}

Run::Run(std::string program, std::string title, const CommonOptions& common, bool log_per_device)
    : program_(std::move(program)),
      title_(std::move(title)),
      common_(common),
      writer_(STDOUT_FILENO, program_, common.device),
      log_(Environment("KVX_log"),
           log_per_device && !common.device.empty() ? program_ + "_" + FileNamePart(common.device)
                                                    : program_,
           common.log_kib, common.generations),
      shown_(OpenShown()),
      start_(Now()),
      seed_(common.seed ? static_cast<uint32_t>(*common.seed) : FreshSeed()) {
    AppendLog(Format("start: device %s, level %ld, pattern %s, seed 0x%08x", common.device.c_str(),
                     static_cast<long>(common.level), common.pattern.c_str(), seed_));
    SendProgress();
}

void Run::SendProgress() {
    const double now = Now();
    const Progress progress{static_cast<uint32_t>(now - start_),
                            static_cast<uint32_t>(common_.runtime),
                            static_cast<unsigned>(common_.level), percent_, passes_};
    unheard_ = !writer_.SendProgress(progress) || unheard_;
    const std::string body = ProgressBody(progress);
    static_cast<void>(!pwrite(shown_.fd, body.data(), body.size(), 0));
    next_progress_ = now + kProgressInterval;
}

void Run::AwaitCancel(double seconds) {
    const sigset_t set = CancelSignals();
    timespec limit = {};
    limit.tv_sec = static_cast<time_t>(seconds);
    limit.tv_nsec = static_cast<long>((seconds - static_cast<double>(limit.tv_sec)) * 1e9);
    if (sigtimedwait(&set, nullptr, &limit) > 0) cancelled_ = true;
}

bool Run::Stop() {
    if (stopped_) return true;
    const bool cancelled = Cancelled();
    const auto limit = static_cast<double>(common_.runtime);
    stopped_ = cancelled || unheard_ || (limit > 0 && Now() - start_ >= limit);
    return stopped_;
}

bool Run::Cancelled() {
    AwaitCancel(0);
    if (Now() >= next_progress_) SendProgress();
    return cancelled_;
}

bool Run::Pause() {
    return Rest(static_cast<double>(common_.wait_sec) +
                static_cast<double>(common_.wait_usec) / 1e6);
}

bool Run::Rest(double seconds) {
    const double end = Now() + seconds;
    double left = 0;
    while (!Stop() && (left = end - Now()) > 0) AwaitCancel(std::min(left, kProgressInterval / 2));
    return stopped_;
}

Outcome Run::Rounds(const std::function<Outcome()>& round) {
    Outcome outcome;
    do {
        try {
            outcome = round();
        } catch (const std::bad_alloc&) {
            outcome = {EndCode::kAbort, "no memory for the test"};
        }
        const bool whole = outcome.code == EndCode::kOk && !stopped_;
        if (whole || outcome.code == EndCode::kCompleted) ++passes_;
    } while (outcome.code == EndCode::kOk && common_.runtime != 0 && !Stop());
    return outcome;
}

void Run::SetDone(uint64_t done, uint64_t whole) {
    percent_ =
        whole == 0
            ? 0
            : static_cast<unsigned>(static_cast<double>(done) * 100.0 / static_cast<double>(whole));
}

void Run::SetNextAddress(uint64_t address) {
    next_address_ = address > UINT32_MAX ? 0 : static_cast<uint32_t>(address);
}

void Run::AppendLog(std::string_view text) {
    if (log_.Append(text)) unheard_ = !writer_.LogRotated() || unheard_;
}

void Run::Note(std::string_view text) {
    AppendLog(text);
    unheard_ = !writer_.Log(LogLevel::kAgent, kNoMessageId, text) || unheard_;
}

void Run::SetDetails(std::vector<std::string> lines) { details_ = std::move(lines); }

uint64_t Run::Seed() {
    seed_used_ = true;
    return seed_;
}

void Run::AtEnd(std::function<std::vector<Remark>()> look) { looks_.push_back(std::move(look)); }

void Run::Warn(const std::string& text) {
    AppendLog(text);
    unheard_ = !writer_.Log(LogLevel::kAgent, "W0808", text) || unheard_;
}

void Run::TakeRemarks(Outcome* outcome) {
    if (outcome->code == EndCode::kSkip) return;
    for (const auto& look : looks_) {
        for (const Remark& remark : look()) {
            if (remark.faulty && outcome->code != EndCode::kNg) {
                *outcome = {EndCode::kNg, remark.text};
            } else {
                Warn(remark.text);
            }
        }
    }
}

int Run::Finish(Outcome outcome) {
    // One that came before has had its effect; from here on it ends the wait for a reader.
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    const timespec no_time{};
    sigtimedwait(&terminate, nullptr, &no_time);
    TakeRemarks(&outcome);
    if (outcome.code == EndCode::kNg && seed_used_) outcome.error += Format(", seed 0x%08x", seed_);
    if (outcome.code == EndCode::kOk && cancelled_) outcome.code = EndCode::kCancel;
    if (outcome.code == EndCode::kOk && unheard_) {
        outcome = {EndCode::kAbort, "a record could not be written"};
    }
    SendProgress();
    const auto level = static_cast<long>(common_.level);
    const Result result{common_.patrol,    program_,     title_,  common_.device, level,
                        ExtentOf(common_), outcome.code, passes_, outcome.error,  details_};
    unsigned flags = kFlagResultText;
    if (outcome.code == EndCode::kNg) {
        flags |= kFlagFaulty;
        // The controller gathers what lies between these two numbers into one system log entry.
        writer_.Log(LogLevel::kSystem, "I0807", program_ + " of " + common_.device + " failed");
        writer_.Log(LogLevel::kSystem, kNoMessageId, outcome.error);
        writer_.Log(LogLevel::kAgent, "E0809",
                    program_ + " of " + common_.device + " ended with NG");
    }
    AppendLog(Format("end: code %d, passes %ld %s", static_cast<int>(outcome.code), passes_,
                     outcome.error.c_str()));
    const bool heard = writer_.Status(outcome.code, flags, next_address_, ResultBlock(result));
    return heard ? ExitStatus(outcome.code) : kExitUnheard;
}

}  // namespace testprog
