// The memory tests: sweeps over memory that write, read back and compare. They are templates, so
// that the same sweeps run over memory whose faults are known.
//
// `Memory` has
//   size_t count() const                    words; a multiple of kLine
//   uint64_t Read(size_t i)
//   void Write(size_t i, uint64_t value)
//   void MoveBlock(size_t to, size_t from, size_t count)
//   void Settle(size_t first, size_t count)  what was written or moved by block leaves the caches
//   void Move<Element>(size_t i, size_t from)  the i-th Element becomes that at `from`
//   void Evict(size_t first, size_t count)  so does anything
//   uint64_t Address(size_t i) const
//   bool Stop()                             asked after every slice; true ends the test early
//   void Spoil(size_t i)                    for a look at a failure: called where memory is about
//                                           to be read back for the first time
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace testprog {

// A word that did not read back as it was written; `again` is what it was when it was read once
// more. The offset is in bytes from the area's start.
struct Mismatch {
    size_t offset;
    uint64_t expected;
    uint64_t got;
    uint64_t again;
};
using Finding = std::optional<Mismatch>;

constexpr size_t kWord = sizeof(uint64_t);
constexpr size_t kLine = 8;            // words that travel together between caches and memory
constexpr size_t kBlock = 512;         // words
constexpr size_t kSliceWords = 65536;  // between two looks for a cancel

// Returns the word that belongs at a place: no two places of an area have the same.
inline uint64_t WordAt(size_t i, uint64_t pattern) {
    const uint64_t mixed = (uint64_t{i} + 1) * 0x9e3779b97f4a7c15;
    return pattern ^ mixed ^ (mixed >> 32);
}

template <typename Memory>
class Sweeps {
 public:
    explicit Sweeps(Memory& memory) : memory_(memory) {}

    // Moves blocks from the lower half to the upper and back, and compares after each; then
    // inverts every word upwards and back downwards. Each word depends on its place.
    Finding BlockMoves(uint64_t pattern) {
        const auto value = [pattern](size_t i) { return WordAt(i, pattern); };
        const size_t half = Half();
        Fill({0, half}, value);
        MoveBlocks({half, half}, 0);
        if (memory_.Stop()) return {};
        memory_.Spoil(half + half / 3);
        if (Finding finding = Verify({half, half}, value)) return finding;
        Fill({0, half}, [value](size_t i) { return ~value(i); });
        MoveBlocks({0, half}, half);
        if (memory_.Stop()) return {};
        Finding finding = Verify({0, half}, value);
        return finding || memory_.Stop() ? finding : InvertWords(pattern);
    }

    // Fills the upper half from the lower element by element, of 1, 2, 4 and 8 bytes; then inverts
    // every word as above.
    Finding ElementMoves(uint64_t pattern) {
        Finding finding = MoveElements<uint8_t>(pattern);
        if (!finding && !memory_.Stop()) finding = MoveElements<uint16_t>(pattern);
        if (!finding && !memory_.Stop()) finding = MoveElements<uint32_t>(pattern);
        if (!finding && !memory_.Stop()) finding = MoveElements<uint64_t>(pattern);
        return finding || memory_.Stop() ? finding : InvertWords(pattern);
    }

    // Puts a single one and a single zero into every word, at each of `positions` (8, 16, 32 or
    // 64) places in turn: with 8 the places repeat in every byte, and so on.
    Finding WalkingBits(unsigned positions) {
        // Divided by 8 ones this is 0x0101010101010101.
        const uint64_t one = positions == 64 ? 1 : UINT64_MAX / ((1ULL << positions) - 1);
        for (unsigned position = 0; position < 2 * positions; ++position) {
            const uint64_t ones = one << (position / 2);
            const uint64_t word = position % 2 == 0 ? ones : ~ones;
            if (Finding finding = FillAndVerify([word](size_t) { return word; })) return finding;
        }
        return {};
    }

    // Every word holds its own address, then its complement.
    Finding AddressInAddress() {
        for (const uint64_t flip : {uint64_t{0}, ~uint64_t{0}}) {
            const auto value = [this, flip](size_t i) { return memory_.Address(i) ^ flip; };
            if (Finding finding = FillAndVerify(value)) return finding;
        }
        return {};
    }

    // Turns words into their complements upwards, line by line, and back downwards; compares each
    // before it is turned. Either all words are the pattern, or each depends on its place.
    Finding InvertPattern(uint64_t pattern) {
        return MovingInversions([pattern](size_t) { return pattern; });
    }
    Finding InvertWords(uint64_t pattern) {
        return MovingInversions([pattern](size_t i) { return WordAt(i, pattern); });
    }

 private:
    struct Range {
        size_t first;
        size_t count;
    };

    size_t Half() const { return memory_.count() / 2; }
    Range All() const { return {0, memory_.count()}; }

    template <typename Value>
    Finding MovingInversions(const Value& value) {
        const auto inverted = [value](size_t i) { return ~value(i); };
        Fill(All(), value);
        if (memory_.Stop()) return {};
        memory_.Spoil(memory_.count() / 3);
        Finding finding = Turn(value, true);
        if (!finding && !memory_.Stop()) finding = Turn(inverted, false);
        return finding || memory_.Stop() ? finding : Verify(All(), value);
    }

    // Calls `step` for slices of `count` things, each with its first and its number of them; ends
    // early when it is told to stop or `step` returns a mismatch, which it returns.
    template <typename Step>
    Finding EachSlice(size_t count, size_t slice, const Step& step) {
        for (size_t first = 0; first < count; first += slice) {
            if (Finding finding = step(first, std::min(slice, count - first))) return finding;
            if (memory_.Stop()) break;
        }
        return {};
    }

    // `value` gives the word at a place counted from the start of the range.
    template <typename Value>
    void Fill(Range range, const Value& value) {
        EachSlice(range.count, kSliceWords, [&](size_t first, size_t count) {
            for (size_t i = first; i < first + count; ++i) memory_.Write(range.first + i, value(i));
            memory_.Settle(range.first + first, count);
            return Finding();
        });
    }

    template <typename Value>
    Finding Verify(Range range, const Value& value) {
        return EachSlice(range.count, kSliceWords, [&](size_t first, size_t count) {
            for (size_t i = first; i < first + count; ++i) {
                const uint64_t expected = value(i);
                const uint64_t got = memory_.Read(range.first + i);
                if (got != expected) return Wrong(range.first + i, expected, got);
            }
            return Finding();
        });
    }

    template <typename Value>
    Finding FillAndVerify(const Value& value) {
        Fill(All(), value);
        if (memory_.Stop()) return {};
        memory_.Spoil(memory_.count() / 3);
        return Verify(All(), value);
    }

    // Line by line, the lines and their words upwards or downwards.
    template <typename Value>
    Finding Turn(const Value& value, bool upwards) {
        const size_t total = memory_.count();
        return EachSlice(total, kSliceWords, [&](size_t first, size_t count) {
            const auto place = [&](size_t i) { return upwards ? i : total - 1 - i; };
            for (size_t line = first; line < first + count; line += kLine) {
                for (size_t i = line; i < line + kLine; ++i) {
                    const uint64_t expected = value(place(i));
                    const uint64_t got = memory_.Read(place(i));
                    if (got != expected) return Wrong(place(i), expected, got);
                }
                for (size_t i = line; i < line + kLine; ++i) {
                    memory_.Write(place(i), ~value(place(i)));
                }
            }
            memory_.Settle(upwards ? first : total - first - count, count);
            return Finding();
        });
    }

    // Moves the half that begins at `from`; the last block may be shorter.
    void MoveBlocks(Range to, size_t from) {
        EachSlice(to.count, kSliceWords, [&](size_t first, size_t count) {
            for (size_t i = first; i < first + count; i += kBlock) {
                memory_.MoveBlock(to.first + i, from + i, std::min(kBlock, first + count - i));
            }
            memory_.Settle(to.first + first, count);
            return Finding();
        });
    }

    template <typename Element>
    Finding MoveElements(uint64_t pattern) {
        constexpr size_t kParts = kWord / sizeof(Element);
        const auto value = [pattern](size_t i) { return WordAt(i, pattern); };
        const size_t half = Half();
        Fill({0, half}, value);
        Fill({half, half}, [value](size_t i) { return ~value(i); });
        EachSlice(half, kSliceWords, [&](size_t first, size_t count) {
            for (size_t i = first * kParts; i < (first + count) * kParts; ++i) {
                memory_.template Move<Element>(half * kParts + i, i);
            }
            memory_.Evict(half + first, count);
            return Finding();
        });
        if (memory_.Stop()) return {};
        memory_.Spoil(half + half / 3);
        return Verify({half, half}, value);
    }

    Finding Wrong(size_t i, uint64_t expected, uint64_t got) {
        memory_.Evict(i, 1);
        return Mismatch{i * kWord, expected, got, memory_.Read(i)};
    }

    Memory& memory_;
};

}  // namespace testprog
