// Reading a disk on behalf of a run: at the pace that leaves others their share, with a word for
// what was worth one.
#pragma once

#include <cstdint>

#include "hdd/device.h"
#include "hdd/pace.h"
#include "lib/run.h"

namespace testprog {

class Reader {
 public:
    // `retries` is how often a failed read is repeated; for `alike` see Pace.
    Reader(Disk& disk, Run& run, uint64_t retries, bool alike);

    // Reads as Disk::Read does, asks Run::Stop() after each piece and rests as long as Pace says.
    // Notes a read that worked when it was repeated, and the first sixteen that took longer than a
    // second. kStopped where the run stopped before all was read.
    ReadResult Read(uint64_t first, uint64_t count);

 private:
    ReadResult ReadPiece(uint64_t first, uint64_t count);
    // Seconds that this process has waited for a processor; 0 where the kernel does not tell.
    double Waited() const;
    void NoteSlow(uint64_t first, uint64_t count, double seconds);

    Disk& disk_;
    Run& run_;
    const uint64_t retries_;
    Pace pace_;
    Descriptor waits_;
    int slow_ = 0;
};

}  // namespace testprog
