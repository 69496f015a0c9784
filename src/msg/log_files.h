// The buffered log streams "pat_log", "pat_trc" and "pat_dbg" and their files.
//
// A stream collects lines in 4096 bytes, so that a pass costs a few writes, and appends them to
// "<log directory>/<stream>0.log" when the next line would not fit, at every line of a debug run,
// and at the end of the program. A file that would pass 512 KiB rotates, up to generation 3. Two
// losses at a rotation are required and not to be repaired: the lines being flushed are dropped,
// and where all four generations exist the flush only removes the oldest, so that the next one
// drops its lines too.
//
// Errors go to the event pipe alone: a message would come back here.
#pragma once

#include "base/text.h"

namespace patrol {

inline constexpr size_t kLogBufferSize = 4096;
using LogBuffer = Text<kLogBufferSize>;

// The fields of a log line, in their order.
struct LogLine {
    const char* host;  // with its comma
    const char* stamp;
    const char* program;
    const char* number;
    const char* second;
    const char* text;
};

// Adds one line to a stream. A line estimated above 4095 characters leaves three characters and no
// line feed in the file; readers of the log know this mark. Returns 0, or -1 for an unknown stream.
int ptl_output_logfile(const char* stream, const LogLine& line);

// Writes `buffer` to the newest file of `stream`, rotating before that where needed, and empties
// it. Returns 0, or -1 when a file operation failed: a file that cannot be opened or moved leaves
// the buffer as it was, one that cannot be written to empties it, and is told to the agent once a
// run.
int ptl_flush_buff(const char* stream, LogBuffer* buffer);

// Flushes the three streams, log first.
void FlushLogBuffers();

// Empties the three buffers unwritten: in a child whose parent will write them.
void ClearLogBuffers();

// Copies the newest two files of the log and the trace-detail log to "pat_loge", "pat_logb",
// "pat_trce" and "pat_trcb" (".log"), exactly, so that the next rotation cannot lose what led to a
// failed run. A missing source is passed over. Returns 0, or -1 at the first copy that fails.
int ptl_log_backup();

// Copies lines between streams: from the first that begins with `start` (null: from the first of
// all) up to, without it, the next that begins with `end` (null: to the end). Returns how many
// lines were copied, or -1 when `start` was never met.
int copy_part_of_file(FILE* to, FILE* from, const char* start, const char* end);

}  // namespace patrol
