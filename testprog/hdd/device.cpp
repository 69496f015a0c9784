#include "hdd/device.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "lib/file.h"
#include "lib/options.h"

namespace testprog {

namespace {

constexpr uint64_t kMaxSector = 0x80;  // blocks of the largest sector that disks have
constexpr size_t kAlignment = kMaxSector * kBlockSize;

struct Image {
    std::string file;
    std::optional<uint64_t> blocks;
};

std::optional<Image> FindImage(const std::string& name) {
    const std::string variable = Environment("HDDTEST_IMAGES");
    std::string_view list = variable;
    while (!list.empty()) {
        const std::string_view entry = list.substr(0, list.find(':'));
        list.remove_prefix(std::min(list.size(), entry.size() + 1));
        if (entry.substr(0, name.size() + 1) != name + "=") continue;
        const std::string_view file = entry.substr(name.size() + 1);
        const size_t mark = file.rfind('@');
        if (mark != std::string_view::npos) {
            const auto blocks = ParseNumber(file.substr(mark + 1));
            if (blocks) return Image{std::string(file.substr(0, mark)), blocks};
        }
        return Image{std::string(file), std::nullopt};
    }
    return std::nullopt;
}

// Opens the counts of what is under way on a device; -1 where there are none. A partition's own
// counts leave out what goes on beside it on the disk.
int OpenInFlight(dev_t device) {
    const std::string entry = Format("/sys/dev/block/%u:%u/", major(device), minor(device));
    const bool part = access((entry + "partition").c_str(), F_OK) == 0;
    return open((entry + (part ? "../inflight" : "inflight")).c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

uint64_t AddressUnit(uint64_t blocks) {
    uint64_t unit = 1;
    while ((blocks - 1) / unit >= UINT32_MAX) unit *= 2;
    return unit;
}

Disk::~Disk() {
    if (fd_ >= 0) close(fd_);
}

Outcome Disk::Open(const std::string& name) {
    const std::optional<Image> image = FindImage(name);
    name_ = name;
    image_ = image.has_value();
    const std::string& path = image ? image->file : name;
    const auto skip = [](const std::string& reason) { return Outcome{EndCode::kSkip, reason}; };
    // Not to wait for the other end should the name be a pipe's.
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    direct_ = true;
    fd_ = open(path.c_str(), kFlags | O_DIRECT);
    if (fd_ < 0 && errno == EINVAL) {
        direct_ = false;
        fd_ = open(path.c_str(), kFlags);
    }
    struct stat status = {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        return skip(Format("cannot open %s: %s", path.c_str(), std::strerror(errno)));
    }
    if (image ? !S_ISREG(status.st_mode) : !S_ISBLK(status.st_mode)) {
        return skip(path + (image ? " is no image file" : " is no disk"));
    }
    const off_t size = lseek(fd_, 0, SEEK_END);
    int sector = kBlockSize;
    if (size < 0 || (!image && ioctl(fd_, BLKSSZGET, &sector) != 0)) {
        return skip(Format("cannot size %s: %s", path.c_str(), std::strerror(errno)));
    }
    sector_ = static_cast<uint64_t>(sector) / kBlockSize;
    if (sector_ == 0 || sector_ > kMaxSector) return skip(path + " has sectors of a strange size");
    blocks_ = static_cast<uint64_t>(size) / kBlockSize / sector_ * sector_;
    if (image && image->blocks) blocks_ = *image->blocks;
    if (blocks_ == 0) return skip(path + " has no blocks");
    // With room for the rest of the first and the last sector.
    buffer_.reset(std::aligned_alloc(kAlignment, (kPiece + 2 * kMaxSector) * kBlockSize));
    if (!buffer_) return {EndCode::kAbort, "no memory for a read"};
    in_flight_.fd = OpenInFlight(image ? status.st_dev : status.st_rdev);
    return {};
}

ssize_t Disk::ReadSectors(off_t offset, size_t size) {
    // Only whole pages are dropped from the page cache.
    const off_t page_size = sysconf(_SC_PAGESIZE);
    const off_t page = offset / page_size * page_size;
    const off_t end = offset + static_cast<off_t>(size) + page_size - 1;
    const auto drop = [&] {
        if (direct_) return;
        posix_fadvise(fd_, page, end / page_size * page_size - page, POSIX_FADV_DONTNEED);
    };
    drop();
    const ssize_t got = pread(fd_, buffer_.get(), size, offset);
    drop();  // leaves errno alone
    if (got < 0 && errno == EINVAL && image_ && direct_ && fcntl(fd_, F_SETFL, 0) == 0) {
        // The file system of the image wants larger blocks, or does not read directly after all.
        direct_ = false;
        return ReadSectors(offset, size);
    }
    return got;
}

int64_t Disk::ReadSome(uint64_t first, uint64_t count) {
    if (bad_block_ && first <= *bad_block_ && *bad_block_ < first + count) {
        count = *bad_block_ - first;
        if (count == 0) {
            errno = EIO;
            return -1;
        }
    }
    const uint64_t ahead = first % sector_;
    const uint64_t whole = (ahead + count + sector_ - 1) / sector_ * sector_;
    const ssize_t got =
        ReadSectors(static_cast<off_t>((first - ahead) * kBlockSize), whole * kBlockSize);
    if (got < 0) return -1;
    const uint64_t blocks = static_cast<uint64_t>(got) / kBlockSize;
    return static_cast<int64_t>(std::min(std::max(blocks, ahead) - ahead, count));
}

ReadResult Disk::Read(uint64_t first, uint64_t count, uint64_t retries,
                      const std::function<bool()>& stop) {
    using End = ReadResult::End;
    ReadResult result;
    uint64_t failures = 0;  // in a row
    while (count > 0) {
        const uint64_t one = sector_ - first % sector_;
        const bool single = Suspect(first);
        const uint64_t size = std::min(count, single ? one : kPiece);
        const int64_t got = ReadSome(first, size);
        if (got > 0) {
            first += static_cast<uint64_t>(got);
            count -= static_cast<uint64_t>(got);
            failures = 0;
        } else {
            const bool lasting = single || (size <= one && failures == retries);
            result = {lasting ? End::kFailed : End::kAgain, first,
                      got < 0 ? std::strerror(errno) : "end of data"};
            if (lasting) break;
            if (failures++ == retries) {
                suspects_ = first;
                suspects_end_ = first + size;
            }
        }
        if (count > 0 && stop()) {
            result.end = End::kStopped;
            break;
        }
    }
    return result;
}

bool Disk::OthersBusy() const {
    std::array<char, 64> counts = {};  // of reads and of writes
    if (pread(in_flight_.fd, counts.data(), counts.size() - 1, 0) <= 0) return false;
    return std::any_of(counts.begin(), counts.end(), [](char c) { return c >= '1' && c <= '9'; });
}

DiskInfo Disk::Info(bool ide) const {
    DiskInfo info;
    info.capacity = static_cast<uint32_t>(std::min<uint64_t>(blocks_, UINT32_MAX));
    info.bytes_per_sector = static_cast<uint16_t>(kBlockSize);
    info.bus_type = image_ ? 0 : ide ? 2 : 1;
    if (image_) return info;
    const std::string directory = "/sys/block/" + name_.substr(name_.rfind('/') + 1);
    constexpr size_t kPageHeader = 4;  // of the SCSI page that holds the serial number
    info.serial_number = ReadAttribute(directory + "/device/vpd_pg80", kPageHeader);
    if (info.serial_number.empty()) info.serial_number = ReadAttribute(directory + "/serial");
    info.firmware = ReadAttribute(directory + "/device/rev");
    return info;
}

}  // namespace testprog
