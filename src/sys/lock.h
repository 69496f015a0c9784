// An advisory lock on a whole file; it excludes other processes, one lock a process.
#pragma once

namespace patrol {

// Waits up to `seconds` (0 or below: without limit) for the lock on `path`, which is created where
// it is missing. Any lock held before is given up. Returns 0, -2 when the time was up, -1 on any
// other failure. Uses SIGALRM; the caller must have no alarm pending.
int lock(const char* path, int seconds);

// Takes the lock without waiting. Returns 0, or -1 when another process holds the lock or the file
// cannot be opened.
int tlock(const char* path);

// Gives the lock up. Returns 0.
int unlock();

}  // namespace patrol
