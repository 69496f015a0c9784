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

constexpr size_t kMaxLogText = 106;

// The fields of a record as a debug run shows them. Others cost no more than a look at the flags.
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

// Returns where a log text goes, by its effective level and message id. Level 1 is said to the
// agent, level 2 to the system log alone. A warning or an error of level 1 is for both. Level 0 is
// a message without a number, which only the trace keeps.
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

RecordHead ParseHead(const char* record) {
    RecordHead head;
    head.type_field = Field<4>(record);
    head.type = TypeWord(ParseUnsigned(head.type_field.c_str(), 0));
    head.lines = ParseInt(Field<4>(record + kLinesAt).c_str(), 0);
    head.program = NameField<16>(record + kProgramAt);
    return head;
}

LogRecord ParseLog(const char* body) {
    LogRecord log;
    log.level_field = Field<4>(body);
    log.level = ParseUnsigned(log.level_field.c_str(), 0);
    log.id.Assign(WithoutControls(Field<5>(body + kLogIdAt).view()));
    uint32_t effective_level = log.level;
    if (log.id.view() == "00000") {
        log.id.Assign("L1000");
        if (log.level == 1) effective_level = 0;
    }
    log.destination = LogDestination(effective_level, log.id.c_str());

    std::string_view rest = body;
    rest.remove_prefix(std::min(rest.size(), kLogStampAt));
    const size_t comma = std::min(rest.find(','), rest.size());
    log.stamp.Assign(WithoutControls(rest.substr(0, std::min(comma, rest.find('\n')))));
    log.stamp.TrimEnd(" ");
    rest.remove_prefix(std::min(comma + 1, rest.size()));
    log.text = WithoutControls(rest.substr(0, rest.find('\n')));
    log.text.erase(log.text.find_last_not_of(" ,") + 1);
    log.text.erase(std::min(log.text.size(), kMaxLogText));
    return log;
}

ProgressRecord ParseProgress(const char* body) {
    ProgressRecord progress;
    const char* comma = std::strchr(body, ',');
    progress.has_seconds = comma != nullptr;
    if (comma == nullptr) return progress;
    // The comma ends the number.
    progress.seconds = ParseUnsigned(body, 0);
    constexpr char kMark[] = "Pass=";
    const char* pass = std::strstr(comma, kMark);
    if (pass != nullptr) progress.passes = std::max(ParseInt(pass + std::strlen(kMark), 10), 0);
    return progress;
}

DiskInfoRecord ParseDiskInfo(const char* body) {
    DiskInfoRecord info;
    // A comma ends the number within these.
    info.capacity_field = Field<12>(body);
    info.capacity = ParseUnsigned(info.capacity_field.c_str(), 0);
    info.sector_size_field = Field<6>(body + kSectorSizeAt);
    info.sector_size = ParseUnsigned(info.sector_size_field.c_str(), 0);
    return info;
}

NoticeRecord ParseNotice(const char* body) {
    NoticeRecord notice;
    notice.field = Field<12>(body);
    notice.content = ParseUnsigned(notice.field.c_str(), 0);
    return notice;
}

int check_testdata_head(const char* record, const char* device, RecordContext* context) {
    const RecordHead head = ParseHead(record);
    if (head.type == 0) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x buff=%s.\n",
                    __func__, "transmit type", context->type, head.type_field.c_str());
        return -1;
    }
    context->type = head.type;
    // Progress comes every second and would fill the trace.
    if (head.type != kTypeProgress) {
        Ptltrprintf("[%s] transmit type= %d(%s).\n", __func__, static_cast<int>(head.type),
                    head.type_field.c_str());
    }
    context->lines = head.lines;
    if (head.lines == 0) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x.\n", __func__,
                    "transmit lines", 0);
        return -1;
    }
    DebugNumber("transmit lines", static_cast<uint32_t>(head.lines));
    context->program = head.program;
    DebugText("test program", context->program);
    context->device.Assign(device);
    DebugText("device name", context->device);
    return 0;
}

int check_testdata_log(const char* body, const RecordContext& context) {
    const LogRecord log = ParseLog(body);
    if (!log.ValidLevel()) {
        Ptltrprintf("[%s] External Interface Error. data= %s , error value= 0x%x tmp_buf=%s.\n",
                    __func__, "message output", log.level, log.level_field.c_str());
        return -1;
    }
    DebugNumber("message output", log.level);
    DebugText("message id", log.id);
    const RecordHeader header = {log.stamp.c_str(), context.device.c_str(), log.id.c_str(),
                                 context.program.c_str()};
    ptl_printf(log.destination, &header, log.text.c_str());
    Ptltrprintf("[%s] End.\n", __func__);
    return 0;
}

int check_testdata_hddinfo(const char* body, const RecordContext&, uint32_t* capacity) {
    constexpr char kBadField[] =
        "[%s] External Interface Error. data= %s , error value= 0x%x tmp_buf=%s.\n";
    const DiskInfoRecord info = ParseDiskInfo(body);
    *capacity = info.capacity;
    if (info.capacity == 0) {
        Ptltrprintf(kBadField, __func__, "HDD capacity", 0, info.capacity_field.c_str());
        return -1;
    }
    if (info.sector_size == 0) {
        Ptltrprintf(kBadField, __func__, "HDD byte/sector", 0, info.sector_size_field.c_str());
        return -1;
    }
    DebugNumber("HDD capacity", info.capacity);
    DebugNumber("HDD byte/sector", info.sector_size);
    DebugNumber("HDD bus type", NumberField<4>(body + kBusTypeAt));
    DebugText("serial number", Field<16>(body + kSerialNumberAt));
    DebugText("firmware version", Field<4>(body + kFirmwareAt));
    return 0;
}

int check_testdata_proc(const char* body) {
    const NoticeRecord notice = ParseNotice(body);
    if (!notice.Valid()) {
        Ptltrprintf(
            "[%s] External Interface Error(content not 1 or 2). data= %s , content= 0x%x "
            "tmp_buf=%s.\n",
            __func__, "process", notice.content, notice.field.c_str());
        return -1;
    }
    DebugNumber("process", notice.content);
    return notice.content == 1 ? 1 : 0;
}

void CheckTestdataProgress(const char* body, const RecordContext& context, RunningTest* test) {
    const ProgressRecord progress = ParseProgress(body);
    if (!progress.has_seconds) return;
    test->run_time = progress.seconds;
    if (!progress.passes) return;
    RunningTest* counted = FindNamedTest(context.program.view(), test);
    if (counted != nullptr) counted->pass_count = *progress.passes;
}

void cr_cutman(char* text, int length) {
    char* end = text;
    for (int i = 0; i < length; ++i) {
        if (text[i] != '\r') *end++ = text[i];
    }
    *end = '\0';
}

}  // namespace patrol
