// Memory with one known fault, for the sweeps of the memory test: what they find of a fixed list.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "mem/sweeps.h"

namespace testprog {

enum class FaultKind {
    kStuck,          // a cell is always 0 or 1
    kTransition,     // a cell cannot go to 0, or to 1
    kInversion,      // a cell that goes to 0, or to 1, turns another
    kIdempotent,     // a cell that goes to 0, or to 1, sets another to 0 or 1
    kState,          // a cell that is 0, or 1, keeps another at 0 or 1
    kBridge,         // two cells hold the "and", or the "or", of what was written to them
    kReadDisturb,    // reading a cell turns it, before or behind the value that is given
    kWriteDisturb,   // writing what it holds turns a cell
    kNeighbours,     // a cell goes to 0, or to 1, while both its neighbours are different
    kOtherAddress,   // accesses to a word go to another one
    kMoreAddresses,  // what is written to a word is written to another one too
    kAddressLine,    // one line of the address is always 0 or 1
};
constexpr int kFaultKinds = 12;

struct MemoryFault {
    FaultKind kind;
    size_t victim;  // a word
    size_t aggressor;
    unsigned victim_bit;
    unsigned aggressor_bit;
    bool to;     // the aggressor's state or transition, or what is tied together
    bool value;  // the victim's
};

// So many faults of each kind at places that are the same in every call: half of the pairs of
// cells are neighbours, some are in the same word.
inline std::vector<MemoryFault> MemoryFaults(size_t words, int of_each_kind) {
    std::mt19937 random(12345);
    const auto below = [&random](size_t end) { return random() % end; };
    std::vector<MemoryFault> faults;
    for (int i = 0; i < kFaultKinds * of_each_kind; ++i) {
        MemoryFault fault = {};
        fault.kind = static_cast<FaultKind>(i % kFaultKinds);
        const bool words_differ = fault.kind >= FaultKind::kOtherAddress;
        fault.victim = 1 + below(words - 2);
        fault.victim_bit = static_cast<unsigned>(below(64));
        fault.aggressor = fault.victim;
        switch (below(words_differ ? 4 : 5)) {
            case 0:
                fault.aggressor = fault.victim + 1;
                break;
            case 1:
                fault.aggressor = fault.victim - 1;
                break;
            case 4:
                break;  // in the same word
            default:
                fault.aggressor = (fault.victim + 1 + below(words - 1)) % words;
        }
        fault.aggressor_bit = (fault.victim_bit + static_cast<unsigned>(below(63)) + 1) % 64;
        if (fault.kind == FaultKind::kAddressLine) {
            while (size_t{1} << fault.aggressor_bit >= words) fault.aggressor_bit /= 2;
        }
        fault.to = below(2) != 0;
        fault.value = below(2) != 0;
        faults.push_back(fault);
    }
    return faults;
}

class FaultyMemory {
 public:
    FaultyMemory(size_t words, const MemoryFault& fault) : words_(words), fault_(fault) {}

    size_t count() const { return words_.size(); }

    uint64_t Read(size_t i) {
        i = Decoded(i);
        if (fault_.kind == FaultKind::kReadDisturb && i == fault_.victim &&
            Bit(i, fault_.victim_bit) == fault_.to) {
            const uint64_t before = words_[i];
            words_[i] ^= uint64_t{1} << fault_.victim_bit;
            return fault_.value ? before : words_[i];
        }
        Settle(i);
        return words_[i];
    }

    void Write(size_t i, uint64_t value) {
        i = Decoded(i);
        const std::array<uint64_t, 2> before = {words_[fault_.victim], words_[fault_.aggressor]};
        words_[i] = value;
        Disturb(i, before);
        if (fault_.kind == FaultKind::kMoreAddresses && i == fault_.aggressor) {
            words_[fault_.victim] = value;
        }
        Settle(i);
    }

