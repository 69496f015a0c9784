#include "msg/ptl_printf.h"

#include <sys/time.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>

#include "base/local_time.h"
#include "base/run_mode.h"
#include "msg/catalogue.h"
#include "msg/event.h"
#include "msg/log_files.h"
#include "msg/system_log.h"

namespace patrol {
namespace {

constexpr unsigned kDestinations = 0x00ff;
constexpr size_t kWorkSize = 2048;
constexpr size_t kLongFormat = 512;

// Returns the most characters that a formatted text of this format may have. A relayed text has no
// conversions, so that one of any length comes whole.
size_t TextLimit(size_t format_length) {
    return (format_length > kLongFormat ? format_length + kLongFormat : kWorkSize) - 1;
}

const char* Or(const char* given, const char* fallback) {
    return given != nullptr ? given : fallback;
}

}  // namespace

int PrintMessage(unsigned flags, const RecordHeader* header, const char* number_or_format,
                 const FormatArg* arguments, size_t count) {
    if (!DebugRun()) flags &= ~unsigned{kToDebug};
    // Before the look-up: a message for a buffer that is off need not be in the catalogue.
    if ((flags & kDestinations) == 0) return 0;

    RecordHeader line = {nullptr, nullptr, nullptr, nullptr};
    const char* format = number_or_format;
    if ((flags & kRelayed) != 0) {
        if (header != nullptr) line = *header;
    } else if ((flags & kByNumber) != 0) {
        line.number = number_or_format;
        format = msgno_to_fmt(number_or_format);
    } else {
        return -1;
    }
    if (format == nullptr) return -1;

    char now[64];
    if (line.time_stamp == nullptr) {
        make_time_stamp(now, sizeof now);
        line.time_stamp = now;
    }
    line.program = Or(line.program, "patrol");
    line.number = Or(line.number, "L1000");
    line.second = Or(line.second, "patrol");

    std::string text = FormatMessage(format, arguments, count);
    text.resize(std::min(text.size(), TextLimit(std::strlen(format))));

    // The agent comes first: it may have to act on the message, and it hears of a log that cannot
    // be written to in the same way.
    if ((flags & kToEvent) != 0) SendEvent(std::string(line.number) + ":" + text + "\n");
    const LogLine log_line = {host_buf.c_str(), line.time_stamp, line.program,
                              line.number,      line.second,     text.c_str()};
    if ((flags & kToLog) != 0) ptl_output_logfile("pat_log", log_line);
    if ((flags & kToSystemLog) != 0) ptl_system_logging(line.number, text.c_str());
    if ((flags & kToTrace) != 0) ptl_output_logfile("pat_trc", log_line);
    if ((flags & kToDebug) != 0) ptl_output_logfile("pat_dbg", log_line);
    return 0;
}

int make_time_stamp(char* buffer, size_t size) {
    timeval now = {};
    gettimeofday(&now, nullptr);
    const std::tm local = LocalTime(now.tv_sec);
    const size_t used = std::strftime(buffer, size, "%y/%m/%d %H:%M:%S", &local);
    return snprintfx(buffer + used, size - used, " %03d.%03d", static_cast<int>(now.tv_usec / 1000),
                     static_cast<int>(now.tv_usec % 1000));
}

}  // namespace patrol
