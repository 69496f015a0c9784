#include "control/patrol_wait.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

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
#include "report/record_stream.h"
#include "report/status_record.h"
#include "state/schedule_file.h"
#include "sys/child.h"

namespace patrol {
namespace {

constexpr char kName[] = "wait_for_testdata";
constexpr int kLongBody = 119;  // bodies above it are worth a trace line
// How far a disk goes on that ran out of time, so that one bad place does not stop every pass to
// come.
constexpr uint32_t kAddressStep = 64;
constexpr int kAddressDigits = 8;

// How handling one record ended.
enum class Next { kRecord, kSuccess, kFailure };

int ErrorEnd() {
    Ptltrprintf("[%s] Error End.\n", kName);
    return -1;
}

// The test may be in the middle of its work: nothing that it goes on to say would be heard.
int StopWithError(const RunningTest& test) {
    ptl_test_terminate(test.pid);
    return ErrorEnd();
}

// SIGALRM interrupts the wait it rings in and does nothing else.
void tp_timeout(int) { NoteSignal(); }

// Waits for a child to end, any child, for at most `seconds`. Returns false when none did.
bool WaitForEnd(int seconds) {
    SignalScope scope;
    scope.LetIn(SIGALRM);
    InstallHandler(SIGALRM, tp_timeout);
    // What came while there was something to read ends nothing.
    const SignalWatch watch;
    SignalScope::SetAlarm(seconds);
    int status = 0;
    return WaitForChild(-1, &status, 0, watch) > 0;
}

// The test has found a faulty part; its result block begins with the first heading.
void ReportFaultIn(const RecordReader& record, const RunningTest& test, int mode) {
    const char* detail = std::strstr(record.body(), "[[[[");
    ReportFault(kName, test, mode, record.body(), record.size(), detail != nullptr ? detail : "");
}

Next EndWith(Next result) {
    Ptltrprintf("[%s] End.\n", kName);
    return result;
}

Next TakeStatus(RunningTest* test, const TestWait& wait, RecordReader* record,
                const RecordContext& context) {
    const char* kind_name = FindKind(test->kind)->name;
    const int end_code =
        check_testdata_status(record->body() + kHeaderSize, context, test, wait.mode);
    if (end_code == -1) {
        StopWithError(*test);
        return Next::kFailure;
    }
    Ptltrprintf("[%s] diagnosis end. end code=%d\n", kName, end_code);
    // A test program that has said its last has nothing left to do but end; its time-out is the
    // time it gets for that.
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
            ReportFaultIn(*record, *test, wait.mode);
            return EndWith(Next::kFailure);
        default:
            Ptltrprintf("[%s] %s Patrol End\n", kName, kind_name);
            return EndWith(Next::kSuccess);
    }
}

// A record of a type that nobody has asked for is passed over; a header that makes no sense ends
// the test, because what follows it cannot be trusted either.
Next TakeRecord(RunningTest* test, const TestWait& wait, RecordReader* record) {
    RecordContext context;
    if (check_testdata_head(record->body(), test->device_name.c_str(), &context) != 0) {
        StopWithError(*test);
        return Next::kFailure;
    }
    if ((context.type & wait.mask) == 0) return Next::kRecord;
    if (context.type != kTypeProgress) {
        Ptltrprintf("[%s] Data Research Start(type=%d).\n", kName, static_cast<int>(context.type));
    }
    const char* text = record->body() + kHeaderSize;
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
            return TakeStatus(test, wait, record, context);
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
        SaveDiskAddress(sche_path.c_str(), test->schedule_index, test->device_name.c_str(),
                        wait.address + kAddressStep, kAddressDigits);
    }
    Ptltrprintf("[%s] Time Out Error [%s] Threshold Time= %d Sec\n", kName, "Diagnosis End",
                wait.timeout);
    return StopWithError(*test);
}

}  // namespace

int wait_for_testdata(RunningTest* test, const TestWait& wait) {
    RecordReader record(test->read_fd);
    Ptltrprintf("[%s] Start.\n", kName);
    Ptltrprintf("[%s] Patrol Diagnosis Device : %s.\n", kName, test->device_name.c_str());
    const Kind* kind = FindKind(test->kind);
    if (kind == nullptr) {
        Ptltrprintf("[%s] Internal Interface Error.  error value= 0x%x\n", kName,
                    static_cast<unsigned>(test->kind));
        return ErrorEnd();
    }
    Next next = Next::kRecord;
    int length = 0;
    while (next == Next::kRecord) {
        const RecordReader::Prefix prefix = record.ReadPrefix(&length);
        if (prefix == RecordReader::Prefix::kNone) return PipeEnded(test, wait, length);
        if (prefix == RecordReader::Prefix::kStray) {
            Ptltrprintf("[%s] Received data does not begin with ONLPTL. tp=%s\n", kName,
                        kind->name);
            continue;
        }
        if (length > kLongBody) Ptltrprintf("[%s] data_size=%d\n", kName, length);
        const RecordReader::Body body = record.ReadBody(length);
        if (body == RecordReader::Body::kNoMemory) return AllocationFailed(length);
        if (body == RecordReader::Body::kShort) return ShortRead(record.size());
        next = TakeRecord(test, wait, &record);
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
    // The name that the disk was launched under, as much of it as the wait goes by: a configuration
    // change may have given the number to another one meanwhile.
    disk.device_name.Assign(WaitedName(disk.device_name.view()).view());
    const int number = FindDisk(schedule.profile(), disk.schedule_index, disk.device_name.c_str());
    const auto address = schedule.Address<64>(number, kShortFirstAddress);
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
    Ptltrprintf("[%s] End.\n", __func__);
    return all;
}

}  // namespace patrol
