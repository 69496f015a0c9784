// How far each disk has been read, kept for the controller between on-request runs.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace testprog {

// Sets the disk's keys in "lba_outfile.ini" of that directory: its number of blocks in section
// [HDD_MAX_LBA], the next block to be read in [HDD_NEXT_LBA], both as "0x" and 16 digits under
// the device's name. Everything else in the file stays. The file is replaced whole, so that a
// reader, or the backup link that the controller holds, never sees half of it; processes for
// several disks take turns by a lock on "lba_outfile.lock", for which it waits about a second and
// asks `stop` meanwhile: when that is true it waits a tenth of a second at most. Returns an empty
// text, or why the progress is not saved; the old file is then as it was.
std::string SaveProgress(const std::string& directory, const std::string& device, uint64_t blocks,
                         uint64_t next, const std::function<bool()>& stop);

}  // namespace testprog
