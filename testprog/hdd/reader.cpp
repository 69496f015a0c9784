#include "hdd/reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace testprog {

namespace {

constexpr double kSlow = 1;
constexpr int kMostNotes = 16;

}  // namespace

Reader::Reader(Disk& disk, Run& run, uint64_t retries, bool alike)
    : disk_(disk),
      run_(run),
      retries_(retries),
      pace_(alike),
      waits_(open("/proc/self/schedstat", O_RDONLY | O_CLOEXEC)) {}

double Reader::Waited() const {
    // Nanoseconds on a processor and waiting for one.
    std::array<char, 128> text = {};
    if (pread(waits_.fd, text.data(), text.size() - 1, 0) <= 0) return 0;
    char* second = nullptr;
    std::strtoull(text.data(), &second, 10);
    return static_cast<double>(std::strtoull(second, nullptr, 10)) / 1e9;
}

void Reader::NoteSlow(uint64_t first, uint64_t count, double seconds) {
    if (seconds < kSlow || ++slow_ > kMostNotes) return;
    run_.Note(Format("slow read: %.1f s for %llu blocks at block 0x%08llx", seconds,
                     static_cast<unsigned long long>(count),
                     static_cast<unsigned long long>(first)));
}

ReadResult Reader::ReadPiece(uint64_t first, uint64_t count) {
    using End = ReadResult::End;
    const bool busy = disk_.OthersBusy();
    const double start = Now() - Waited();
    ReadResult read = disk_.Read(first, count, retries_, [this] { return run_.Stop(); });
    const double seconds = Now() - Waited() - start;
    if (read.end == End::kAgain) {
        run_.Note(Format("read again with success at block 0x%08llx: %s",
                         static_cast<unsigned long long>(read.block), read.reason.c_str()));
    }
    if (read.end != End::kGood) return read;
    NoteSlow(first, count, seconds);
    run_.Rest(pace_.RestAfter(std::max(seconds, 0.0), count, busy));
    return read;
}

ReadResult Reader::Read(uint64_t first, uint64_t count) {
    ReadResult read;
    for (;;) {
        const uint64_t size = std::min(count, kPiece);
        read = ReadPiece(first, size);
        first += size;
        count -= size;
        if (count == 0 ||
            (read.end != ReadResult::End::kGood && read.end != ReadResult::End::kAgain))
            return read;
        if (run_.Stop()) {
            read.end = ReadResult::End::kStopped;
            return read;
        }
    }
}

}  // namespace testprog
