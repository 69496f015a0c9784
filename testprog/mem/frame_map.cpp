#include "mem/frame_map.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cstdio>
#include <ctime>
#include <set>

#include "lib/record.h"

namespace testprog {

namespace {

constexpr int64_t kMonth = int64_t{30} * 24 * 3600;
constexpr off_t kHeader = 4096;
constexpr uint64_t kPieceFrames = uint64_t{8} * 4096;
constexpr uint64_t kMaxPieces = uint64_t{1} << 24;  // for frames up to the 2 PiB

int OpenMap(const std::string& directory) {
    if (directory.empty()) return -1;
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    return open((directory + "/memtest_frames").c_str(), kFlags, 0644);
}

bool WriteAt(int fd, const void* bytes, size_t size, off_t at) {
    return pwrite(fd, bytes, size, at) == static_cast<ssize_t>(size);
}

}  // namespace

FrameMap::FrameMap(const std::string& directory, uint64_t frames, int64_t now,
                   const std::function<bool()>& stop)
    : file_(OpenMap(directory)), frames_(frames), since_(now) {
    struct stat status = {};
    if (file_.fd < 0) return;
    if (fstat(file_.fd, &status) == 0 && S_ISREG(status.st_mode) && LockInTime(file_.fd, stop)) {
        Load(now);
    } else {
        close(file_.fd);
        file_.fd = -1;
    }
}

void FrameMap::Load(int64_t now) {
    char header[128] = {};
    long long since = 0;
    unsigned long long frames = 0;
    const bool known =
        pread(file_.fd, header, sizeof header - 1, 0) > 0 &&
        // NOLINTNEXTLINE(cert-err34-c): a number that does not fit is one that does not match
        std::sscanf(header, "memtest frames since=%lld frames=%llu\n", &since, &frames) == 2 &&
        frames == frames_ && since <= now && since > now - kMonth;
    if (!known) {
        static_cast<void>(!ftruncate(file_.fd, 0) || !SaveHeader());
        return;
    }
    since_ = since;
    LoadPieces();
}

void FrameMap::LoadPieces() {
    constexpr off_t kSize = sizeof(Piece);
    // No file of this machine has more; a damaged one must not hold the test up.
    uint64_t left = 4 * (frames_ / kPieceFrames + 64);
    off_t at = kHeader;
    while (left-- > 0 && (at = lseek(file_.fd, at, SEEK_DATA)) >= kHeader) {
        const auto number = static_cast<uint64_t>((at - kHeader) / kSize);
        at = kHeader + static_cast<off_t>(number) * kSize;
        Piece piece = {};
        if (number >= kMaxPieces || pread(file_.fd, piece.data(), piece.size(), at) <= 0) break;
        at += kSize;
        size_t count = 0;
        for (const unsigned char byte : piece) count += std::bitset<8>(byte).count();
        if (count == 0) continue;
        tested_ += count;
        pieces_[number] = piece;
    }
}

bool FrameMap::SaveHeader() const {
    std::string header = Format(
        "memtest frames since=%lld frames=%llu\ntested=%llu\n", static_cast<long long>(since_),
        static_cast<unsigned long long>(frames_), static_cast<unsigned long long>(tested_));
    header.resize(kHeader);
    return WriteAt(file_.fd, header.data(), header.size(), 0);
}

bool FrameMap::Tested(uint64_t frame) const {
    const auto piece = pieces_.find(frame / kPieceFrames);
    return piece != pieces_.end() &&
           ((piece->second.at(frame % kPieceFrames / 8) >> (frame % 8)) & 1U) != 0;
}

size_t FrameMap::CountTested(const std::vector<uint64_t>& frames) const {
    return static_cast<size_t>(std::count_if(frames.begin(), frames.end(),
                                             [this](uint64_t frame) { return Tested(frame); }));
}

bool FrameMap::Mark(const std::vector<uint64_t>& frames) {
    std::set<uint64_t> changed;
    for (const uint64_t frame : frames) {
        const uint64_t number = frame / kPieceFrames;
        if (number >= kMaxPieces || Tested(frame)) continue;
        pieces_[number].at(frame % kPieceFrames / 8) |=
            static_cast<unsigned char>(1U << (frame % 8));
        changed.insert(number);
        ++tested_;
    }
    if (file_.fd < 0) return true;
    bool saved = true;
    for (const uint64_t number : changed) {
        const Piece& piece = pieces_[number];
        const auto at = kHeader + static_cast<off_t>(number * piece.size());
        saved = WriteAt(file_.fd, piece.data(), piece.size(), at) && saved;
    }
    return SaveHeader() && saved;
}

std::string FrameMap::Summary() const {
    const auto begun = static_cast<time_t>(since_);
    tm local = {};
    localtime_r(&begun, &local);
    const uint64_t percent = frames_ == 0 ? 0 : std::min(tested_, frames_) * 100 / frames_;
    return Format("%llu %% of the memory tested since %04d-%02d-%02d",
                  static_cast<unsigned long long>(percent), local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday);
}

}  // namespace testprog
