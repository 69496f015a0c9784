// "lba_outfile.ini": how far the tests of each disk have come at the level that keeps progress.
//
// The test programs write the file; it has the disks by device name.
#pragma once

#include <cstdint>

#include "base/text.h"
#include "sys/profile.h"

namespace patrol {

// The padiag level at which a disk test goes on where the one before it ended.
inline constexpr int kProgressLevel = 3;

// The file, or its saved copy, read once. What is missing counts as 0.
class DiskProgress {
 public:
    explicit DiskProgress(const char* path) : profile_(path) {}

    // The last block of the disk.
    uint64_t Maximum(const char* device) const { return Number("HDD_MAX_LBA", device); }

    // The block that the next test starts at.
    uint64_t Next(const char* device) const { return Number(kNextSection, device); }
    Text<64> NextText(const char* device) const {
        return Text<64>(Value(kNextSection, device).view());
    }

 private:
    static constexpr char kNextSection[] = "HDD_NEXT_LBA";

    Text<65> Value(const char* section, const char* device) const;
    uint64_t Number(const char* section, const char* device) const;

    ProfileReader profile_;
};

// Returns the whole percents of `maximum` that `next` is, exact: 0 for a next address of 0, else at
// least 1, and 100 only where both are equal. A maximum of 0 counts as hardly begun.
int32_t ProgressPercent(uint64_t next, uint64_t maximum);

// The same for the event at the end of a test. It is 0 for a maximum of 0, too, and beyond 2^24
// both are taken as single precision has them; the event's readers know it so.
int32_t EndPercent(uint64_t next, uint64_t maximum);

// The same for the start of a test, which has no upper bound: a start behind the maximum shows.
int32_t StartPercent(uint64_t start, uint64_t maximum);

// Makes `copy_path` a second name of the file at `path`: a schedule takes the start addresses from
// there. Where that file is missing, so is the copy afterwards; where the copy cannot be made, the
// one before it stays (reported).
void SaveProgressCopy(const char* path, const char* copy_path);

}  // namespace patrol
