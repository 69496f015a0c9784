// The status record: the last word of a test.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/paths.h"
#include "base/settings.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/record_fields.h"
#include "report/records.h"
#include "report/system_event.h"
#include "state/disk_progress.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

constexpr uint32_t kFlagNextAddress = 1;
constexpr uint32_t kFlagResultText = 2;  // brings a next address too
constexpr uint32_t kFlagFaulty = 4;

constexpr size_t kFlagAt = 5;
constexpr size_t kAddressAt = 10;
constexpr size_t kTextAt = 21;

constexpr int kAddressDigits = 16;

int HistoryResult(int end_code) {
    switch (end_code) {
        case kEndNg:
            return kResultError;
        case kEndAbort:
            return kResultAbort;
        case kEndCancel:
            return kResultCancel;
        default:
            return kResultOk;
    }
}

// Reads the next address and writes it into the disk's section. False (traced) when it is no
// number.
bool SaveNextAddress(const char* caller, const char* body, int schedule_index, int run_mode,
                     uint32_t* address) {
    const Text<11> field = Field<11>(body + kAddressAt);
    *address = ParseUnsigned(field.c_str(), 0);
    char* end = nullptr;
    errno = 0;
    std::strtoull(field.c_str(), &end, 0);
    const int error = end == field.c_str() ? EINVAL : errno;
    if (*address == 0 && error != 0) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x.\n", caller,
                    "next address", static_cast<unsigned>(error));
        return false;
    }
    Ptltrprintf("[%s] tmp_buf=%s ,next_lba= 0x%08x\n", caller, field.c_str(), *address);

    const Path& schedule = run_mode == kRunPadiag ? sche_path2 : sche_path;
    SaveDiskAddress(schedule.c_str(), schedule_index, *address, kAddressDigits);
    return true;
}

// The event that ends a padiag test, filled with what is known of the test.
EventRecord EndRecord(const char* caller, const RunningTest& test) {
    EventRecord record;
    if (FindKind(test.kind) == nullptr) {
        Ptltrprintf("[%s] Unknown Diag Type(%d).\n", caller, test.kind);
    } else {
        record.start_time = test.padiag.start_time;
        record.start_lba = test.padiag.start_lba;
        record.pass = test.pass_count;
    }
    record.level = padiag_level;
    date2iso8601(std::time(nullptr), &record.end_time);
    const char* name = EndEventName(test.kind);
    Ptltrprintf("[%s] testname = [%s].\n", caller, name != nullptr ? name : "");
    Ptltrprintf("[%s] evtlog_msg.start_time = [%s].\n", caller, record.start_time.c_str());
    Ptltrprintf("[%s] evtlog_msg.end_time = [%s].\n", caller, record.end_time.c_str());
    Ptltrprintf("[%s] pass = [%d].\n", caller, record.pass);
    return record;
}

// How far the device has come at level 3, where the test programs keep its last block.
void FillProgress(const char* caller, const char* device, uint32_t next, EventRecord* record) {
    const uint64_t maximum = DiskProgress(lba_path.c_str()).Maximum(device);
    record->end_lba = next;
    record->progress = EndPercent(next, maximum);
    if (next == 0 || maximum == 0) {
        Ptltrprintf("[%s] The calculation of the progress rate is impossible. \n", caller);
    }
    Ptltrprintf("[%s] evtlog_msg.progress = [%d%%].\n", caller, record->progress);
}

// Announces the end of a padiag test; its wait then has nothing left to announce.
void AnnounceEnd(RunningTest* test, int end_code, const char* message, EventRecord* record) {
    const bool failed = end_code == kEndNg;
    if (failed) record->errmsg.Assign(message != nullptr ? message : "no data");
    const char* name = EndEventName(test->kind);
    if (name == nullptr) return;
    padiag_sdb_event(name, failed ? kEventFailed : kEventCompleted, test->padiag.phypath.c_str(),
                     *record);
    test->padiag.event_check = 0;
}

}  // namespace

int check_testdata_status(char* body, const RecordContext&, RunningTest* test, int run_mode) {
    const Text<5> code_field = Field<5>(body);
    int end_code = ParseInt(code_field.c_str(), 0);
    if (end_code < kEndOk || end_code > kEndAbort) {
        Ptltrprintf(
            "[%s] External Interface Error(endcode not < 1 or > 6). data= %s , endcode= 0x%x "
            "tmp_buf=%s.\n",
            __func__, "status", static_cast<unsigned>(end_code), code_field.c_str());
        return -1;
    }
    const bool padiag = run_mode == kRunPadiag;
    EventRecord record;
    if (padiag) record = EndRecord(__func__, *test);
    const int result = HistoryResult(end_code);
    Ptltrprintf("[%s] Test End Code= %d(%s).\n", __func__, end_code, code_field.c_str());
    const Text<5> flag_field = Field<5>(body + kFlagAt);
    const uint32_t flag = ParseUnsigned(flag_field.c_str(), 0);
    Ptltrprintf("[%s] Flag= %d(%s).\n", __func__, static_cast<int>(flag), flag_field.c_str());

    uint32_t next = 0;
    if ((flag & (kFlagNextAddress | kFlagResultText)) != 0 && test->kind == kKindHdd &&
        !SaveNextAddress(__func__, body, test->schedule_index, run_mode, &next)) {
        return -1;
    }
    if (padiag && padiag_level == kProgressLevel)
        FillProgress(__func__, test->device_name.c_str(), next, &record);
    const char* message = nullptr;
    if ((flag & kFlagResultText) != 0) {
        char* text = body + std::min(std::strlen(body), kTextAt);
        message = get_error_msg(text);
        cr_cutman(text, static_cast<int>(std::strlen(text)));
        Ptltrprintf("[%s] ptr=%s.\n", __func__, text);
        ptl_printf(kRelayed | kToTrace, nullptr, text);
        if (padiag) AnnounceEnd(test, end_code, message, &record);
        if (end_code == kEndNg) end_code = kEndOk;
    }
    if ((flag & kFlagFaulty) != 0) end_code = kEndNg;
    (padiag ? PadiagHistory : ptl_history)(result, test, message);
    return end_code;
}

}  // namespace patrol
