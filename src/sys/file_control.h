// Opening and closing the work files of the file table, and small file utilities.
#pragma once

#include <cstdint>
#include <cstdio>

#include "base/file.h"

namespace patrol {

// Opens (operation 1) or closes (any other) every entry of f_cntl whose identifier has a bit in
// common with `mask`, in table order; entries that are open already, or closed already, are left
// alone. Opening returns 0, or -1 at a null `mode` or at the first failure: entries opened before
// it stay open. Closing returns how many entries failed to close; they keep their mark. Failures
// are reported.
int ptl_file_cntl(int operation, uint32_t mask, const char* mode);

// Seeks the stream of the table entry at position `index` (not identifier). Returns 0, or -1 when
// the entry is not open or the seek failed (reported).
int ptl_fseek(int index, long offset, int whence);

// fopen with up to `tries` attempts while a signal interrupts it. Returns null for a null path,
// tries below 1 or a failure, errno set.
Stream rfopen(const char* path, int tries, const char* mode);

// Compares at most `n` characters, letters without regard to case. Returns 0 when they are equal,
// also for an `n` below 1, else -1.
int ptl_strcmp(const char* a, const char* b, int n);

}  // namespace patrol
