#include "report/history.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "base/clocks.h"
#include "base/file.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/call_failure.h"
#include "msg/trace.h"

namespace patrol {
namespace {

constexpr off_t kMaxSize = 0xFFF7F;
constexpr int kOldest = 3;

Text<32> StartStamp() {
    const std::time_t seconds = start_time;
    std::tm local = {};
    localtime_r(&seconds, &local);
    Text<32> stamp;
    std::strftime(stamp.data(), stamp.kSize, "%Y/%m/%d %H:%M:%S", &local);
    return stamp;
}

// `caller` is the routine that the failure is traced under.
int Append(const char* caller, const Path& path, const std::string& line) {
    const Stream file(std::fopen(path.c_str(), "ae"));
    if (file == nullptr) {
        const int error = errno;
        Ptltrprintf("[%s] System Call Error. function= %s, errno: %d\n", caller, "fopen", error);
        Ptltrprintf("[%s] file name : %s\n", caller, path.c_str());
        return -1;
    }
    std::fputs(line.c_str(), file.get());
    return 0;
}

std::string TargetLine(int mode, const char* rest) {
    return std::string(StartStamp().view()) + " [" + ptl_histentry_str(mode) + "] Target " + rest;
}

std::string DevicesLine(int mode, const char* devices) {
    return TargetLine(mode, "Device: ") + devices + "\n";
}

std::string KindsLine(int mode, int cpu, int memory, int hdd) {
    std::string line = TargetLine(mode, "Diagnosis:");
    const int wanted[] = {cpu, memory, hdd};
    for (size_t i = 0; i < std::size(wanted); ++i) {
        if (wanted[i] == 1) line.append(" ").append(kKinds[i].program);
    }
    return line + "\n";
}

// Seconds that a finished test ran, for its history line.
int TestSeconds(int kind, int entry) {
    if (FindKind(kind) == nullptr) return 1;
    SampleKindClock(kind, 0, entry);
    uint32_t* running = KindRunTime(kind, entry);
    if (kind == kKindCpu) {
        if (*running > 1) *running = 1;
        return 1;
    }
    return running != nullptr ? std::max(ClampToInt(*running), 1) : 1;
}

}  // namespace

int ptl_history(int result, int kind, const char* device, const char* message, int entry) {
    const Kind* row = FindKind(kind);
    const int seconds = TestSeconds(kind, entry);
    Path path = PatrolHistoryPath();
    ptl_histfile_cntl(&path);

    Text<64> head;
    head.Format("%s %-7s %s ", StartStamp().c_str(), ptl_result_str(result),
                row != nullptr ? row->program : "unknown");
    std::string line(head.view());
    line += device;
    line += " [" + std::to_string(seconds) + "s]";
    if (message != nullptr) line += message;
    return Append(__func__, path, line + "\n");
}

int ptl_change_hist(int mode, const char* devices) {
    return Append(__func__, PatrolHistoryPath(), DevicesLine(mode, devices));
}

int ptl_change_hist2(int mode) {
    return Append(__func__, PatrolHistoryPath(), KindsLine(mode, f_cpu_exe, f_mem_exe, f_hdd_exe));
}

int PadiagChangeHist(int mode, const char* devices) {
    return Append(__func__, PadiagHistoryPath(), DevicesLine(mode, devices));
}

int PadiagChangeHist2(int mode) {
    return Append(__func__, PadiagHistoryPath(),
                  KindsLine(mode, f_padiag_cpu, f_padiag_mem, f_padiag_hdd));
}

Path PatrolHistoryPath() {
    Path path;
    path.Format("%s/%s0.txt", trc_name, "patstat");
    return path;
}

Path PadiagHistoryPath() {
    Path path;
    path.Format("%s/%s.txt", trc_name, "pastat");
    return path;
}

void ptl_histfile_cntl(Path* path) {
    struct stat status = {};
    if (stat(path->c_str(), &status) != 0 || status.st_size <= kMaxSize) return;
    int generation = 1;
    while (generation <= kOldest && stat(path->c_str(), &status) == 0) ++generation;
    if (generation > kOldest) {
        generation = kOldest;
        path->Format("%s/%s%d.txt", trc_name, "patstat", kOldest);
        if (unlink(path->c_str()) != 0) {
            CallFailure failure("unlink", errno);
            failure.cause = false;
            failure.file = path->c_str();
            ReportCallFailure(failure);
        }
    }
    for (; generation > 0; --generation) {
        const std::string aged = std::string(path->view()) + std::to_string(generation);
        if (std::rename(path->c_str(), aged.c_str()) == 0) continue;
        CallFailure failure("rename", errno);
        failure.cause = false;
        failure.file = path->c_str();
        failure.file_note = "(old)";
        ReportCallFailure(failure);
        ReportFileName(aged.c_str(), "(new)");
    }
}

const char* get_error_msg(const char* text) {
    static Text<128> message;
    constexpr std::string_view kMark = "ERROR   :";
    constexpr size_t kMaxMessage = 80;
    const char* found = std::strstr(text, kMark.data());
    if (found == nullptr) return nullptr;
    found += kMark.size();
    const size_t length = std::min(std::strcspn(found, "\r\n"), kMaxMessage);
    message.Assign({found, length});
    return message.c_str();
}

const char* ptl_result_str(int result) {
    static constexpr const char* kWords[] = {"OK", "ERROR", "ABORT", "TIMEOUT", "CANCEL"};
    return result >= 0 && result < static_cast<int>(std::size(kWords)) ? kWords[result] : "";
}

const char* ptl_histentry_str(int mode) {
    switch (mode & kModeMask) {
        case kModeAgentStart:
            return "KVX Start";
        case kModeStart:
            return "Test Start";
        case kModeReload:
            return "Change Setup";
        case kModeConfigChange:
            return "Change Configuration";
        default:
            return "Unknown Entry";
    }
}

}  // namespace patrol
