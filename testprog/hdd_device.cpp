#include "hdd_device.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

#include "options.h"

namespace testprog {

namespace {

constexpr std::size_t kAlignment = 4096;

struct Image {
    std::string file;
    std::optional<std::uint64_t> blocks;
};

std::optional<Image> FindImage(const std::string& name) {
    const char* variable = std::getenv("HDDTEST_IMAGES");
    std::string_view list = variable == nullptr ? "" : variable;
    while (!list.empty()) {
        const std::string_view entry = list.substr(0, list.find(':'));
        list.remove_prefix(std::min(list.size(), entry.size() + 1));
        if (entry.substr(0, name.size() + 1) != name + "=") continue;
        const std::string_view file = entry.substr(name.size() + 1);
        const std::size_t mark = file.rfind('@');
        if (mark == std::string_view::npos) return Image{std::string(file), std::nullopt};
        return Image{std::string(file.substr(0, mark)), ParseNumber(file.substr(mark + 1))};
    }
    return std::nullopt;
}

// A file of sysfs as one word; empty where there is none.
std::string ReadAttribute(const std::string& path, std::size_t skip) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    text = Printable(text.substr(std::min(skip, text.size())));
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

}  // namespace

Disk::~Disk() {
    if (fd_ >= 0) close(fd_);
}

std::string Disk::Open(const std::string& name) {
    const std::optional<Image> image = FindImage(name);
    name_ = name;
    image_ = image.has_value();
    const std::string& path = image ? image->file : name;
    // Not to wait for the other end should the name be a pipe's.
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    direct_ = true;
    fd_ = open(path.c_str(), kFlags | O_DIRECT);
    if (fd_ < 0 && errno == EINVAL) {
        direct_ = false;
        fd_ = open(path.c_str(), kFlags);
    }
    struct stat status {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        return Format("cannot open %s: %s", path.c_str(), std::strerror(errno));
    }
    if (image ? !S_ISREG(status.st_mode) : !S_ISBLK(status.st_mode)) {
        return path + (image ? " is no image file" : " is no disk");
    }
    const off_t size = lseek(fd_, 0, SEEK_END);
    if (size < 0) return Format("cannot size %s: %s", path.c_str(), std::strerror(errno));
    blocks_ = static_cast<std::uint64_t>(size) / kBlockSize;
    if (image && image->blocks) blocks_ = *image->blocks;
    if (blocks_ == 0) return path + " has no blocks";
    buffer_.reset(std::aligned_alloc(kAlignment, kMaxStep * kBlockSize));
    return buffer_ ? "" : "no memory for a read";
}

std::int64_t Disk::ReadSome(std::uint64_t first, std::uint64_t count) {
    if (bad_block_ && first <= *bad_block_ && *bad_block_ < first + count) {
        count = *bad_block_ - first;
        if (count == 0) {
            errno = EIO;
            return -1;
        }
    }
    const auto offset = static_cast<off_t>(first * kBlockSize);
    const std::size_t size = count * kBlockSize;
    if (!direct_) posix_fadvise(fd_, offset, static_cast<off_t>(size), POSIX_FADV_DONTNEED);
    const ssize_t got = pread(fd_, buffer_.get(), size, offset);
    if (got < 0 && errno == EINVAL && direct_) {
        // The device wants larger blocks than the step has, or does not read directly after all.
        direct_ = fcntl(fd_, F_SETFL, 0) != 0;
        if (!direct_) return ReadSome(first, count);
        errno = EINVAL;
    }
    return got < 0 ? -1 : got / static_cast<ssize_t>(kBlockSize);
}

std::string Disk::ReadOnce(std::uint64_t* first, std::uint64_t* count) {
    while (*count > 0) {
        const std::int64_t got = ReadSome(*first, *count);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::strerror(errno);
        if (got == 0) return "end of data";
        *first += static_cast<std::uint64_t>(got);
        *count -= static_cast<std::uint64_t>(got);
    }
    return {};
}

std::optional<ReadFailure> Disk::Read(std::uint64_t first, std::uint64_t count,
                                      std::uint64_t retries) {
    std::string reason = ReadOnce(&first, &count);
    for (std::uint64_t i = 0; i < retries && !reason.empty(); ++i) {
        reason = ReadOnce(&first, &count);
    }
    // A long read may fail as a whole for one bad block anywhere in it.
    while (!reason.empty() && count > 0) {
        std::uint64_t block = first;
        std::uint64_t one = 1;
        reason = ReadOnce(&block, &one);
        for (std::uint64_t i = 0; i < retries && !reason.empty(); ++i) {
            reason = ReadOnce(&block, &one);
        }
        if (!reason.empty()) return ReadFailure{first, reason};
        ++first;
        --count;
        if (count > 0) reason = ReadOnce(&first, &count);
    }
    return std::nullopt;
}

DiskInfo Disk::Info(bool ide) const {
    DiskInfo info;
    info.capacity = static_cast<std::uint32_t>(std::min<std::uint64_t>(blocks_, UINT32_MAX));
    info.bytes_per_sector = static_cast<std::uint16_t>(kBlockSize);
    info.bus_type = image_ ? 0 : ide ? 2 : 1;
    if (image_) return info;
    const std::string directory = "/sys/block/" + name_.substr(name_.rfind('/') + 1);
    constexpr std::size_t kPageHeader = 4;  // of the SCSI page that holds the serial number
    info.serial_number = ReadAttribute(directory + "/device/vpd_pg80", kPageHeader);
    if (info.serial_number.empty()) info.serial_number = ReadAttribute(directory + "/serial", 0);
    info.firmware = ReadAttribute(directory + "/device/rev", 0);
    return info;
}

}  // namespace testprog
