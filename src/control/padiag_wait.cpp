#include "control/padiag_wait.h"

#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "base/blocking.h"
#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/file.h"
#include "base/kinds.h"
#include "base/padiag_state.h"
#include "base/settings.h"
#include "control/launch.h"
#include "control/padiag_launch.h"
#include "control/padiag_output.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/system_event.h"
#include "sys/child.h"
#include "sys/deferred_writes.h"

namespace patrol {
namespace {

constexpr int kOpenAttempts = 5;

// One running test.
struct RunningTest {
    PadiagOutput output;
    const char* name;  // of the kind in "ProcessId..."
    pid_t pid;
    int32_t* fd;
    int number;  // of the output file
};

void PauseASecond() {
    BlockingCall([] { sleep(1); });
}

// Waits until the test has ended. A wait that fails reads as an exit with 0.
void WaitForTest(const RunningTest& test) {
    int status = 0;
    do {
        if (WaitForChild(test.pid, &status, WUNTRACED) < 0) {
            status = 0;
            Ptltrprintf("[%s] waitpid -> %s.\n", test.output.caller, "Wait_failed");
            PauseASecond();
        }
        Ptltrprintf("[%s] %s-> %s\n", test.output.caller, FindKind(test.output.kind)->program,
                    WakeUpText(status).c_str());
    } while (!WIFEXITED(status) && !WIFSIGNALED(status));
}

Stream OpenOutput(const char* caller, const std::string& path) {
    Stream file;
    for (int i = 1; i <= kOpenAttempts && file == nullptr; ++i) {
        if (i > 1) PauseASecond();
        file = OpenForReading(path.c_str());
        if (file == nullptr) Ptltrprintf("[%s] (%d)Not Open %s.\n", caller, i, path.c_str());
    }
    return file;
}

// Announces and enters a test that gave no result.
void ReportAborted(const RunningTest& running, const PadiagTest& test) {
    const PadiagOutput& output = running.output;
    const std::string message = std::string(FindKind(output.kind)->program) + " aborted.";
    EventRecord record;
    record.pass = *KindPassCount(output.kind, output.entry);
    record.errmsg.Assign(message);
    record.start_time = test.start_time;
    record.level = padiag_level;
    record.start_lba = test.start_lba;
    Ptltrprintf("[%s] evtlog_msg.start_time = [%s].\n", output.caller, record.start_time.c_str());
    date2iso8601(std::time(nullptr), &record.end_time);
    Ptltrprintf("[%s] evtlog_msg.end_time = [%s].\n", output.caller, record.end_time.c_str());
    Ptltrprintf("[%s] pass = [%d].\n", output.caller, record.pass);
    padiag_sdb_event(EndEventName(output.kind), kEventFailed, test.phypath.c_str(), record);
    PadiagHistory(kResultAbort, output.kind, output.device, message.c_str(), output.entry);
}

void WaitAndRead(const RunningTest& running) {
    const PadiagOutput& output = running.output;
    PadiagTest* test = FindPadiagTest(output.kind, output.entry);
    test->event_check = 1;
    *KindPassCount(output.kind, output.entry) = 0;
    Ptltrprintf("[%s] ProcessId%s =%d fhandle%s =%d\n", output.caller, running.name, running.pid,
                running.name, *running.fd);
    WaitForTest(running);
    close(*running.fd);
    *running.fd = -1;

    const std::string path = OutputPath(output.kind, running.number);
    Stream file = OpenOutput(output.caller, path);
    if (file == nullptr) return;
    ReadPadiagOutput(output, file.get());
    file.reset();
    unlink(path.c_str());
    if (test->event_check == 1) ReportAborted(running, *test);
}

void WaitSingle(const char* caller, int kind, const char* name, pid_t pid, int32_t* fd) {
    const char* kind_name = FindKind(kind)->name;
    Ptltrprintf("[%s] Start.\n", caller);
    WaitAndRead({{caller, kind, kind_name, kind_name, 0, 0}, name, pid, fd, 0});
    Ptltrprintf("[%s] End.\n", caller);
}

}  // namespace

void PadiagWaitCpuTest() { WaitSingle(__func__, kKindCpu, "Cpu", ProcessIdCpu, &fhandleCpu); }

void PadiagWaitMemTest() { WaitSingle(__func__, kKindMemory, "Mem", ProcessIdMem, &fhandleMem); }

void PadiagWaitHddTest() {
    Ptltrprintf("[%s] Start.\n", __func__);
    for (int i = 0; i < hdd_exec_use; ++i) {
        HddExec& disk = hdd_exec_tbl[i];
        WaitAndRead({{__func__, kKindHdd, "HDD", disk.device_name.c_str(), disk.schedule_index, i},
                     "Hdd",
                     disk.pid,
                     &disk.read_fd,
                     disk.schedule_index});
    }
    FlushDeferredWrites();
    Ptltrprintf("[%s] End.\n", __func__);
}

}  // namespace patrol
