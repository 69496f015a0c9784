// Announcing padiag tests to the system log: one structured line for each start, end and failure.
//
// A line names the machine, the component and what is known of the test. Sending is off unless the
// settings (system_event_settings.h) switch it on.
#pragma once

#include <cstdint>

#include "base/local_time.h"
#include "base/text.h"

namespace patrol {

// What an event says beside the component. Every event starts from a cleared one, so that nothing
// of the test before comes into it.
struct EventRecord {
    int32_t pass = 0;
    int32_t progress = 0;  // percent, of a disk at level 3
    Text<128> errmsg;      // of a failed test
    IsoTime start_time;
    IsoTime end_time;
    uint64_t start_lba = 0;
    uint64_t end_lba = 0;
    int32_t level = 0;  // 3 selects the disk texts with progress
};

// Result codes of an event.
enum : int { kEventCompleted = 2, kEventFailed = 5, kEventStarted = 8 };

// Return the name of the event that announces the start or the end of a test of `kind`; null for an
// unknown kind.
const char* StartEventName(int kind);
const char* EndEventName(int kind);

// Announces one event of `component` (its physical path; null: nothing is sent). An unknown name or
// result, or sending switched off, is traced; nothing here stops a diagnosis, but a system log that
// takes no more is waited for. Result 3 counts like 2.
void padiag_sdb_event(const char* name, int result, const char* component,
                      const EventRecord& record);

using EventText = Text<512>;

// Builds the fixed and the variable half of a message: the body, which kvx_sdb_msg takes as its
// format, and the option text. `kind` is the number of the event, `state` -1 for a failure, else 0.
void make_eventlog_msg(EventText* body, EventText* option, int kind, int state,
                       const char* component, const EventRecord& record);

// Sends a message. The first "%s" of `body` becomes the model, the second serial number and host
// name, the third the option text. Returns 0, -1 without a body, -2 when sending is switched off.
int kvx_sdb_msg(const char* body, const char* option);

}  // namespace patrol
