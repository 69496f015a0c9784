#include "report/parts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "base/file.h"
#include "base/kinds.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "msg/trace.h"
#include "report/command_runner.h"
#include "report/error_messages.h"
#include "sys/retry.h"

namespace patrol {
namespace {

constexpr int kAttempts = 5;
constexpr int kDeleteAttempts = 3;
constexpr int kCommandSeconds = 21600;
constexpr int kOperation = 3890;

// What check_parts_cmd_value says.
constexpr int kDone = 0;
constexpr int kGiveUp = 1;
constexpr int kRunAgain = 4;

// The fault being reported. Too large for the stack.
FaultRecord errlog_inf;

struct ReportPaths {
    std::string report;
    std::string backup;
};

// The names tell the agent whose report it is; what is neither processor, memory nor a plain disk
// goes by the name of the other devices.
ReportPaths ChoosePaths(const std::string& directory, int run_mode, const char* device) {
    const std::string_view name = device;
    const std::string base = directory + (run_mode == kRunPatrol ? "/parts_pt_" : "/parts_pd_");
    const auto with_bak = [](const std::string& report) {
        return ReportPaths{report, report + ".bak"};
    };
    if (name == "CPU") return with_bak(base + "cpu");
    if (name == "Memory") return with_bak(base + "mem");
    constexpr std::string_view kDeviceDirectory = "/dev/";
    if (!StartsWith(name, "/dev/sd")) return with_bak(directory + "/parts_io");
    std::string file(name.substr(kDeviceDirectory.size()));
    std::replace(file.begin(), file.end(), '/', '_');
    const std::string report = base + "hdd." + file;
    return {report, report + "_bak"};
}

using Block = std::unique_ptr<char, decltype(&std::free)>;

// Returns the report's text. Returns null when memory runs out, which is no reason to end the
// program: the history has the fault.
Block ComposeReport(const FaultRecord& record, int run_mode) {
    constexpr size_t kFixedPart = 1024;  // more than the other lines take
    const size_t size = kFixedPart + record.summary.size() + record.detail.size();
    Block text(static_cast<char*>(recalloc(1, size, kAttempts)), std::free);
    if (text == nullptr) return text;

    const std::time_t now = std::time(nullptr);
    const std::tm local = LocalTime(now);
    char time_line[64];
    std::strftime(time_line, sizeof time_line, "TIME=%Y-%m-%dT%H:%M:%S", &local);
    // A line feed in the location would begin another line of the report.
    Text<40> location = record.location;
    remove_char(location.data(), '\n');
    set_array(text.get(), size,
              "%s%s\nLEVEL=1st\nTYPE=error\nMODE=SB\nREFLOG=NONE\nFRU_NUM=1\nFRU1=%s;%s\n"
              "FLAG=%s\nSUMMARY=%s\nOPERATION=E%d\nDETAIL=%s\n",
              time_line, date_tm_tz(now).c_str(), record.fru_name.c_str(), location.c_str(),
              run_mode == kRunPatrol ? "patrol" : "diag", record.summary.c_str(), kOperation,
              record.detail.c_str());
    return text;
}

// Runs the parts command until it is done or given up. The command decides how often, by its exit
// status.
bool Submit(const std::string& report) {
    int counter = 0;
    int verdict = kRunAgain;
    while (verdict == kRunAgain) {
        verdict = check_parts_cmd_value(exec_parts_cmd(report.c_str()), &counter);
    }
    return verdict == kDone;
}

// Does everything that patrol_parts_proc does. Returns false where a step fails: what was written
// stays, so that the report is not lost.
bool WriteAndSubmit(const FaultRecord& record, int run_mode, const char* device) {
    const char* directory = DirectoryVariable("KVX_temp");
    if (directory == nullptr) return false;
    const ReportPaths paths = ChoosePaths(directory, run_mode, device);
    const Block text = ComposeReport(record, run_mode);
    if (text == nullptr) {
        put_error_message(kErrorInternal, "calloc()");
        return false;
    }
    const size_t length = std::strlen(text.get());
    return write_parts_data(text.get(), length, paths.report.c_str()) == 0 &&
           write_parts_data(text.get(), length, paths.backup.c_str()) == 0 &&
           Submit(paths.report) && delfile(paths.report.c_str()) == 0 &&
           delfile(paths.backup.c_str()) == 0;
}

// Tells the agent and the trace; returns 1.
int WriteFailed(int code, const char* path) {
    put_error_message(code, path);
    outtrace("write_parts_data ERROR end");
    return 1;
}

}  // namespace

void ReportFault(const char* caller, const RunningTest& test, int run_mode, const char* status,
                 size_t size, const char* detail) {
    set_parts_errinf(&errlog_inf, status, size);
    errlog_inf.detail.Assign(detail);
    if (patrol_parts_proc(errlog_inf, run_mode, test.device_name.c_str()) != 0) {
        Ptltrprintf("[%s] parts_proc err !!", caller);
    }
}

int patrol_parts_proc(const FaultRecord& record, int run_mode, const char* device) {
    if (!WriteAndSubmit(record, run_mode, device)) {
        outtrace("patrol_parts_proc ERROR end");
        return 1;
    }
    OutTracef("The pointed-out device is %s.(%s : %s )", record.fru_name.c_str(),
              record.fru_name.c_str(), record.location.c_str());
    outtrace("patrol_parts_proc end");
    return 0;
}

int write_parts_data(const char* text, size_t length, const char* path) {
    // Others may write to the directory. What they put there in the moment between is not written
    // through, followed or waited for, but removed as well.
    constexpr int kNewAlone = O_EXCL | O_NOFOLLOW | O_NONBLOCK;
    Descriptor file;
    for (int i = 0; i < kAttempts && !file.ok(); ++i) {
        if (delfile(path) != 0) {
            outtrace("write_parts_data ERROR end");
            return 1;
        }
        file.Reset(recreat(path, 0644, kAttempts, kNewAlone));
        if (!file.ok() && errno != EEXIST) break;
    }
    if (!file.ok()) return WriteFailed(kErrorFileOpen, path);
    size_t done = 0;
    while (done < length) {
        const ssize_t taken = rwrite(file.get(), text + done, length - done, kAttempts);
        if (taken <= 0) return WriteFailed(kErrorFileWrite, path);
        done += static_cast<size_t>(taken);
    }
    return 0;
}

int delfile(const char* path) {
    for (int i = 0; i < kDeleteAttempts; ++i) {
        if (unlink(path) == 0 || errno == ENOENT) return 0;
    }
    put_error_message(kErrorInternal, (std::string(path) + " can't delete").c_str());
    return 1;
}

int exec_parts_cmd(const char* report_path) {
    // Read once and kept, whatever becomes of the environment.
    static const char* const directory = std::getenv("KVX_bin");
    if (directory == nullptr) {
        OutTracef("MSG [L%d]> %s%s", 580, ":The environment variable is not defined.",
                  "(ENV_KVXBIN)");
        outtrace("exec_parts_cmd ERROR end");
        return 1;
    }
    std::string command = std::string(directory) + "/parts";
    std::string word = "set";
    std::string report = report_path;
    char* const arguments[] = {command.data(), word.data(), report.data(), nullptr};
    OutTracef("Exec >> %s", command.c_str());
    const int result = execute(command.c_str(), arguments, kCommandSeconds);
    OutTracef("parts cmd ret:(%d) file:(%s)", result, report_path);
    return result;
}

int check_parts_cmd_value(int exit_status, int* counter) {
    constexpr int kRetries = 5;
    // What the last answer was: a 4 gets its one repeat even behind a 2, a 2 behind a 4 none.
    static int state = 0;
    if (exit_status == 0) {
        state = 0;
        *counter = 0;
        return kDone;
    }
    if (exit_status == 2 && state == 0) {
        state = 2;
        *counter = kRetries;
        return kRunAgain;
    }
    if (exit_status == 2 && state == 2 && --*counter > 0) return kRunAgain;
    if (exit_status == 4 && state != 4) {
        state = 4;
        *counter = 1;
        return kRunAgain;
    }
    put_error_message(kErrorCommand, "parts");
    state = 0;
    return kGiveUp;
}

int remove_char(char* text, char unwanted) {
    if (text[0] == '\0') return -1;
    char* end = text;
    for (const char* at = text; *at != '\0'; ++at) {
        if (*at != unwanted) *end++ = *at;
    }
    *end = '\0';
    return 0;
}

Text<64> date_tm_tz(std::time_t now) {
    constexpr long kSecondsAMinute = 60;
    const std::tm local = LocalTime(now);
    const long minutes = std::labs(local.tm_gmtoff) / kSecondsAMinute;
    Text<64> stamp("TIME=");
    stamp.Append(ZonedTime(local, local.tm_gmtoff < 0, static_cast<int>(minutes)).view());
    return stamp;
}

}  // namespace patrol
