// How fast a disk test may go on beside the work that the disk has to do for others.
//
// The lowest priority is not enough: most schedulers pass it over, and what a disk has begun to
// read it reads to the end, so that a test that reads without a pause leaves others a third of
// their rate. The test therefore rests after its reads: the longer, the more often it finds others
// at work. Where they always are, its reads take a hundredth of the time.
#pragma once

#include <cstdint>

namespace testprog {

class Pace {
 public:
    // `alike`: the reads follow each other through the disk, so that one that takes much longer
    // than the best of them has waited for others, even where the kernel does not see them (it may
    // be a guest beside others). Reads at random places differ by themselves.
    explicit Pace(bool alike) : alike_(alike) {}

    // Takes note of a read of `blocks` blocks that took `seconds`, and whether others were busy
    // when it began. Returns the seconds to rest before the next one, 0 while nobody is disturbed.
    double RestAfter(double seconds, uint64_t blocks, bool others_busy);

 private:
    const bool alike_;
    double best_ = 0;  // seconds a block
    // How often, of the last reads, others were busy and the read itself took much longer.
    double busy_ = 0;
    double hindered_ = 0;
};

}  // namespace testprog
