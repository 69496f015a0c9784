#include "msg/event.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <string>

#include "base/file.h"
#include "base/signals.h"
#include "base/text.h"

namespace patrol {
namespace {

// What one message may hold.
using EventLine = Text<5120>;

}  // namespace

int event(const char* format, ...) {
    EventLine text;
    va_list arguments;
    va_start(arguments, format);
    text.FormatList(format, arguments);
    va_end(arguments);
    return SendEvent(text.view());
}

int SendEvent(std::string_view text) {
    // The pipe is opened for each message: the agent may have made it anew in between.
    const char* path = std::getenv("KVX_PIPE");
    if (path == nullptr) path = "/var/opt/ZQWNkvx/kvxpipe";
    if (access(path, W_OK) != 0) return -1;
    // Looked at before: the mere opening of a device may do something, such as wind a tape back.
    struct stat status = {};
    if (stat(path, &status) != 0 || !S_ISFIFO(status.st_mode)) return -1;
    // Opened without blocking, so that a pipe nobody reads is a failure; and so written to, because
    // a signal ends the wait for room, but would not end a write.
    const Descriptor pipe(open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!pipe.ok() || fstat(pipe.get(), &status) != 0 || !S_ISFIFO(status.st_mode)) return -1;

    std::string message;
    const char* server = std::getenv("KVX_SVTYPE");
    if (server != nullptr && server[0] != '\0') message.append(server).append(";");
    message += text.substr(0, EventLine::kSize - 1);
    for (std::string_view rest = message; !rest.empty();) {
        if (WaitWritable(pipe.get()) != 0) return -1;
        const ssize_t written = write(pipe.get(), rest.data(), rest.size());
        // EAGAIN: there is less room than a message takes that must not be torn, or another writer
        // was faster.
        if (written < 0 && errno != EAGAIN) return -1;
        rest.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    return 0;
}

}  // namespace patrol
