// The lines of the two histories, as they are written and read.
//
// A result is "TIME RESULT COMPONENT DEVICE [Ns]" and what follows the "]" directly; a change of a
// schedule is "TIME [WHAT] Target ...". TIME is local.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "base/text.h"

namespace patrol {

// Result codes of a history line.
enum : int {
    kResultOk = 0,
    kResultError = 1,
    kResultAbort = 2,
    kResultTimeout = 3,
    kResultCancel = 4,
};

// Their words.
inline constexpr const char* kResultWords[] = {"OK", "ERROR", "ABORT", "TIMEOUT", "CANCEL"};

// The files, in the log directory. What either history has no more room for stands in the aged one.
inline constexpr char kPatrolHistory[] = "patstat0.txt";
inline constexpr char kPadiagHistory[] = "pastat.txt";
inline constexpr char kAgedHistory[] = "patstat3.txt";

// A history above this size ages before the next line: one of this size still has room for a line
// of 129 bytes in its 1 MiB.
inline constexpr off_t kMaxHistorySize = (1 << 20) - 129;

// "yyyy/mm/dd hh:mm:ss", local.
Text<32> HistoryStamp(std::time_t seconds);

// The line up to and with the "]". `component` is the test program's name.
std::string ResultHead(std::time_t time, const char* result, const char* component,
                       const char* device, int seconds);

struct ResultLine {
    std::time_t time = 0;
    int result = kResultOk;
    std::string component;
    std::string device;
    int seconds = 0;
    std::string rest;  // behind the "]"
};

// Takes apart what ResultHead has written, and what follows it. None for a line that is no result.
std::optional<ResultLine> ParseResult(std::string_view line);

// What an on-request run puts behind the "]" and a blank: "pass=N", or "N[%] -> N[%](pass=N)" for a
// disk at the level that keeps progress; then, behind a blank, a message.
struct PadiagDetail {
    bool has_progress = false;
    int progress_before = 0;  // percent, as is the next
    int progress_after = 0;
    int passes = 0;
    std::string message;
};
Text<128> FormatDetail(const PadiagDetail& detail);

// Takes the rest of a result apart; none for that of a patrol run.
std::optional<PadiagDetail> ParseDetail(const std::string& rest);

// Returns whether the line tells of a schedule that was made or changed; its time, where it is one,
// in `time`.
bool ParseChange(std::string_view line, std::time_t* time);

}  // namespace patrol
