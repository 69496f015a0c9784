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
#include "base/local_time.h"
#include "base/number.h"
#include "base/run_mode.h"
#include "base/settings.h"
#include "msg/call_failure.h"
#include "msg/trace.h"
#include "state/disk_progress.h"

namespace patrol {
namespace {

constexpr int kOldest = 3;

// Returns whether the last line of the file is without its end: what a full disk has left of it.
// The next line would go on in it, and both would be lost to whoever reads the history.
bool EndsInStump(const Path& path) {
    const Stream file = OpenForReading(path.c_str());
    if (file == nullptr || std::fseek(file.get(), -1, SEEK_END) != 0) return false;
    const int last = std::getc(file.get());
    return last != EOF && last != '\n';
}

// Tells the trace and, by one event, the agent of a line that is not whole in the history.
void ReportLostLine(const char* caller, const Path& path, int error) {
    Ptltrprintf("[%s] System Call Error. function= %s, errno: %d\n", caller, "write", error);
    CallFailure failure("write", error);
    const std::string event_text = std::string("file name = ") + path.c_str();
    failure.event_text = event_text.c_str();
    failure.file = path.c_str();
    ReportCallFailure(failure);
}

// Appends a line. Returns 0, or -1 when the file cannot be opened, which is traced under `caller`:
// a missing history stops no diagnosis.
int Append(const char* caller, const Path& path, const std::string& line) {
    const Stream file = OpenForAppending(path.c_str());
    if (file == nullptr) {
        const int error = errno;
        Ptltrprintf("[%s] System Call Error. function= %s, errno: %d\n", caller, "fopen", error);
        Ptltrprintf("[%s] file name : %s\n", caller, path.c_str());
        return -1;
    }
    if (!WriteAll(fileno(file.get()), EndsInStump(path) ? "\n" + line : line)) {
        ReportLostLine(caller, path, errno);
    }
    return 0;
}

// Lines about what a schedule is for.
std::string TargetLine(int mode, const char* rest) {
    return std::string(HistoryStamp(start_time).view()) + " [" + ptl_histentry_str(mode) +
           "] Target " + rest;
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

// Returns the seconds that a finished patrol test ran.
int TestSeconds(RunningTest* test) {
    if (FindKind(test->kind) == nullptr) return 1;
    // What has passed since the last sample comes on top of what the test program has reported, so
    // that most seconds count twice. Readers of the history know them so.
    CheckTestTime(0, 0, test);
    // The processor test is waited for last: its clock says how long the others took.
    if (test->kind == kKindCpu && test->run_time > 1) test->run_time = 1;
    return std::max(ClampToInt(test->run_time), 1);
}

// Returns the seconds that a finished padiag test ran, at most the time limit.
int PadiagSeconds(const RunningTest& test) {
    // A disk that ran for one second counts as one, whatever the limit.
    if (test.run_time < (test.kind == kKindHdd ? 2U : 1U)) return 1;
    return static_cast<int>(std::min(int64_t{padiag_time}, int64_t{test.run_time}));
}

// Returns how far a level 3 disk test has come, by what the test programs keep of `device`. By the
// file and not by the test's own report: the file is where the next test will go on.
int ReachedPercent(const char* device) {
    const DiskProgress progress(lba_path.c_str());
    const uint64_t maximum = progress.Maximum(device);
    const uint64_t next = progress.Next(device);
    // The trace shows the low halves.
    Ptltrprintf("[%s] devname = %s, next_lba_ini = 0x%08x, max_lba_ini = 0x%08x\n", "PadiagHistory",
                device, static_cast<uint32_t>(next), static_cast<uint32_t>(maximum));
    return ProgressPercent(next, maximum);
}

// Returns what a padiag line says of its test behind the seconds.
std::string DetailOf(int result, const RunningTest& test) {
    if (FindKind(test.kind) == nullptr) return "";
    PadiagDetail detail;
    detail.passes = test.pass_count;
    if (test.kind == kKindHdd && padiag_level >= kProgressLevel && result != kResultAbort) {
        detail.has_progress = true;
        detail.progress_before = test.padiag.progress;
        detail.progress_after = ReachedPercent(test.device_name.c_str());
    }
    return std::string(FormatDetail(detail).view());
}

}  // namespace

int PadiagHistory(int result, RunningTest* test, const char* message) {
    const Kind* row = FindKind(test->kind);
    const int seconds = row != nullptr ? PadiagSeconds(*test) : 0;
    const std::string detail = DetailOf(result, *test);
    Path path = PadiagHistoryPath();
    ptl_histfile_cntl(&path);
    // An unknown component loses its last letter here; readers of the file know it so.
    std::string line =
        ResultHead(std::time(nullptr), ptl_result_str(result),
                   row != nullptr ? row->program : "unknow", test->device_name.c_str(), seconds);
    line += " " + detail;
    if (message != nullptr) line.append(" ").append(message);
    return Append(__func__, path, line + "\n");
}

int ptl_history(int result, RunningTest* test, const char* message) {
    const Kind* row = FindKind(test->kind);
    const int seconds = TestSeconds(test);
    Path path = PatrolHistoryPath();
    ptl_histfile_cntl(&path);

    std::string line =
        ResultHead(start_time, ptl_result_str(result), row != nullptr ? row->program : "unknown",
                   test->device_name.c_str(), seconds);
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
    path.Format("%s/%s", trc_name, kPatrolHistory);
    return path;
}

Path PadiagHistoryPath() {
    Path path;
    path.Format("%s/%s", trc_name, kPadiagHistory);
    return path;
}

void ptl_histfile_cntl(Path* path) {
    struct stat status = {};
    if (stat(path->c_str(), &status) != 0 || status.st_size <= kMaxHistorySize) return;
    // The same file is looked at each time, so that this ends beyond the oldest.
    int generation = 1;
    while (generation <= kOldest && stat(path->c_str(), &status) == 0) ++generation;
    if (generation > kOldest) {
        generation = kOldest;
        path->Format("%s/%s", trc_name, kAgedHistory);
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
    constexpr char kMark[] = "ERROR   :";
    constexpr size_t kMaxMessage = 80;
    const char* found = std::strstr(text, kMark);
    if (found == nullptr) return nullptr;
    found += std::strlen(kMark);
    const std::string_view line(found, std::strcspn(found, "\r\n"));
    message.Assign(WithoutControls(line).substr(0, kMaxMessage));
    return message.c_str();
}

const char* ptl_result_str(int result) {
    const bool known = result >= 0 && result < static_cast<int>(std::size(kResultWords));
    return known ? kResultWords[result] : "";
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
