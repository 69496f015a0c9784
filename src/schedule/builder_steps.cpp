#include "schedule/builder_steps.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/run_mode.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "schedule/device_config.h"
#include "state/schedule_file.h"

namespace patrol {

namespace {

void TellOfFile(const char* path) {
    const std::string text = std::string("file name = ") + path;
    ptl_printf(kAgentEvent, nullptr, "E3899", text);
}

// Says what has kept the file at `path` from being made, if a call has.
void ReportFailedCall(const char* caller, const char* path, const FailedCall& failed) {
    if (failed.call == nullptr) return;
    Ptltrprintf("[%s] System Call Error (%s), errno:%d\n", caller, failed.call, failed.error);
    // Here alone no exit status tells the agent.
    if (RunMode() == kModeAgentStart) TellOfFile(path);
}

}  // namespace

void PutSection(FILE* schedule, const char* section) { std::fprintf(schedule, "[%s]\n", section); }

void PutText(FILE* schedule, const char* key, const char* value) {
    std::fprintf(schedule, "%s=%s\n", key, value);
}

void PutNumber(FILE* schedule, const char* key, int value) {
    std::fprintf(schedule, "%s=%d\n", key, value);
}

void PutFlag(FILE* schedule, const char* key, bool on) { PutText(schedule, key, OnOff(on)); }

void AddTarget(Text<512>* targets, const char* target) {
    if (!targets->empty()) targets->Append(",");
    targets->Append(target);
}

bool ScheduleUsable(const char* caller, const char* path) {
    if (LookAtSchedule(path) != Place::kUnusable) return true;
    ReportUnusable(caller, path);
    return false;
}

void ReportUnusable(const char* caller, const char* path) {
    Ptltrprintf("[%s] Error:%s is not usable as a Schedule File.\n", caller, path);
    TellOfFile(path);
}

bool BeginFile(const char* caller, const char* path, const FileReplacement& schedule) {
    // A rename asks nobody whether the old file may be written to; one that is read-only is to
    // stay.
    const bool writable = access(path, W_OK) == 0 || errno == ENOENT;
    if (writable && schedule.stream() != nullptr) return true;
    Ptltrprintf("[%s] Can't open %s.\n", caller, path);
    ReportFailedCall(caller, path, schedule.failure());
    Ptltrprintf("[%s] end.( -1 )\n", caller);
    return false;
}

bool EndFile(const char* caller, const char* path, int disks, FileReplacement* schedule) {
    // Disks that were not read are not to be forgotten.
    const bool placed = disks != kUnread && schedule->Commit();
    const bool synced = placed && SyncDirectory(path);
    if (synced && disks == kScanned) return true;
    ReportFailedCall(caller, path,
                     placed && !synced ? FailedCall{"fsync", errno} : schedule->failure());
    Ptltrprintf("[%s] end.( -1 )\n", caller);
    return false;
}

}  // namespace patrol
