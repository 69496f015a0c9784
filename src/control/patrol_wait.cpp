#include "control/patrol_wait.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/clocks.h"
#include "base/disk_table.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/signals.h"
#include "control/patrol_launch.h"
#include "control/stop.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/parts.h"
#include "state/schedule_file.h"
#include "sys/child.h"
#include "sys/deferred_writes.h"
#include "sys/pipe_reader.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr char kName[] = "wait_for_testdata";
constexpr size_t kLengthAt = 7;  // of the body length in a record prefix
constexpr int kLongBody = 119;   // bodies above it are worth a trace line
constexpr uint32_t kAddressStep = 64;
constexpr int kAddressDigits = 8;
// A body announced above this is refused like one that memory has no room for.
constexpr int kMaxBody = 1 << 20;

// How handling one record ended.
enum class Next { kRecord, kSuccess, kFailure };

int ErrorEnd() {
    Ptltrprintf("[%s] Error End.\n", kName);
    return -1;
}

int StopWithError(const RunningTest& test) {
    ptl_test_terminate(test.pid);
    return ErrorEnd();
}

// The body of a record and zero bytes behind it.
struct Body {
    std::unique_ptr<char, decltype(&std::free)> bytes{nullptr, std::free};
    size_t size = 0;
};

// SIGALRM interrupts the wait it rings in and does nothing else.
void tp_timeout(int signal) { NoteSignal(signal); }

// Waits for a child to end, any child, for at most `seconds`. False when none did.
bool WaitForEnd(int seconds) {
    SignalScope scope;
    scope.LetIn(SIGALRM);
    InstallHandler(SIGALRM, tp_timeout);
    SignalScope::SetAlarm(seconds);
    int status = 0;
    return WaitForChild(-1, &status, 0) > 0;
}

// Fills the fault record from the whole status record and hands it to the agent.
void ReportFault(const RunningTest& test, int mode, const Body& body) {
    set_parts_errinf(&errlog_inf, body.bytes.get(), body.size);
    const char* detail = std::strstr(body.bytes.get(), "[[[[");
    errlog_inf.detail.Assign(detail != nullptr ? detail : "");
    if (patrol_parts_proc(errlog_inf, mode, test.device_name.c_str()) != 0) {
        Ptltrprintf("[%s] parts_proc err !!", kName);
    }
}

Next EndWith(Next result) {
    Ptltrprintf("[%s] End.\n", kName);
    return result;
}

Next TakeStatus(RunningTest* test, const TestWait& wait, const Body& body,
                const RecordContext& context) {
    const char* kind_name = FindKind(test->kind)->name;
    const int end_code =
        check_testdata_status(body.bytes.get() + kHeaderSize, context, test, wait.mode);
    if (end_code == -1) {
        StopWithError(*test);
        return Next::kFailure;
    }
    Ptltrprintf("[%s] diagnosis end. end code=%d\n", kName, end_code);
    if (!WaitForEnd(wait.timeout)) {
        // The result stands: the test program has reported it.
        ptl_test_terminate(test->pid);
        Ptltrprintf("[%s] diagnosis destroy.\n", kName);
        return EndWith(Next::kSuccess);
    }
    switch (end_code) {
        case kEndSkip:
            Ptltrprintf("[%s] %s Patrol Skipped\n", kName, kind_name);
            return EndWith(Next::kFailure);
        case kEndAbort:
            Ptltrprintf("[%s] %s Patrol Aborted\n", kName, kind_name);
            return EndWith(Next::kFailure);
        case kEndNg:
            Ptltrprintf("[%s] %s Patrol Error End\n", kName, kind_name);
            ReportFault(*test, wait.mode, body);
            return EndWith(Next::kFailure);
        default:
            Ptltrprintf("[%s] %s Patrol End\n", kName, kind_name);
            return EndWith(Next::kSuccess);
    }
}

Next TakeRecord(RunningTest* test, const TestWait& wait, const Body& body) {
    RecordContext context;
    if (check_testdata_head(body.bytes.get(), test->device_name.c_str(), &context) != 0) {
        StopWithError(*test);
        return Next::kFailure;
    }
    if ((context.type & wait.mask) == 0) return Next::kRecord;
    if (context.type != kTypeProgress) {
        Ptltrprintf("[%s] Data Research Start(type=%d).\n", kName, static_cast<int>(context.type));
    }
    const char* text = body.bytes.get() + kHeaderSize;
    switch (context.type) {
        case kTypeLog:
            check_testdata_log(text, context);
            return Next::kRecord;
        case kTypeProgress:
            CheckTestdataProgress(text, context, test);
            return Next::kRecord;
        case kTypeProcess:
            if (check_testdata_proc(text) == 1) {
                Ptltrprintf("[%s] Change-of-generation of log is executed in diagnosis parts.\n",
                            kName);
            }
            return Next::kRecord;
        case kTypeHddInfo: {
            uint32_t capacity = 0;
            const int result = check_testdata_hddinfo(text, context, &capacity);
            return EndWith(result == 0 ? Next::kSuccess : Next::kFailure);
        }
        case kTypeStatus:
            return TakeStatus(test, wait, body, context);
        default:
            Ptltrprintf("[%s] Internal Interface Error. error value= 0x%x.\n", kName, context.type);
            StopWithError(*test);
            return Next::kFailure;
    }
}

int AllocationFailed(int length) {
    const int error = ENOMEM;
    Ptltrprintf("[%s] System Call Error (%s), errno:%d\n", kName, "malloc", error);
    Ptltrprintf("[%s]  cause     : %s\n", kName, std::strerror(error));
    Ptltrprintf("[%s]  size      : %d byte(s)\n", kName, ClampToInt(int64_t{length} + 1));
    return ErrorEnd();
}

