// The one message call: what the program has to say to a log, the system log or the agent.
#pragma once

#include <string_view>

#include "base/text.h"
#include "msg/format.h"

namespace patrol {

// Destinations and source of a message.
enum : unsigned {
    kToLog = 0x0001,        // log buffer "pat_log"
    kToSystemLog = 0x0002,  // ptl_system_logging
    kToTrace = 0x0004,      // trace-detail buffer "pat_trc"
    kToDebug = 0x0008,      // debug buffer "pat_dbg", in debug runs alone
    kToEvent = 0x0010,      // the agent's event pipe
    kRelayed = 0x1000,      // the third argument is the text itself, the header has the number
    kByNumber = 0x2000,     // the third argument is a message number
    kTraceDetail = kByNumber | kToTrace,
    kAgentEvent = kByNumber | kToEvent,
    kDebugDetail = kByNumber | kToDebug,
    kTraceAndDebug = kByNumber | kToTrace | kToDebug,
};

// Where a relayed line comes from. Null members default to: the time now, "patrol", "L1000",
// "patrol".
struct RecordHeader {
    const char* time_stamp;
    const char* program;  // the 20-column field of a log line; relayed records put the device here
    const char* number;
    const char* second;  // the 16-column field; relayed records put the test program here
};

// Formats a message and sends it to its destinations in the order event, log, system log, trace,
// debug. Exactly one of kRelayed and kByNumber must be set. A text from the catalogue is cut at
// 2047 characters, a relayed one comes whole. Returns 0 when it was sent (also when the only
// destination is a debug buffer that is off), -1 for an unknown number or flags that name no
// source.
int PrintMessage(unsigned flags, const RecordHeader* header, const char* number_or_format,
                 const FormatArg* arguments, size_t count);

template <class... Arguments>
int ptl_printf(unsigned flags, const RecordHeader* header, const char* number_or_format,
               const Arguments&... arguments) {
    const FormatArg list[] = {FormatArg(arguments)..., FormatArg(0)};
    return PrintMessage(flags, header, number_or_format, list, sizeof...(arguments));
}

// Stores local time as "yy/mm/dd HH:MM:SS mmm.uuu", milliseconds and microseconds at the end.
// Returns the length of these two.
int make_time_stamp(char* buffer, size_t size);

}  // namespace patrol
