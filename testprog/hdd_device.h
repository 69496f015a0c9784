// The disk under test, opened for reading and nothing else.

#ifndef TESTPROG_HDD_DEVICE_H_
#define TESTPROG_HDD_DEVICE_H_

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "record.h"

namespace testprog {

constexpr std::uint64_t kBlockSize = 512;
// The most blocks that one read takes.
constexpr std::uint64_t kMaxStep = 0x8000;

struct ReadFailure {
    std::uint64_t block;  // the first that cannot be read
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
    // is read in its place; with BLOCKS it counts as a disk of that many blocks, of which those
    // behind the file's end cannot be read. Returns an empty text, or why it cannot be tested.
    std::string Open(const std::string& name);

    // Reads `count` blocks (at most kMaxStep) from `first` on, past the page cache where the
    // system allows. A read that fails is repeated up to `retries` times, then block by block, so
    // that the failure names the block. What was read is thrown away.
    std::optional<ReadFailure> Read(std::uint64_t first, std::uint64_t count,
                                    std::uint64_t retries);

    // From now on reads of that block fail.
    void PretendBad(std::uint64_t block) { bad_block_ = block; }

    std::uint64_t blocks() const { return blocks_; }

    // For the disk information record; serial number and firmware are empty where the system
    // does not know them, and for images.
    DiskInfo Info(bool ide) const;

 private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    // As pread, in blocks. 0 is the end of the data.
    std::int64_t ReadSome(std::uint64_t first, std::uint64_t count);
    // One attempt; moves *first and *count on over what could be read. The reason of a failure,
    // or empty.
    std::string ReadOnce(std::uint64_t* first, std::uint64_t* count);

    std::string name_;
    bool image_ = false;
    int fd_ = -1;
    bool direct_ = false;
    std::uint64_t blocks_ = 0;
    std::optional<std::uint64_t> bad_block_;
    std::unique_ptr<void, Free> buffer_;
};

}  // namespace testprog

#endif  // TESTPROG_HDD_DEVICE_H_
