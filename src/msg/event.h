// The agent's event pipe: one message, one write.
#pragma once

#include <string_view>

namespace patrol {

// Formats one message (at most 5119 characters, after the value of "KVX_SVTYPE" and ";" where that
// is set) and writes it to the pipe named by "KVX_PIPE", by default "/var/opt/ZQWNkvx/kvxpipe".
// Returns 0, or -1 when it cannot be written to, nobody reads it, or something else than a pipe
// stands there, which is left alone; that never blocks, and is told nowhere else, as every report
// of a failure ends here. A reader that is there but slow is waited for; SIGINT and SIGHUP end that
// wait with -1.
[[gnu::format(printf, 1, 2)]] int event(const char* format, ...);

// Writes a text that is ready, in the same way.
int SendEvent(std::string_view text);

}  // namespace patrol
