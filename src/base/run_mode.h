// How this run was started. Set once by the command line, read everywhere.
#pragma once

#include <cstdint>

#include "base/text.h"

namespace patrol {

enum : uint8_t {
    kModeAgentStart = 1,    // KVXstart
    kModeStart = 3,         // start: one patrol pass
    kModeReload = 4,        // reload
    kModeConfigChange = 5,  // confchg
    kModePadiag = 7,        // pastart
    kModeMask = 15,
    kDebugFlag = 16,
};

// Mode number in the low four bits, kDebugFlag beside it.
extern uint8_t entry_cmd;

// Fault-injection number from the word "point="; 0 when there is none.
extern int32_t error_point;

// Host name followed by a comma, or empty when the host has none. Every log line begins with it.
extern Text<64> host_buf;

// The two halves of entry_cmd.
inline int RunMode() { return entry_cmd & kModeMask; }
inline bool DebugRun() { return (entry_cmd & kDebugFlag) != 0; }

}  // namespace patrol
