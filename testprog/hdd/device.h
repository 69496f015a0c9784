// The disk under test, opened for reading and nothing else.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lib/file.h"
#include "lib/record.h"
#include "lib/run.h"

namespace testprog {

constexpr uint64_t kBlockSize = 512;
constexpr uint64_t kPiece = 0x800;  // blocks that are read at once at the most: 1 MiB

// What the addresses of a disk of that size count, in blocks: 1, or on a disk with more blocks than
// 32 bits can count the least power of two that makes its end fit into them.
uint64_t AddressUnit(uint64_t blocks);

// What came of a read.
struct ReadResult {
    // kAgain: all was read, but not all at the first attempt.
    enum class End { kGood, kAgain, kFailed, kStopped };
    End end = End::kGood;
    // For kFailed the first block that cannot be read; for kAgain where the last failed attempt
    // began.
    uint64_t block = 0;
    std::string reason;
};

class Disk {
 public:
    Disk() = default;
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    // Opens a disk by its device name. Where the environment variable "HDDTEST_IMAGES" maps the
    // name to an image file ("NAME=FILE" or "NAME=FILE@BLOCKS", several joined by ":"), the file
    // is read in its place; with BLOCKS, a number, it counts as a disk of that many blocks, of
    // which those behind the file's end cannot be read. Returns kOk, kSkip for a disk that cannot
    // be tested, or kAbort.
    Outcome Open(const std::string& name);

    // Reads `count` blocks from `first` on, past the page cache where the system allows, in whole
    // sectors of the disk and at most kPiece blocks at once. Such a piece is repeated up to
    // `retries` times when it fails, then read sector by sector; the first sector to fail there is
    // the failure. Later reads in what is left of that piece are sector by sector too. `stop` is
    // asked before each attempt but the first. What was read is thrown away.
    ReadResult Read(uint64_t first, uint64_t count, uint64_t retries,
                    const std::function<bool()>& stop);

    // Whether reads and writes of others are under way on the disk (or on the one that an image
    // lies on) at this instant, as the kernel counts them; false where it does not tell.
    bool OthersBusy() const;

    // From now on reads of that block fail.
    void PretendBad(uint64_t block) { bad_block_ = block; }

    uint64_t blocks() const { return blocks_; }
    // Blocks that the disk reads at the least.
    uint64_t sector() const { return sector_; }
    bool image() const { return image_; }

    // For the disk information record; serial number and firmware are empty where the system
    // does not know them, and for images.
    DiskInfo Info(bool ide) const;

 private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    // As pread, in blocks. 0 is the end of the data.
    int64_t ReadSome(uint64_t first, uint64_t count);
    // As pread into the buffer; `offset` and `size` are those of whole sectors.
    ssize_t ReadSectors(off_t offset, size_t size);
    // Whether what begins there is read sector by sector.
    bool Suspect(uint64_t first) const { return first >= suspects_ && first < suspects_end_; }

    std::string name_;
    bool image_ = false;
    int fd_ = -1;
    bool direct_ = false;
    uint64_t blocks_ = 0;
    uint64_t sector_ = 1;
    uint64_t suspects_ = 0;  // what is read sector by sector, up to:
    uint64_t suspects_end_ = 0;
    std::optional<uint64_t> bad_block_;
    std::unique_ptr<void, Free> buffer_;
    Descriptor in_flight_{-1};  // the kernel's counts of what is under way
};

}  // namespace testprog
