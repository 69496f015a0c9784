#include "msg/system_log.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "base/blocking.h"
#include "base/file.h"
#include "base/paths.h"
#include "msg/call_failure.h"
#include "msg/event.h"
#include "msg/format.h"

namespace patrol {
namespace {

using StagedLine = Text<2056>;

// Returns the line that is staged for a message.
StagedLine ComposeLine(const char* number, const char* text) {
    StagedLine line;
    if (number == nullptr || std::strcmp(number, "L1000") == 0) {
        line.Format("%s\n", text);
    } else if (std::strcmp(number, "E0809") == 0) {
        line.Format("%s:ZQWNkvx %s\n", number, text);
    } else {
        line.Format("%s: %s\n", number, text);
    }
    return line;
}

// Reports a file that cannot be opened. The event does not need the catalogue.
int OpenFailed(const Path& path, const char* mode, int error) {
    CallFailure failure("fopen", error);
    failure.file = path.c_str();
    failure.mode = mode;
    ReportCallFailure(failure);
    event("E3899:<<file name = %s>>", path.c_str());
    return -1;
}

// Hands every staged line to the system log, which may hold this program while it is busy.
int SendStaged(const Path& path) {
    const Stream file = OpenForReading(path.c_str());
    if (file == nullptr) return OpenFailed(path, "r", errno);
    return BlockingCall([&file] {
        openlog("KVX", LOG_PID, LOG_USER);
        char line[StagedLine::kSize];
        while (std::fgets(line, sizeof line, file.get()) != nullptr) {
            // A "%%" of the line is one "%" for its readers, as if it were a format itself.
            syslog(LOG_USER | LOG_ERR, "%s", FormatMessage(line, nullptr, 0).c_str());
        }
        // The identity is this group's alone.
        closelog();
        return 0;
    });
}

}  // namespace

int ptl_system_logging(const char* number, const char* text) {
    const bool starts_group = number != nullptr && std::strcmp(number, "I0807") == 0;
    const bool ends_group = number != nullptr && std::strcmp(number, "E0809") == 0;
    Path path;
    path.Format("%s/%s", trc_name, "pat_sys.log");
    // The file is closed before its lines are sent: they are in it then, or nobody gets them.
    {
        const char* mode = starts_group ? "w" : "a";
        const Stream file =
            starts_group ? OpenForWriting(path.c_str()) : OpenForAppending(path.c_str());
        if (file == nullptr) return OpenFailed(path, mode, errno);
        const bool whole = std::fputs(ComposeLine(number, text).c_str(), file.get()) >= 0 &&
                           std::fflush(file.get()) == 0;
        // Once a run: it would be the same event for every line to come.
        static bool told = false;
        if (!whole && !std::exchange(told, true))
            ReportFileTrouble(__func__, "write", path.c_str(), "write", errno);
    }
    return ends_group ? SendStaged(path) : 0;
}

}  // namespace patrol
