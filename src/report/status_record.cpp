#include "report/status_record.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/number.h"
#include "base/paths.h"
#include "base/settings.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/record_fields.h"
#include "report/system_event.h"
#include "state/disk_progress.h"
#include "state/schedule_file.h"

namespace patrol {
namespace {

// Where the fields of the body stand.
constexpr size_t kFlagAt = 5;
constexpr size_t kAddressAt = 10;
constexpr size_t kTextAt = 21;

constexpr int kAddressDigits = 16;

// Has the disk's next test start where this one says. Returns false (traced) when that is no
// number.
bool SaveNextAddress(const char* caller, const Status& status, const RunningTest& test,
                     int run_mode) {
    if (!status.ValidAddress()) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x.\n", caller,
                    "next address", static_cast<unsigned>(status.address_error));
        return false;
    }
    Ptltrprintf("[%s] tmp_buf=%s ,next_lba= 0x%08x\n", caller, status.address_field.c_str(),
                status.next_address);
    const Path& schedule = run_mode == kRunPadiag ? sche_path2 : sche_path;
    SaveDiskAddress(schedule.c_str(), test.schedule_index, test.device_name.c_str(),
                    status.next_address, kAddressDigits);
    return true;
}

// Returns the event that ends a padiag test, filled with what is known of the test.
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

// Adds how far the device has come at level 3, where the test programs keep its last block.
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

// Relays the result text. Returns the error message in it; null when there is none.
const char* RelayText(const char* caller, char* text) {
    const char* message = get_error_msg(text);
    cr_cutman(text, static_cast<int>(std::strlen(text)));
    Ptltrprintf("[%s] ptr=%s.\n", caller, text);
    ptl_printf(kRelayed | kToTrace, nullptr, text);
    return message;
}

}  // namespace

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

Status ParseStatus(const char* body) {
    Status status;
    status.code_field = Field<4>(body);
    status.end_code = ParseInt(status.code_field.c_str(), 0);
    status.flag_field = Field<4>(body + kFlagAt);
    status.flag = ParseUnsigned(status.flag_field.c_str(), 0);
    status.address_field = Field<10>(body + kAddressAt);
    status.next_address = ParseUnsigned(status.address_field.c_str(), 0);
    char* end = nullptr;
    errno = 0;
    // Only to learn whether it was a number that fits: a next address of 0 is a good one.
    std::strtoull(status.address_field.c_str(), &end, 0);
    status.address_error = end == status.address_field.c_str() ? EINVAL : errno;
    return status;
}

int check_testdata_status(char* body, const RecordContext&, RunningTest* test, int run_mode) {
    const Status status = ParseStatus(body);
    if (!status.ValidCode()) {
        Ptltrprintf(
            "[%s] External Interface Error(endcode not < 1 or > 6). data= %s , endcode= 0x%x "
            "tmp_buf=%s.\n",
            __func__, "status", static_cast<unsigned>(status.end_code), status.code_field.c_str());
        return -1;
    }
    const bool padiag = run_mode == kRunPadiag;
    EventRecord event;
    if (padiag) event = EndRecord(__func__, *test);
    Ptltrprintf("[%s] Test End Code= %d(%s).\n", __func__, status.end_code,
                status.code_field.c_str());
    Ptltrprintf("[%s] Flag= %d(%s).\n", __func__, static_cast<int>(status.flag),
                status.flag_field.c_str());

    // The address comes first, because a record whose address is no number is to enter nothing at
    // all.
    const bool has_address = status.HasAddress() && test->kind == kKindHdd;
    if (has_address && !SaveNextAddress(__func__, status, *test, run_mode)) {
        return -1;
    }
    if (padiag && padiag_level == kProgressLevel) {
        const uint32_t next = has_address ? status.next_address : 0;
        FillProgress(__func__, test->device_name.c_str(), next, &event);
    }
    const char* message = nullptr;
    if (status.HasText()) {
        message = RelayText(__func__, ResultText(body));
        if (padiag) AnnounceEnd(test, status.end_code, message, &event);
    }
    (padiag ? PadiagHistory : ptl_history)(HistoryResult(status.end_code), test, message);
    return status.CodeForCaller();
}

char* ResultText(char* body) { return body + std::min(std::strlen(body), kTextAt); }

}  // namespace patrol
