// The trace file: what the controller decided and did, one stamped line a call.
//
// Lines begin "YYYY/MM/DD hh:mm:ss PID HOST (REMOTEHOST):"; callers end their text with a line
// feed themselves. The file is opened, appended to with one write a line, and closed at every call,
// so that several processes can share it and anybody may move it away in between. Above 65536
// bytes it is moved to ".0", ".0" to ".1", and so on up to ".5".
#pragma once

#include <cstddef>
#include <cstdint>

namespace patrol {

// Sets the trace up: path (at most 4096 characters are kept) and a ring of `count` slots of
// `line_size` bytes. Returns 0, or -1 when memory runs out. Nothing is opened yet.
int trinit(const char* path, uint32_t line_size, int32_t count);

// Puts one line, its text of at most 4095 characters, into the next slot of the ring. The line is
// bounded by the slot: of a head too long for it the end is lost first, so that the text comes
// through. Returns 0, or -1 without a ring.
[[gnu::format(printf, 1, 2)]] int trprintf(const char* format, ...);

// Appends the lines of the ring to the file, oldest first, and empties the ring. Returns 0, or -1
// without a ring or when the file cannot be opened; the lines then stay for the next flush.
int trflush();

// Empties the ring unwritten. Returns 0, or -1 without a ring.
int trpurge();

// Moves path.4 to path.5 ... path to path.0; missing ones are passed over. Returns the result of
// the last rename, -1 without a ring.
int tr_rotate();

// rename(from, to), which takes the place of whatever stood there.
int mv_if_exist(const char* from, const char* to);

// Puts one line, its text of at most 4095 characters, and writes it at once, so that the trace of a
// run that is killed ends where the run did. Returns the result of trflush. Before trinit the line
// is lost silently.
[[gnu::format(printf, 1, 2)]] int Ptltrprintf(const char* format, ...);

// The second trace, "ana_io.trc" in the log directory. Once it is on, every line goes there.
// Returns `command` unchanged when it is on already or `command` is 2 or more, 0 when "KVX_log" is
// unset, else the result of trinit.
int inttrace(int command);

// Ends the second trace: lines that were not written are dropped.
void endtrace();

// Writes a line "[for parts], TEXT" from the parts reports and the command runner.
int outtrace(const char* text);

// outtrace of a formatted text of at most 4095 characters.
[[gnu::format(printf, 1, 2)]] int OutTracef(const char* format, ...);

}  // namespace patrol
