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

// Event kinds.
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

// Filled when the message is sent.
constexpr char kTail[] = "(model:\"%s\" serial:\"%s\" %s";

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

// The layout of the option text.
int OptionFormat(const EventRow& row, int state, const EventRecord& record) {
    if (row.starts) return 0;
    const bool with_progress = row.kind == kHddTest && record.level == kProgressLevel;
    return (state == 0 ? 1 : 2) + (with_progress ? 2 : 0);
}

void FormatOption(EventText* option, int format, const char* component, const EventRecord& record) {
    const char* start = record.start_time.c_str();
    const char* end = record.end_time.c_str();
    const auto from = static_cast<unsigned long long>(record.start_lba);
    const auto to = static_cast<unsigned long long>(record.end_lba);
    switch (format) {
        case 0:
            option->Format("component:\"%s\" start_time:\"%s\")", component, start);
            break;
        case 1:
            option->Format("component:\"%s\" pass:\"%d\" start_time:\"%s\" end_time:\"%s\")",
                           component, record.pass, start, end);
            break;
        case 2:
            option->Format(
                "component:\"%s\" pass:\"%d\" errmsg:\"%s\" start_time:\"%s\" end_time:\"%s\")",
                component, record.pass, record.errmsg.c_str(), start, end);
            break;
        case 3:
            // The addresses are decimal behind their "0x"; receivers read them so.
            option->Format(
                "component:\"%s\" pass:\"%d\" progress:\"%d%%\" start_lba:\"0x%016llu\" "
                "end_lba:\"0x%016llu\" start_time:\"%s\" end_time:\"%s\")",
                component, record.pass, record.progress, from, to, start, end);
            break;
        default:
            option->Format(
                "component:\"%s\" pass:\"%d\" progress:\"%d%%\" start_lba:\"0x%016llu\" "
                "end_lba:\"0x%016llu\" errmsg:\"%s\" start_time:\"%s\" end_time:\"%s\")",
                component, record.pass, record.progress, from, to, record.errmsg.c_str(), start,
                end);
    }
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
        FormatOption(option, format, component, record);
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
    check_config_file();
    if (event_settings.enable == 0) return -2;
    MachineIdentity machine;
    get_serial_model(&machine);
    char host[257] = "";
    gethostname(host, sizeof host - 1);
    Text<100> serial;
    serial.Format("%s\" hostname:\"%s", machine.serial_number.c_str(), host);

    const FormatArg arguments[] = {machine.model, serial, option};
    std::string message = FormatMessage(body, arguments, std::size(arguments));
    message.resize(std::min(message.size(), kMaxMessage));
    const int local = event_settings.facility;
    const int facility = local >= 0 && local <= 7 ? LOG_LOCAL0 + (local << 3) : LOG_LOCAL0;
    BlockingCall([&] { syslog(LOG_NOTICE | facility, "SDB::ZQWNkvx:%s\n", message.c_str()); });
    return 0;
}

}  // namespace patrol
