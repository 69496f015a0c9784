// What the memory tests consist of: their sweeps, by name and level.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "mem/sweeps.h"

namespace testprog {

// Those of "-data all"; the level says how many of them where none are named.
constexpr std::array<uint64_t, 10> kPatterns = {
    0x5555555555555555, 0xaaaaaaaaaaaaaaaa, 0x0000000000000000, 0xffffffffffffffff,
    0x3333333333333333, 0xcccccccccccccccc, 0x0f0f0f0f0f0f0f0f, 0xf0f0f0f0f0f0f0f0,
    0x00ff00ff00ff00ff, 0xff00ff00ff00ff00};

// How deep the tests go.
struct Depth {
    size_t patterns;     // of those above
    unsigned positions;  // of a walking bit
    unsigned sweeps;     // with each pattern
};
// By level; higher levels are as the last.
constexpr std::array<Depth, 4> kDepths = {
    {{2, 8, 1}, {4, 16, 2}, {6, 32, 3}, {kPatterns.size(), 64, 4}}};

// One step of a test, after which the program pauses.
template <typename Memory>
using Sweep = std::function<Finding(Memory& memory)>;

// Returns the steps of "BMOVE", "IMOVE" or "WHOLE"; none for any other name. Where words depend on
// their places they depend on `mask`, too.
template <typename Memory>
std::vector<Sweep<Memory>> StepsOf(const std::string& test, const std::vector<uint64_t>& patterns,
                                   const Depth& depth, uint64_t mask) {
    using Method = Finding (Sweeps<Memory>::*)(uint64_t pattern);
    const auto repeated = [&depth](Method method, uint64_t pattern) {
        return [method, pattern, sweeps = depth.sweeps](Memory& memory) {
            Finding finding;
            for (unsigned i = 0; i < sweeps && !finding && (i == 0 || !memory.Stop()); ++i) {
                finding = (Sweeps<Memory>(memory).*method)(i % 2 == 0 ? pattern : ~pattern);
            }
            return finding;
        };
    };
    const bool whole = test == "WHOLE";
    std::vector<Sweep<Memory>> steps;
    if (whole) {
        steps.push_back([positions = depth.positions](Memory& memory) {
            return Sweeps<Memory>(memory).WalkingBits(positions);
        });
        steps.push_back([](Memory& memory) { return Sweeps<Memory>(memory).AddressInAddress(); });
        steps.push_back(repeated(&Sweeps<Memory>::InvertWords, mask));
    } else if (test != "BMOVE" && test != "IMOVE") {
        return steps;
    }
    const Method method = whole             ? &Sweeps<Memory>::InvertPattern
                          : test == "BMOVE" ? &Sweeps<Memory>::BlockMoves
                                            : &Sweeps<Memory>::ElementMoves;
    for (const uint64_t pattern : patterns) {
        steps.push_back(repeated(method, whole ? pattern : pattern ^ mask));
    }
    return steps;
}

}  // namespace testprog
