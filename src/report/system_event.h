// Announcing padiag tests to the system log: one structured line for each start, end and failure.
//
// Sending is switched on by "enable" in the section [sdb] of "common.ini" in the directory named by
// "KVX_config"; "facility" (0 to 7) chooses the facility.
#pragma once

#include <cstdint>
#include <ctime>

#include "base/running_test.h"
#include "base/text.h"

namespace patrol {

// What an event says beside the component. Starts out cleared for every event.
struct EventRecord {
    int32_t pass = 0;
    int32_t progress = 0;  // percent, of a disk at level 3
    Text<128> errmsg;
    IsoTime start_time;
    IsoTime end_time;
    uint64_t start_lba = 0;
    uint64_t end_lba = 0;
    int32_t level = 0;  // 3 selects the disk texts with progress
};

// Result codes of an event.
enum : int { kEventCompleted = 2, kEventFailed = 5, kEventStarted = 8 };

// The name of the event that announces the start or the end of a test of `kind`; null for an
// unknown kind.
const char* StartEventName(int kind);
const char* EndEventName(int kind);

// Announces one event of `component` (its physical path; null: nothing is sent). An unknown name or
// result, or sending switched off, is traced; nothing here stops a diagnosis,
// but a system log that takes no more is waited for. Result 3 counts like 2.
void padiag_sdb_event(const char* name, int result, const char* component,
                      const EventRecord& record);

using EventText = Text<512>;

// Builds the fixed and the variable half of a message. `state` is -1 for a failure, else 0.
void make_eventlog_msg(EventText* body, EventText* option, int kind, int state,
                       const char* component, const EventRecord& record);

// Sends a message. The first "%s" of `body` becomes the model, the second serial number and host
// name, the third the option text. 0, -1 without a body, -2 when sending is switched off.
int kvx_sdb_msg(const char* body, const char* option);

// Reads the settings anew; both are 0 where the file does not set them. 0, or -1 when "KVX_config"
// is unset or the file cannot be opened.
int check_config_file();

// Local time as "yyyy-mm-ddThh:mm:ss+hh:mm".
void date2iso8601(std::time_t time, IsoTime* text);

// Minutes by which UTC is ahead of local time.
int get_timezone_offset();

}  // namespace patrol
