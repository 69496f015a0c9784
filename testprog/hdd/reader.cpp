#include "hdd/reader.h"

#include <algorithm>

namespace testprog {

namespace {

constexpr double kSlow = 1;
constexpr int kMostNotes = 16;

}  // namespace

void Reader::NoteSlow(uint64_t first, uint64_t count, double seconds) {
    if (seconds < kSlow || ++slow_ > kMostNotes) return;
    run_.Note(Format("slow read: %.1f s for %llu blocks at block 0x%08llx", seconds,
                     static_cast<unsigned long long>(count),
                     static_cast<unsigned long long>(first)));
}

ReadResult Reader::ReadPiece(uint64_t first, uint64_t count) {
    using End = ReadResult::End;
    const bool busy = disk_.OthersBusy();
    const double start = Now();
    const ReadResult read = disk_.Read(first, count, retries_, [this] { return run_.Stop(); });
    const double seconds = Now() - start;
    if (read.end == End::kAgain) {
        run_.Note(Format("read again with success at block 0x%08llx: %s",
                         static_cast<unsigned long long>(read.block), read.reason.c_str()));
    }
    if (read.end != End::kGood) return read;
    NoteSlow(first, count, seconds);
    run_.Rest(pace_.RestAfter(seconds, count, busy));
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
