// The status record: the last word of a test.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/kinds.h"
#include "base/paths.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "report/history.h"
#include "report/record_fields.h"
#include "report/records.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr uint32_t kFlagNextAddress = 1;
constexpr uint32_t kFlagResultText = 2;  // brings a next address too
constexpr uint32_t kFlagFaulty = 4;

constexpr size_t kFlagAt = 5;
constexpr size_t kAddressAt = 10;
constexpr size_t kTextAt = 21;

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
bool SaveNextAddress(const char* caller, const char* body, int schedule_index, int run_mode) {
    const Text<11> field = Field<11>(body + kAddressAt);
    const uint32_t address = ParseUnsigned(field.c_str(), 0);
    char* end = nullptr;
    errno = 0;
    std::strtoull(field.c_str(), &end, 0);
    const int error = end == field.c_str() ? EINVAL : errno;
    if (address == 0 && error != 0) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x.\n", caller,
                    "next address", static_cast<unsigned>(error));
        return false;
    }
    Ptltrprintf("[%s] tmp_buf=%s ,next_lba= 0x%08x\n", caller, field.c_str(), address);

    Text<64> section;
    section.Format("HDD_SCHEDULE %d", schedule_index);
    Text<64> value;
    value.Format("0x%016llx", static_cast<unsigned long long>(address));
    const Path& schedule = run_mode == kRunPadiag ? sche_path2 : sche_path;
    WritePrivateProfileString(section.c_str(), "address", value.c_str(), schedule.c_str());
    return true;
}

}  // namespace

int check_testdata_status(char* body, const RecordContext&, int schedule_index, int kind,
                          const char* device, int entry, int run_mode) {
    const Text<5> code_field = Field<5>(body);
    int end_code = ParseInt(code_field.c_str(), 0);
    if (end_code < kEndOk || end_code > kEndAbort) {
        Ptltrprintf(
            "[%s] External Interface Error(endcode not < 1 or > 6). data= %s , endcode= 0x%x "
            "tmp_buf=%s.\n",
            __func__, "status", static_cast<unsigned>(end_code), code_field.c_str());
        return -1;
    }
    const int result = HistoryResult(end_code);
    Ptltrprintf("[%s] Test End Code= %d(%s).\n", __func__, end_code, code_field.c_str());
    const Text<5> flag_field = Field<5>(body + kFlagAt);
    const uint32_t flag = ParseUnsigned(flag_field.c_str(), 0);
    Ptltrprintf("[%s] Flag= %d(%s).\n", __func__, static_cast<int>(flag), flag_field.c_str());

    if ((flag & (kFlagNextAddress | kFlagResultText)) != 0 && kind == kKindHdd &&
        !SaveNextAddress(__func__, body, schedule_index, run_mode)) {
        return -1;
    }
    const char* message = nullptr;
    if ((flag & kFlagResultText) != 0) {
        char* text = body + std::min(std::strlen(body), kTextAt);
        message = get_error_msg(text);
        cr_cutman(text, static_cast<int>(std::strlen(text)));
        Ptltrprintf("[%s] ptr=%s.\n", __func__, text);
        ptl_printf(kRelayed | kToTrace, nullptr, text);
        if (end_code == kEndNg) end_code = kEndOk;
    }
    if ((flag & kFlagFaulty) != 0) end_code = kEndNg;
    ptl_history(result, kind, device, message, entry);
    return end_code;
}

}  // namespace patrol
