#include "mem/patterns.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace testprog {

namespace {

constexpr size_t kWord = sizeof(uint64_t);
// What is swept between two looks for a cancel, in bytes.
constexpr size_t kSlice = 64 << 10;
constexpr size_t kBlock = 4096;  // bytes

// A part of the area, in words.
struct Range {
    size_t first;
    size_t count;
};

Range Lower(const Area& area) { return {0, area.count / 2}; }
Range Upper(const Area& area) { return {area.count / 2, area.count / 2}; }
Range All(const Area& area) { return {0, area.count}; }

// Calls `step`, which is good for `size` bytes, for every i below count, upwards; ends early when
// it is told to stop or `step` returns a mismatch, which it returns.
template <typename Step>
Finding Sweep(const Area& area, size_t count, size_t size, const Step& step) {
    for (size_t slice = 0; slice < count; slice += kSlice / size) {
        const size_t end = std::min(count, slice + kSlice / size);
        for (size_t i = slice; i < end; ++i) {
            if (Finding finding = step(i)) return finding;
        }
        if (area.stop()) break;
    }
    return std::nullopt;
}

// `value` gives the word at a place counted from the start of the range.
template <typename Value>
void Fill(const Area& area, Range range, const Value& value) {
    Sweep(area, range.count, kWord, [&](size_t i) {
        area.words[range.first + i] = value(i);
        return Finding();
    });
}

Finding Compare(const Area& area, size_t i, uint64_t expected) {
    const uint64_t got = area.words[i];
    if (got == expected) return std::nullopt;
    return Mismatch{i * kWord, expected, got};
}

template <typename Value>
Finding Verify(const Area& area, Range range, const Value& value) {
    return Sweep(area, range.count, kWord,
                 [&](size_t i) { return Compare(area, range.first + i, value(i)); });
}

// Stands where memory is first read back after it was written.
void SpoilIfAsked(const Area& area, Range range) {
    if (!area.spoil) return;
    const size_t i = range.first + range.count / 3;
    area.words[i] = area.words[i] ^ 0x10U;
}

unsigned char* Bytes(const Area& area, Range range) {
    return reinterpret_cast<unsigned char*>(const_cast<uint64_t*>(area.words + range.first));
}

// Moves the whole of one half to the other block by block; the last may be shorter. The fence
// keeps the compiler from joining or leaving out moves.
void MoveBlocks(const Area& area, Range to, Range from) {
    unsigned char* target = Bytes(area, to);
    const unsigned char* source = Bytes(area, from);
    const size_t size = from.count * kWord;
    Sweep(area, (size + kBlock - 1) / kBlock, kBlock, [&](size_t i) {
        const size_t at = i * kBlock;
        std::memcpy(target + at, source + at, std::min(kBlock, size - at));
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return Finding();
    });
}

// Fills the upper half from the lower by one load and one store for each element. Volatile
// accesses are made as they stand and in their order, whatever their types.
template <typename Element>
Finding MoveElements(const Area& area, uint64_t pattern) {
    const auto value = [pattern](size_t i) { return pattern ^ (uint64_t{i} * 0x0101010101010101); };
    Fill(area, Lower(area), value);
    Fill(area, Upper(area), [pattern](size_t) { return ~pattern; });
    auto* target = reinterpret_cast<volatile Element*>(area.words + Upper(area).first);
    const auto* source = reinterpret_cast<const volatile Element*>(area.words);
    Sweep(area, Lower(area).count * (kWord / sizeof(Element)), sizeof(Element),
          [target, source](size_t i) {
              target[i] = source[i];
              return Finding();
          });
    if (area.stop()) return std::nullopt;
    SpoilIfAsked(area, Upper(area));
    return Verify(area, Upper(area), value);
}

}  // namespace

Finding BlockMoves(const Area& area, uint64_t pattern) {
    // The first word of a block is its place, so that a block in a wrong place shows.
    const auto value = [pattern](size_t i) {
        return i % (kBlock / kWord) == 0 ? uint64_t{i} : pattern;
    };
    Fill(area, Lower(area), value);
    MoveBlocks(area, Upper(area), Lower(area));
    if (area.stop()) return std::nullopt;
    SpoilIfAsked(area, Upper(area));
    if (Finding finding = Verify(area, Upper(area), value)) return finding;
    Fill(area, Lower(area), [pattern](size_t) { return ~pattern; });
    MoveBlocks(area, Lower(area), Upper(area));
    if (area.stop()) return std::nullopt;
    return Verify(area, Lower(area), value);
}

Finding ElementMoves(const Area& area, uint64_t pattern) {
    using Moves = Finding(const Area& area, uint64_t pattern);
    constexpr Moves* kMoves[] = {MoveElements<uint8_t>, MoveElements<uint16_t>,
                                 MoveElements<uint32_t>, MoveElements<uint64_t>};
    for (Moves* const moves : kMoves) {
        Finding finding = moves(area, pattern);
        if (finding || area.stop()) return finding;
    }
    return std::nullopt;
}

Finding WalkingBits(const Area& area, unsigned positions) {
    // Divided by 8 ones this is 0x0101010101010101.
    const uint64_t one = positions == 64 ? 1 : UINT64_MAX / ((1ULL << positions) - 1);
    for (unsigned position = 0; position < 2 * positions; ++position) {
        const uint64_t ones = one << (position / 2);
        const uint64_t word = position % 2 == 0 ? ones : ~ones;
        const auto value = [word](size_t) { return word; };
        Fill(area, All(area), value);
        if (area.stop()) return std::nullopt;
        SpoilIfAsked(area, All(area));
        if (Finding finding = Verify(area, All(area), value)) return finding;
    }
    return std::nullopt;
}

Finding AddressInAddress(const Area& area) {
    for (const uint64_t flip : {uint64_t{0}, ~uint64_t{0}}) {
        const auto value = [&area, flip](size_t i) {
            return reinterpret_cast<uintptr_t>(area.words + i) ^ flip;
        };
        Fill(area, All(area), value);
        if (area.stop()) return std::nullopt;
        SpoilIfAsked(area, All(area));
        if (Finding finding = Verify(area, All(area), value)) return finding;
    }
    return std::nullopt;
}

Finding MovingInversions(const Area& area, uint64_t pattern) {
    Fill(area, All(area), [pattern](size_t) { return pattern; });
    if (area.stop()) return std::nullopt;
    SpoilIfAsked(area, All(area));
    const auto turn = [&area](size_t i, uint64_t expected) {
        Finding finding = Compare(area, i, expected);
        area.words[i] = ~expected;
        return finding;
    };
    Finding finding = Sweep(area, area.count, kWord, [&](size_t i) { return turn(i, pattern); });
    if (finding || area.stop()) return finding;
    finding = Sweep(area, area.count, kWord,
                    [&](size_t i) { return turn(area.count - 1 - i, ~pattern); });
    if (finding || area.stop()) return finding;
    return Verify(area, All(area), [pattern](size_t) { return pattern; });
}

}  // namespace testprog
