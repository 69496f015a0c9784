#include "report/system_event.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "base/blocking.h"
#include "base/kinds.h"
#include "msg/format.h"
#include "msg/trace.h"
#include "report/system_event_settings.h"
#include "state/disk_progress.h"
#include "state/machine.h"

namespace patrol {
namespace {

// Kinds of events, as the traces number them.
enum : int {
    kCpuStart = 7,
    kCpuTest = 8,
    kMemoryStart = 9,
    kMemoryTest = 10,
    kHddStart = 11,
    kHddTest = 12,
};

struct EventRow {
    int test_kind;
    bool starts;
    const char* name;
    int kind;
    const char* component_word;
    const char* completed_id;  // or started
    const char* failed_id;
};

constexpr EventRow kEvents[] = {
    {kKindCpu, true, "padiagcpustart", kCpuStart, "cpu", "1043", "1043"},
    {kKindCpu, false, "padiagcputest", kCpuTest, "cpu", "1044", "1045"},
    {kKindMemory, true, "padiagmemstart", kMemoryStart, "memory", "1053", "1053"},
    {kKindMemory, false, "padiagmemtest", kMemoryTest, "memory", "1054", "1055"},
    {kKindHdd, true, "padiaghddstart", kHddStart, "disk", "1063", "1063"},
    {kKindHdd, false, "padiaghddtest", kHddTest, "disk", "1064", "1065"},
};

// The end of every body. It is filled when the message is sent.
constexpr char kTail[] = "(model:\"%s\" serial:\"%s\" %s";

// Returns the row of an event's name; null when there is none.
const EventRow* FindEvent(const char* name) {
    for (const EventRow& row : kEvents) {
        if (std::strcmp(row.name, name) == 0) return &row;
    }
    return nullptr;
}

const char* EventName(int test_kind, bool starts) {
    for (const EventRow& row : kEvents) {
        if (row.test_kind == test_kind && row.starts == starts) return row.name;
    }
    return nullptr;
}

// The layouts of the option text, as the trace numbers them. Those with progress have numbers above
// by kWithProgress.
enum : int { kStarted = 0, kCompleted = 1, kFailed = 2 };
constexpr int kWithProgress = 2;

// Only the end of a disk test at the level that keeps progress has any to tell.
int OptionFormat(const EventRow& row, int state, const EventRecord& record) {
    if (row.starts) return kStarted;
    const bool with_progress = row.kind == kHddTest && record.level == kProgressLevel;
    return (state == 0 ? kCompleted : kFailed) + (with_progress ? kWithProgress : 0);
}

// One item of the option text and the blank or bracket behind it.
std::string Item(const char* name, std::string_view value, char behind = ' ') {
    return std::string(name) + ":\"" + std::string(value) + "\"" + behind;
}

// Decimal behind its "0x"; receivers read it so.
std::string BlockAddress(uint64_t address) {
    Text<32> text;
    text.Format("0x%016llu", static_cast<unsigned long long>(address));
    return text.c_str();
}

// The option text: its items always come in this order, and the layout says which of them do.
std::string OptionText(int format, const char* component, const EventRecord& record) {
    const bool ended = format != kStarted;
    const bool with_progress = format > kFailed;
    const bool failed = (with_progress ? format - kWithProgress : format) == kFailed;
    std::string text = Item("component", component);
    if (ended) text += Item("pass", std::to_string(record.pass));
    if (with_progress) {
        text += Item("progress", std::to_string(record.progress) + "%");
        text += Item("start_lba", BlockAddress(record.start_lba));
        text += Item("end_lba", BlockAddress(record.end_lba));
    }
    if (failed) text += Item("errmsg", record.errmsg.view());
    text += Item("start_time", record.start_time.view(), ended ? ' ' : ')');
    if (ended) text += Item("end_time", record.end_time.view(), ')');
    return text;
}

}  // namespace

const char* StartEventName(int kind) { return EventName(kind, true); }

const char* EndEventName(int kind) { return EventName(kind, false); }

void padiag_sdb_event(const char* name, int result, const char* component,
                      const EventRecord& record) {
    Ptltrprintf("[%s] test = [%s].\n", __func__, name);
    Ptltrprintf("[%s] result = [%d].\n", __func__, result);
    if (component == nullptr) {
        Ptltrprintf("[%s] Warning : device_name = [%s].\n", __func__, "null");
        return;
    }
    Ptltrprintf("[%s] device_name = [%s].\n", __func__, component);
    const EventRow* row = FindEvent(name);
    if (row == nullptr) {
        Ptltrprintf("[%s] Unknown diag = [%s]\n", __func__, name);
        return;
    }
    if (result != 2 && result != 3 && result != kEventFailed && result != kEventStarted) {
        Ptltrprintf("[%s] Not OK, Complete, Error\n", __func__);
        return;
    }
    const int state = result == kEventFailed ? -1 : 0;
    Ptltrprintf("[%s] type = [%d]\n", __func__, row->kind);
    Ptltrprintf("[%s] state = [%d]\n", __func__, state);
    EventText body;
    EventText option;
    make_eventlog_msg(&body, &option, row->kind, state, component, record);
    Ptltrprintf("[%s] Start.\n", "kvx_sdb_msg");
    if (kvx_sdb_msg(body.c_str(), option.c_str()) == -2) {
        Ptltrprintf("[%s] Warning : disabled by sdb.conf.\n", __func__);
    }
    Ptltrprintf("[%s] End.\n", "kvx_sdb_msg");
}

// Body and option text stay apart until the end: the body is a format with places for what only the
// sender knows, and a component's name must not bring a "%" into it.
void make_eventlog_msg(EventText* body, EventText* option, int kind, int state,
                       const char* component, const EventRecord& record) {
    body->Clear();
    option->Clear();
    for (const EventRow& row : kEvents) {
        if (row.kind != kind) continue;
        const char* id = state == 0 ? row.completed_id : row.failed_id;
        const char* verb = state == 0 ? "completed" : "failed";
        const int format = OptionFormat(row, state, record);
        body->Format("%s:%s diagnostics %s.%s", id, row.component_word,
                     row.starts ? "started" : verb, kTail);
        option->Assign(OptionText(format, component, record));
        Ptltrprintf("[%s] diag = [%s]\n", __func__, row.component_word);
        Ptltrprintf("[%s] msg_id = [%s]\n", __func__, id);
        Ptltrprintf("[%s] msg_format = (%d)\n", __func__, format);
        Ptltrprintf("[%s] msg_body = [%s]\n", __func__, body->c_str());
        Ptltrprintf("[%s] opt_msg  = [%s]\n", __func__, option->c_str());
    }
}

int kvx_sdb_msg(const char* body, const char* option) {
    constexpr size_t kMaxMessage = 2047;
    if (body == nullptr || body[0] == '\0') return -1;
    SystemEventSettings settings;
    check_config_file(&settings);
    if (settings.enable == 0) return -2;
    MachineIdentity machine;
    get_serial_model(&machine);
    // The host name has no place of its own in the body; it rides behind the serial number.
    char host[257] = "";
    gethostname(host, sizeof host - 1);
    Text<100> serial;
    serial.Format("%s\" hostname:\"%s", machine.serial_number.c_str(), host);

    const FormatArg arguments[] = {machine.model, serial, option};
    std::string message = FormatMessage(body, arguments, std::size(arguments));
    message.resize(std::min(message.size(), kMaxMessage));
    // A number that is none of the eight facilities is to cost no event.
    const int local = settings.facility;
    const int facility = local >= 0 && local <= 7 ? LOG_LOCAL0 + (local << 3) : LOG_LOCAL0;
    BlockingCall([&] { syslog(LOG_NOTICE | facility, "SDB::ZQWNkvx:%s\n", message.c_str()); });
    return 0;
}

}  // namespace patrol
