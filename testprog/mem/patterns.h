// The memory tests: sweeps over one area of memory that write, read back and compare.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

namespace testprog {

// A word that did not read back as it was written; the offset is in bytes from the area's start.
struct Mismatch {
    size_t offset;
    uint64_t expected;
    uint64_t got;
};

// The memory under test. Every access is a real one: the compiler leaves none out.
struct Area {
    volatile uint64_t* words;
    size_t count;  // even
    // Asked after every slice of a sweep; true ends the test early, without a mismatch.
    std::function<bool()> stop;
    // Flips one bit of what was written before it is first read back, for a look at a failure.
    bool spoil;
};

using Finding = std::optional<Mismatch>;

// Block moves from the area's lower half to the upper and back, compared after each.
Finding BlockMoves(const Area& area, uint64_t pattern);

// Moves element by element, of 1, 2, 4 and 8 bytes, of a pattern that depends on the address.
Finding ElementMoves(const Area& area, uint64_t pattern);

// A single one and a single zero in every word, at each of `positions` (8, 16, 32 or 64)
// places in turn: with 8 the places repeat in every byte, and so on.
Finding WalkingBits(const Area& area, unsigned positions);

// Every word holds its own address, then its complement.
Finding AddressInAddress(const Area& area);

// The pattern is turned into its complement word by word upwards, and back downwards, each word
// compared before it is turned.
Finding MovingInversions(const Area& area, uint64_t pattern);

}  // namespace testprog
