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
#include "control/launch.h"
#include "control/patrol_launch.h"
#include "control/stop.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/parts.h"
#include "report/records.h"
#include "state/schedule_file.h"
#include "sys/child.h"
#include "sys/deferred_writes.h"
#include "sys/pipe_reader.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr char kName[] = "wait_for_testdata";
constexpr uint32_t kPatrolMask = kTypeLog | kTypeStatus | kTypeProcess;
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

int StopWithError(const TestWait& wait) {
    ptl_test_terminate(wait.pid);
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
void ReportFault(const TestWait& wait, const Body& body) {
    set_parts_errinf(&errlog_inf, body.bytes.get(), body.size);
    const char* detail = std::strstr(body.bytes.get(), "[[[[");
    errlog_inf.detail.Assign(detail != nullptr ? detail : "");
    if (patrol_parts_proc(errlog_inf, wait.mode, wait.device) != 0) {
        Ptltrprintf("[%s] parts_proc err !!", kName);
    }
}

Next EndWith(Next result) {
    Ptltrprintf("[%s] End.\n", kName);
    return result;
}

Next TakeStatus(const TestWait& wait, const char* kind_name, const Body& body,
                const RecordContext& context) {
    const int end_code =
        check_testdata_status(body.bytes.get() + kHeaderSize, context, wait.schedule_index,
                              wait.kind, wait.device, wait.entry, wait.mode);
    if (end_code == -1) {
        StopWithError(wait);
        return Next::kFailure;
    }
    Ptltrprintf("[%s] diagnosis end. end code=%d\n", kName, end_code);
    if (!WaitForEnd(wait.timeout)) {
        // The result stands: the test program has reported it.
        ptl_test_terminate(wait.pid);
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
            ReportFault(wait, body);
            return EndWith(Next::kFailure);
        default:
            Ptltrprintf("[%s] %s Patrol End\n", kName, kind_name);
            return EndWith(Next::kSuccess);
    }
}

Next TakeRecord(const TestWait& wait, const char* kind_name, const Body& body) {
    RecordContext context;
    if (check_testdata_head(body.bytes.get(), wait.device, &context) != 0) {
        StopWithError(wait);
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
            CheckTestdataProgress(text, context, wait.kind, wait.entry);
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
            return TakeStatus(wait, kind_name, body, context);
        default:
            Ptltrprintf("[%s] Internal Interface Error. error value= 0x%x.\n", kName, context.type);
            StopWithError(wait);
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
int PipeEnded(const TestWait& wait, int last_length) {
    if (wait.timeout <= 0 || SampleKindClock(wait.kind, wait.timeout, wait.entry) == 0) {
        return ShortRead(static_cast<size_t>(std::max(last_length, 0)));
    }
    ptl_history(kResultTimeout, wait.kind, wait.device, nullptr, wait.entry);
    if (wait.kind == kKindHdd) {
        SaveDiskAddress(sche_path.c_str(), wait.schedule_index, wait.address + kAddressStep,
                        kAddressDigits);
    }
    Ptltrprintf("[%s] Time Out Error [%s] Threshold Time= %d Sec\n", kName, "Diagnosis End",
                wait.timeout);
    return StopWithError(wait);
}

}  // namespace

int wait_for_testdata(const TestWait& wait) {
    Ptltrprintf("[%s] Start.\n", kName);
    Ptltrprintf("[%s] Patrol Diagnosis Device : %s.\n", kName, wait.device);
    const Kind* kind = FindKind(wait.kind);
    if (kind == nullptr) {
        Ptltrprintf("[%s] Internal Interface Error.  error value= 0x%x\n", kName,
                    static_cast<unsigned>(wait.kind));
        return ErrorEnd();
    }
    PipeReader pipe(wait.read_fd);
    Next next = Next::kRecord;
    int length = 0;
    while (next == Next::kRecord) {
        char prefix[kPrefixSize + 1] = {};
        if (pipe.Read(prefix, kPrefixSize) != kPrefixSize) return PipeEnded(wait, length);
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
        next = TakeRecord(wait, kind->name, body);
    }
    return next == Next::kSuccess ? 0 : -1;
}

namespace {

// The wait for a processor or memory test; `name` is that of the kind in the traces.
int WaitSingle(const char* caller, int kind, const char* name, int timeout, int read_fd,
               int write_fd, pid_t pid) {
    Ptltrprintf("[%s] Start.\n", caller);
    Ptltrprintf("[%s] Pipe%sRead=0x%x Pipe%sWrite=0x%x\n", caller, name,
                static_cast<unsigned>(read_fd), name, static_cast<unsigned>(write_fd));
    Ptltrprintf("[%s] ProcessId%s =%d\n", caller, name, pid);
    const int result = wait_for_testdata(
        {kind, timeout, FindKind(kind)->name, kPatrolMask, 0, 0, read_fd, pid, 0, kRunPatrol});
    Ptltrprintf("[%s] %s.\n", caller, result != 0 ? "Error End" : "End");
    return result;
}

}  // namespace

int WaitCpuTest() {
    return WaitSingle(__func__, kKindCpu, "Cpu", cpu_tout_watch, PipeCpuRead, PipeCpuWrite,
                      ProcessIdCpu);
}

int WaitMemTest() {
    return WaitSingle(__func__, kKindMemory, "Mem", mem_tout_watch, PipeMemRead, PipeMemWrite,
                      ProcessIdMem);
}

int WaitHddTest() {
    Ptltrprintf("[%s] Start.\n", __func__);
    int all = 0;
    ScheduleFile schedule(sche_path.c_str());
    for (int i = 0; i < hdd_exec_use; ++i) {
        const HddExec& disk = hdd_exec_tbl[i];
        // The waits for the disks before it may have been long.
        schedule.Refresh();
        const Text<65> device = schedule.Device<65>(disk.schedule_index);
        const Text<65> address = schedule.Address<65>(disk.schedule_index, kShortFirstAddress);
        Ptltrprintf("[%s] PipeHddRead=0x%x PipeHddWrite=0x%x (%d)\n", __func__,
                    static_cast<unsigned>(disk.read_fd), static_cast<unsigned>(disk.write_fd), i);
        Ptltrprintf("[%s] ProcessIdHdd =%d (%d)\n", __func__, disk.pid, i);
        // Base 10 on purpose: an address written in hexadecimal counts as 0.
        const uint32_t start = ParseUnsigned(address.c_str(), 10);
        const int result =
            wait_for_testdata({kKindHdd, hdd_tout_watch, device.c_str(), kPatrolMask,
                               disk.schedule_index, start, disk.read_fd, disk.pid, i, kRunPatrol});
        Ptltrprintf("[%s] Wait %s End(sched_num=%d).\n", __func__, result == 0 ? "Normal" : "Error",
                    disk.schedule_index);
        if (result != 0) all = -1;
    }
    FlushDeferredWrites();
    Ptltrprintf("[%s] End.\n", __func__);
    return all;
}

}  // namespace patrol
