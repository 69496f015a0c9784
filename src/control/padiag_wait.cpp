#include "control/padiag_wait.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "base/blocking.h"
#include "base/disk_table.h"
#include "base/file.h"
#include "base/running_tests.h"
#include "base/settings.h"
#include "base/signals.h"
#include "control/padiag_launch.h"
#include "control/padiag_output.h"
#include "msg/call_failure.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/system_event.h"
#include "sys/child.h"
#include "sys/deferred_writes.h"

namespace patrol {
namespace {

constexpr int kOpenAttempts = 5;

// The addresses that disks have reported are in place before: a second is long enough for somebody
// to switch the machine off.
void PauseASecond() {
    BlockingCall([] { sleep(1); });
}

// Waits until the test has ended. A wait that fails reads as an exit with 0.
void WaitForTest(const char* caller, const RunningTest& test, const SignalWatch& watch) {
    int status = 0;
    do {
        if (WaitForChild(test.pid, &status, WUNTRACED, watch) < 0) {
            status = 0;
            Ptltrprintf("[%s] waitpid -> %s.\n", caller, "Wait_failed");
            PauseASecond();
        }
        Ptltrprintf("[%s] %s-> %s\n", caller, FindKind(test.kind)->program,
                    WakeUpText(status).c_str());
    } while (!WIFEXITED(status) && !WIFSIGNALED(status));
}

// Returns null when the file cannot be opened in all its tries; each is traced. The test has ended
// by then, but its file may lie on a file system that is slow to show it.
Stream OpenOutput(const char* caller, const std::string& path) {
    Stream file;
    for (int i = 1; i <= kOpenAttempts && file == nullptr; ++i) {
        if (i > 1) PauseASecond();
        file = OpenForReading(path.c_str());
        if (file == nullptr) Ptltrprintf("[%s] (%d)Not Open %s.\n", caller, i, path.c_str());
    }
    return file;
}

// Announces and enters a test that gave no result. Nobody else would: a program that crashed has
// said nothing.
void ReportAborted(const char* caller, RunningTest* test) {
    const std::string message = std::string(FindKind(test->kind)->program) + " aborted.";
    EventRecord record;
    record.pass = test->pass_count;
    record.errmsg.Assign(message);
    record.start_time = test->padiag.start_time;
    record.level = padiag_level;
    record.start_lba = test->padiag.start_lba;
    Ptltrprintf("[%s] evtlog_msg.start_time = [%s].\n", caller, record.start_time.c_str());
    date2iso8601(std::time(nullptr), &record.end_time);
    Ptltrprintf("[%s] evtlog_msg.end_time = [%s].\n", caller, record.end_time.c_str());
    Ptltrprintf("[%s] pass = [%d].\n", caller, record.pass);
    padiag_sdb_event(EndEventName(test->kind), kEventFailed, test->padiag.phypath.c_str(), record);
    PadiagHistory(kResultAbort, test, message.c_str());
}

// The whole of a wait, the same for every kind: until the end of the test, through its output, to
// its entry in the history.
void WaitAndRead(const char* caller, RunningTest* test) {
    const SignalWatch watch;
    const char* name = FindKind(test->kind)->short_name;
    test->padiag.event_check = 1;
    test->pass_count = 0;
    Ptltrprintf("[%s] ProcessId%s =%d fhandle%s =%d\n", caller, name, test->pid, name,
                test->read_fd);
    WaitForTest(caller, *test, watch);
    // It shares its position with the test program's output; what was written is read through a
    // stream of its own, from the start.
    close(test->read_fd);
    test->read_fd = -1;

    const std::string path = OutputPath(*test);
    Stream file = OpenOutput(caller, path);
    if (file == nullptr) return;
    ReadPadiagOutput(caller, test, file.get());
    if (std::ferror(file.get()) != 0)
        ReportFileTrouble(caller, "read", path.c_str(), "fgets", errno);
    file.reset();
    unlink(path.c_str());
    // The readers of the output clear the mark when they announce the end.
    if (test->padiag.event_check == 1) ReportAborted(caller, test);
}

}  // namespace

void PadiagWaitCpuTest() {
    Ptltrprintf("[%s] Start.\n", __func__);
    WaitAndRead(__func__, &cpu_test);
    Ptltrprintf("[%s] End.\n", __func__);
}

void PadiagWaitMemTest() {
    Ptltrprintf("[%s] Start.\n", __func__);
    WaitAndRead(__func__, &mem_test);
    Ptltrprintf("[%s] End.\n", __func__);
}

void PadiagWaitHddTest() {
    Ptltrprintf("[%s] Start.\n", __func__);
    for (int i = 0; i < hdd_exec_use; ++i) WaitAndRead(__func__, &hdd_exec_tbl[i]);
    FlushDeferredWrites();
    Ptltrprintf("[%s] End.\n", __func__);
}

}  // namespace patrol