    template <typename Element>
    void Move(size_t i, size_t from) {
        constexpr size_t kParts = kWord / sizeof(Element);
        constexpr uint64_t kMask = static_cast<Element>(-1);
        const auto shift = [](size_t part) { return part % kParts * sizeof(Element) * 8; };
        const uint64_t moved = (Read(from / kParts) >> shift(from)) & kMask;
        const uint64_t rest = words_[Decoded(i / kParts)] & ~(kMask << shift(i));
        Write(i / kParts, rest | (moved << shift(i)));
    }
    void MoveBlock(size_t to, size_t from, size_t count) {
        for (size_t i = 0; i < count; ++i) Write(to + i, Read(from + i));
    }
    void Settle(size_t, size_t) {}
    void Evict(size_t, size_t) {}
    static uint64_t Address(size_t i) { return 0x7f0000000000 + i * kWord; }
    static bool Stop() { return false; }
    void Spoil(size_t) {}

 private:
    bool Bit(size_t i, unsigned bit) const { return ((words_[i] >> bit) & 1U) != 0; }
    static bool BitOf(uint64_t word, unsigned bit) { return ((word >> bit) & 1U) != 0; }
    void Set(size_t i, unsigned bit, bool value) {
        words_[i] = (words_[i] & ~(uint64_t{1} << bit)) | (uint64_t{value} << bit);
    }

    size_t Decoded(size_t i) const {
        if (fault_.kind == FaultKind::kOtherAddress && i == fault_.victim) return fault_.aggressor;
        if (fault_.kind != FaultKind::kAddressLine) return i;
        const size_t line = size_t{1} << fault_.aggressor_bit;
        return fault_.to ? (i | line) % words_.size() : i & ~line;
    }

    // What the change of the word at `i` does at once. `before` is what the victim's and the
    // aggressor's word held.
    void Disturb(size_t i, const std::array<uint64_t, 2>& before) {
        const bool was = BitOf(before[0], fault_.victim_bit);
        const bool now = Bit(fault_.victim, fault_.victim_bit);
        const bool turned = BitOf(before[1], fault_.aggressor_bit) != fault_.to &&
                            Bit(fault_.aggressor, fault_.aggressor_bit) == fault_.to;
        switch (fault_.kind) {
            case FaultKind::kTransition:
                if (was != fault_.to && now == fault_.to)
                    Set(fault_.victim, fault_.victim_bit, was);
                break;
            case FaultKind::kWriteDisturb:
                if (i == fault_.victim && was == now && now == fault_.to) {
                    Set(fault_.victim, fault_.victim_bit, !now);
                }
                break;
            case FaultKind::kInversion:
                if (turned) Set(fault_.victim, fault_.victim_bit, !now);
                break;
            case FaultKind::kIdempotent:
                if (turned) Set(fault_.victim, fault_.victim_bit, fault_.value);
                break;
            case FaultKind::kBridge: {
                const bool other = Bit(fault_.aggressor, fault_.aggressor_bit);
                const bool tied = fault_.to ? now || other : now && other;
                Set(fault_.victim, fault_.victim_bit, tied);
                Set(fault_.aggressor, fault_.aggressor_bit, tied);
                break;
            }
            default:
                break;
        }
    }

    // What holds all the time shows when a word is touched.
    void Settle(size_t) {
        const bool now = Bit(fault_.victim, fault_.victim_bit);
        switch (fault_.kind) {
            case FaultKind::kStuck:
                Set(fault_.victim, fault_.victim_bit, fault_.value);
                break;
            case FaultKind::kState:
                if (Bit(fault_.aggressor, fault_.aggressor_bit) == fault_.to) {
                    Set(fault_.victim, fault_.victim_bit, fault_.value);
                }
                break;
            case FaultKind::kNeighbours:
                if (Bit(fault_.victim - 1, fault_.victim_bit) != now &&
                    Bit(fault_.victim + 1, fault_.victim_bit) != now && now == fault_.value) {
                    Set(fault_.victim, fault_.victim_bit, !now);
                }
                break;
            default:
                break;
        }
    }

    std::vector<uint64_t> words_;
    MemoryFault fault_;
};

// How many of the faults the test finds. `test` returns whether it has found something wrong.
inline int CountFound(const std::vector<MemoryFault>& faults, size_t words,
                      const std::function<bool(FaultyMemory& memory)>& test) {
    int found = 0;
    for (const MemoryFault& fault : faults) {
        FaultyMemory memory(words, fault);
        found += test(memory) ? 1 : 0;
    }
    return found;
}

}  // namespace testprog
