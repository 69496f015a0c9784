// The disk under test, opened for reading and nothing else.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lib/record.h"
#include "lib/run.h"

namespace testprog {

constexpr uint64_t kBlockSize = 512;

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
    // sectors of the disk and at most 1 MiB at once. Such a piece is repeated up to `retries`
    // times when it fails, then read sector by sector; the first sector to fail there is the
    // failure. `stop` is asked before each attempt but the first. What was read is thrown away.
    ReadResult Read(uint64_t first, uint64_t count, uint64_t retries,
                    const std::function<bool()>& stop);

    // From now on reads of that block fail.
    void PretendBad(uint64_t block) { bad_block_ = block; }

    uint64_t blocks() const { return blocks_; }

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

    std::string name_;
    bool image_ = false;
    int fd_ = -1;
    bool direct_ = false;
    uint64_t blocks_ = 0;
    uint64_t sector_ = 1;  // blocks that the disk reads at the least
    std::optional<uint64_t> bad_block_;
    std::unique_ptr<void, Free> buffer_;
};

}  // namespace testprog