int ShortRead(size_t length) {
    Ptltrprintf("[%s] read() failed. data_size= %d.\n", kName,
                ClampToInt(static_cast<int64_t>(length)));
    return ErrorEnd();
}

// The pipe has ended and no status record came.
int PipeEnded(RunningTest* test, const TestWait& wait, int last_length) {
    if (wait.timeout <= 0 || CheckTestTime(0, wait.timeout, test) == 0) {
        return ShortRead(static_cast<size_t>(std::max(last_length, 0)));
    }
    ptl_history(kResultTimeout, test, nullptr);
    if (test->kind == kKindHdd) {
        SaveDiskAddress(sche_path.c_str(), test->schedule_index, wait.address + kAddressStep,
                        kAddressDigits);
    }
    Ptltrprintf("[%s] Time Out Error [%s] Threshold Time= %d Sec\n", kName, "Diagnosis End",
                wait.timeout);
    return StopWithError(*test);
}

}  // namespace

int wait_for_testdata(RunningTest* test, const TestWait& wait) {
    Ptltrprintf("[%s] Start.\n", kName);
    Ptltrprintf("[%s] Patrol Diagnosis Device : %s.\n", kName, test->device_name.c_str());
    const Kind* kind = FindKind(test->kind);
    if (kind == nullptr) {
        Ptltrprintf("[%s] Internal Interface Error.  error value= 0x%x\n", kName,
                    static_cast<unsigned>(test->kind));
        return ErrorEnd();
    }
    PipeReader pipe(test->read_fd);
    Next next = Next::kRecord;
    int length = 0;
    while (next == Next::kRecord) {
        char prefix[kPrefixSize + 1] = {};
        if (pipe.Read(prefix, kPrefixSize) != kPrefixSize) return PipeEnded(test, wait, length);
        if (std::memcmp(prefix, kRecordMagic, std::strlen(kRecordMagic)) != 0) {
            Ptltrprintf("[%s] Received data does not begin with ONLPTL. tp=%s\n", kName,
                        kind->name);
            continue;
        }
        length = ParseInt(prefix + kLengthAt, 0);
        if (length > kLongBody) Ptltrprintf("[%s] data_size=%d\n", kName, length);
        if (length < 0) return ShortRead(0);

        Body body;
        body.size = static_cast<size_t>(length);
        if (length <= kMaxBody) {
            body.bytes.reset(static_cast<char*>(std::calloc(1, body.size + kRecordSlack)));
        }
        if (body.bytes == nullptr) return AllocationFailed(length);
        const size_t got = pipe.Read(body.bytes.get(), body.size);
        if (got != body.size) return ShortRead(got);
        next = TakeRecord(test, wait, body);
    }
    return next == Next::kSuccess ? 0 : -1;
}

namespace {

// The wait for the processor or the memory test.
int WaitSingle(const char* caller, RunningTest* test, int timeout) {
    const char* name = FindKind(test->kind)->short_name;
    Ptltrprintf("[%s] Start.\n", caller);
    Ptltrprintf("[%s] Pipe%sRead=0x%x Pipe%sWrite=0x%x\n", caller, name,
                static_cast<unsigned>(test->read_fd), name, static_cast<unsigned>(test->write_fd));
    Ptltrprintf("[%s] ProcessId%s =%d\n", caller, name, test->pid);
    TestWait wait;
    wait.timeout = timeout;
    const int result = wait_for_testdata(test, wait);
    Ptltrprintf("[%s] %s.\n", caller, result != 0 ? "Error End" : "End");
    return result;
}

// The wait for the disk at `entry` of the table.
int WaitDisk(const char* caller, const ScheduleFile& schedule, int entry) {
    RunningTest& disk = hdd_exec_tbl[entry];
    disk.device_name.Assign(schedule.Device<65>(disk.schedule_index).view());
    const Text<65> address = schedule.Address<65>(disk.schedule_index, kShortFirstAddress);
    Ptltrprintf("[%s] PipeHddRead=0x%x PipeHddWrite=0x%x (%d)\n", caller,
                static_cast<unsigned>(disk.read_fd), static_cast<unsigned>(disk.write_fd), entry);
    Ptltrprintf("[%s] ProcessIdHdd =%d (%d)\n", caller, disk.pid, entry);
    TestWait wait;
    wait.timeout = hdd_tout_watch;
    // Base 10 on purpose: an address written in hexadecimal counts as 0.
    wait.address = ParseUnsigned(address.c_str(), 10);
    const int result = wait_for_testdata(&disk, wait);
    Ptltrprintf("[%s] Wait %s End(sched_num=%d).\n", caller, result == 0 ? "Normal" : "Error",
                disk.schedule_index);
    return result;
}

}  // namespace

int WaitCpuTest() { return WaitSingle(__func__, &cpu_test, cpu_tout_watch); }

int WaitMemTest() { return WaitSingle(__func__, &mem_test, mem_tout_watch); }

int WaitHddTest() {
    Ptltrprintf("[%s] Start.\n", __func__);
    int all = 0;
    ScheduleFile schedule(sche_path.c_str());
    for (int i = 0; i < hdd_exec_use; ++i) {
        // The waits for the disks before it may have been long.
        schedule.Refresh();
        if (WaitDisk(__func__, schedule, i) != 0) all = -1;
    }
    FlushDeferredWrites();
    Ptltrprintf("[%s] End.\n", __func__);
    return all;
}

}  // namespace patrol
