// Where a component sits in the machine.
#pragma once

namespace patrol {

enum : int { kPathOfCpu = 0, kPathOfMemory = 1, kPathOfDevice = 2 };

// Looks the location up in "devconf_cur.xml" of the data directory: of the processor or memory
// summary, or (kPathOfDevice) of the first line that holds `needle`. At most 99 characters, in a
// static text that the next call overwrites: copy it at once. "no data" when the file is not to be
// had, its devices end first, or `needle` is null where it is asked for (an empty one is in every
// line); at the end of the file without a match the text stays what it was.
const char* get_phypath(int kind, const char* needle);

}  // namespace patrol
