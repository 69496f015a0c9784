// Scanning a saved record stream.
#pragma once

namespace patrol {

// Looks for the next record marker in the open file "pat_temp.txt" from `*offset` on. The body
// length that the first marker with a positive one announces, with `*offset` moved behind its
// prefix; 0 at the end of the file; -1 when the file is not open, or cannot be sought or read (a
// read is reported).
int check_pipedata(long* offset);

}  // namespace patrol
