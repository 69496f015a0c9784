// Memory under test: how much of it there may be, and an area of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "mem/sweeps.h"

namespace testprog {

// Returns how many bytes of memory may be taken without harm to what else runs: a quarter of what
// the system has available, and of what each memory control group of this process has left (its
// file cache counted as left). `root` stands before the system's paths. Nothing where the system
// does not say what is available.
std::optional<uint64_t> MemoryToTake(const std::string& root);

// The machine's memory in bytes, and its NUMA nodes with memory (none where there is one alone).
uint64_t MemoryInAll();
std::vector<int> MemoryNodes();

// Whether what was written can be put out of the caches; where it cannot, an area must be so large
// that it drives out itself what it holds.
bool CanEvict();

class Area {
 public:
    // Maps `size` bytes, preferably of that node (negative: any), and locks them, so that they
    // stay where they are; `stop` is asked meanwhile. The area is as large as what could be locked:
    // size() may be 0, and complaint() says why it is smaller than asked for.
    Area(size_t size, int node, const std::function<bool()>& stop);
    ~Area();
    Area(const Area&) = delete;
    Area& operator=(const Area&) = delete;

    volatile uint64_t* words() const { return static_cast<uint64_t*>(memory_); }
    size_t size() const { return size_; }
    const std::string& complaint() const { return complaint_; }

    // The numbers of the page frames that the area is made of, in its order; empty where the system
    // does not tell.
    const std::vector<uint64_t>& frames() const { return frames_; }
    // The place of a byte in the machine's memory.
    std::optional<uint64_t> PhysicalAddress(size_t offset) const;
    // The offset of an address; nothing when it is outside.
    std::optional<size_t> OffsetOf(const void* address) const;

    // Makes accesses to the page of that byte raise SIGBUS, as a page that cannot be read does.
    void Break(size_t offset);

 private:
    void ReadFrames();

    void* memory_;
    size_t mapped_;
    size_t size_ = 0;
    std::string complaint_;
    std::vector<uint64_t> frames_;
};

// The memory of an area for Sweeps. Words are written past the caches where the machine has such an
// instruction, and put out of them where it has that one, so that memory itself is read back.
class RealMemory {
 public:
    // With `spoil` one bit of what was written is flipped before it is read back.
    RealMemory(const Area& area, std::function<bool()> stop, bool spoil)
        : words_(area.words()),
          count_(area.size() / kWord / (2 * kLine) * (2 * kLine)),
          stop_(std::move(stop)),
          spoil_(spoil) {}

    size_t count() const { return count_; }
    uint64_t Read(size_t i) const { return words_[i]; }
    void Write(size_t i, uint64_t value) {
#if defined(__x86_64__)
        __builtin_ia32_movnti64(
            reinterpret_cast<long long*>(const_cast<uint64_t*>(words_ + i)),  // NOLINT
            static_cast<long long>(value));
#else
        words_[i] = value;
#endif
    }
    template <typename Element>
    void Move(size_t i, size_t from) {
        auto* elements = reinterpret_cast<volatile Element*>(words_);
        elements[i] = elements[from];
    }
    void MoveBlock(size_t to, size_t from, size_t count);
    void Settle(size_t first, size_t count);
    void Evict(size_t first, size_t count);
    uint64_t Address(size_t i) const { return reinterpret_cast<uintptr_t>(words_ + i); }
    bool Stop() const { return stop_(); }
    void Spoil(size_t i) {
        if (!spoil_) return;
        words_[i] = words_[i] ^ 0x10U;
        Evict(i, 1);
    }

 private:
    volatile uint64_t* words_;
    size_t count_;
    std::function<bool()> stop_;
    bool spoil_;
};

}  // namespace testprog
