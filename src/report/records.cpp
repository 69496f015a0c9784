#include "report/records.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "base/disk_table.h"
#include "base/kinds.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "report/record_fields.h"

namespace patrol {
namespace {

// Where the fields of a header stand, of a log body, and of a disk information body.
constexpr size_t kLinesAt = 5;
constexpr size_t kProgramAt = 10;
constexpr size_t kLogIdAt = 5;
constexpr size_t kLogStampAt = 11;
constexpr size_t kSectorSizeAt = 11;
constexpr size_t kBusTypeAt = 18;
constexpr size_t kSerialNumberAt = 23;
constexpr size_t kFirmwareAt = 40;

constexpr size_t kLogStampSize = 26;
constexpr size_t kMaxLogText = 106;

void DebugNumber(const char* name, uint32_t number) {
    ptl_printf(kDebugDetail, nullptr, "D1500", name, number);
}

template <size_t N>
void DebugText(const char* name, const Text<N>& text) {
    ptl_printf(kDebugDetail, nullptr, "D1501", name, WithoutControls(text.view()));
}

// Returns the type word for a transmit type; 0 when there is no such type.
uint32_t TypeWord(uint32_t transmit_type) {
    if (transmit_type >= 1 && transmit_type <= 4) return transmit_type;
    return transmit_type == 6 ? uint32_t{kTypeProcess} : 0;
}

// Returns where a log text goes, by its effective level and message id.
unsigned LogDestination(uint32_t level, const char* id) {
    if (level == 0) return kRelayed | kToTrace;
    if (level == 2) return kRelayed | kToSystemLog;
    if (id[0] == 'W' || id[0] == 'E') return kRelayed | kToEvent | kToSystemLog;
    return kRelayed | kToEvent;
}

// Returns the test that a record from `test` counts for by its program's name: that of the kind. A
// disk's name from no disk is taken for the first disk's.
RunningTest* FindNamedTest(std::string_view program, RunningTest* test) {
    for (const Kind& row : kKinds) {
        if (!StartsWith(program, row.program)) continue;
        if (row.code == kKindCpu) return &cpu_test;
        if (row.code == kKindMemory) return &mem_test;
        return test->kind == kKindHdd ? test : DiskEntry(0);
    }
    return nullptr;
}

}  // namespace

int check_testdata_head(const char* record, const char* device, RecordContext* context) {
    const Text<5> type_field = Field<4>(record);
    const uint32_t type = TypeWord(ParseUnsigned(type_field.c_str(), 0));
    if (type == 0) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x buff=%s.\n",
                    __func__, "transmit type", context->type, type_field.c_str());
        return -1;
    }
    context->type = type;
    if (type != kTypeProgress) {
        Ptltrprintf("[%s] transmit type= %d(%s).\n", __func__, static_cast<int>(type),
                    type_field.c_str());
    }
    context->lines = ParseInt(Field<4>(record + kLinesAt).c_str(), 0);
    if (context->lines == 0) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x.\n", __func__,
                    "transmit lines", 0);
        return -1;
    }
    DebugNumber("transmit lines", static_cast<uint32_t>(context->lines));
    context->program = NameField<16>(record + kProgramAt);
    DebugText("test program", context->program);
    context->device.Assign(device);
    DebugText("device name", context->device);
    return 0;
}

int check_testdata_log(const char* body, const RecordContext& context) {
    const Text<5> level_field = Field<4>(body);
    const uint32_t level = ParseUnsigned(level_field.c_str(), 0);
    if (level != 1 && level != 2) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x tmp_buf=%s.\n",
                    __func__, "message output", level, level_field.c_str());
        return -1;
    }
    DebugNumber("message output", level);
    Text<6> id(WithoutControls(Field<5>(body + kLogIdAt).view()));
    uint32_t effective_level = level;
    if (id.view() == "00000") {
        id.Assign("L1000");
        if (level == 1) effective_level = 0;
    }
    DebugText("message id", id);

    std::string_view rest = body;
    rest.remove_prefix(std::min(rest.size(), kLogStampAt));
    const size_t comma = std::min(rest.find(','), rest.size());
    Text<kLogStampSize + 1> stamp(
        WithoutControls(rest.substr(0, std::min(comma, rest.find('\n')))));
    stamp.TrimEnd(" ");
    rest.remove_prefix(std::min(comma + 1, rest.size()));
    std::string text = WithoutControls(rest.substr(0, rest.find('\n')));
    text.erase(text.find_last_not_of(" ,") + 1);
    text.erase(std::min(text.size(), kMaxLogText));

    const RecordHeader header = {stamp.c_str(), context.device.c_str(), id.c_str(),
                                 context.program.c_str()};
    ptl_printf(LogDestination(effective_level, id.c_str()), &header, text.c_str());
    Ptltrprintf("[%s] End.\n", __func__);
    return 0;
}

int check_testdata_hddinfo(const char* body, const RecordContext&, uint32_t* capacity) {
    // A comma ends the number within these.
    constexpr size_t kCapacitySize = 12;
    constexpr char kBadField[] =
        "[%s] External Interface Error. data= %s , error value= 0x%x tmp_buf=%s.\n";
    *capacity = NumberField<kCapacitySize>(body);
    if (*capacity == 0) {
        Ptltrprintf(kBadField, __func__, "HDD capacity", 0, Field<kCapacitySize>(body).c_str());
        return -1;
    }
    const uint32_t sector_size = NumberField<6>(body + kSectorSizeAt);
    if (sector_size == 0) {
        Ptltrprintf(kBadField, __func__, "HDD byte/sector", 0,
                    Field<6>(body + kSectorSizeAt).c_str());
        return -1;
    }
    DebugNumber("HDD capacity", *capacity);
    DebugNumber("HDD byte/sector", sector_size);
    DebugNumber("HDD bus type", NumberField<4>(body + kBusTypeAt));
    DebugText("serial number", Field<16>(body + kSerialNumberAt));
    DebugText("firmware version", Field<4>(body + kFirmwareAt));
    return 0;
}

int check_testdata_proc(const char* body) {
    const Text<13> field = Field<12>(body);
    const uint32_t content = ParseUnsigned(field.c_str(), 0);
    if (content != 1 && content != 2) {
        Ptltrprintf(
            "[%s] External Interface Error(content not 1 or 2). data= %s , content= 0x%x "
            "tmp_buf=%s.\n",
            __func__, "process", content, field.c_str());
        return -1;
    }
    DebugNumber("process", content);
    return content == 1 ? 1 : 0;
}

void CheckTestdataProgress(const char* body, const RecordContext& context, RunningTest* test) {
    const char* comma = std::strchr(body, ',');
    if (comma == nullptr) return;
    // The comma ends the number.
    test->run_time = ParseUnsigned(body, 0);

    constexpr char kMark[] = "Pass=";
    const char* pass = std::strstr(comma, kMark);
    if (pass == nullptr) return;
    RunningTest* counted = FindNamedTest(context.program.view(), test);
    if (counted == nullptr) return;
    counted->pass_count = std::max(ParseInt(pass + std::strlen(kMark), 10), 0);
}

void cr_cutman(char* text, int length) {
    char* end = text;
    for (int i = 0; i < length; ++i) {
        if (text[i] != '\r') *end++ = text[i];
    }
    *end = '\0';
}

}  // namespace patrol
