#include "mem/patterns.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace testprog {
namespace {

using Sweeping = std::function<Finding(const Area&)>;

constexpr size_t kWords = 1200;  // each half is a block and a shorter one
constexpr size_t kUpper = kWords - 1;

// What a sweep makes of one bit of a word that flips at each of its looks for a cancel in turn: a
// "1" where it finds the bit, a "0" where it does not.
std::string Found(const Sweeping& sweep, size_t word) {
    std::string found;
    for (size_t turn = 0;; ++turn) {
        std::vector<uint64_t> words(kWords);
        const uint64_t bit = uint64_t{1} << (turn * 7 % 64);
        size_t looks = 0;
        const auto look = [&] {
            if (looks++ == turn) words[word] ^= bit;
            return false;
        };
        const Finding finding = sweep({words.data(), kWords, look, false});
        if (looks <= turn) return found;
        found += finding ? '1' : '0';
        EXPECT_TRUE(!finding || (finding->expected ^ finding->got) == bit) << found;
    }
}

TEST(MemPatternsTest, ABitThatFlipsBehindAWriteIsFoundByTheNextCompare) {
    constexpr uint64_t kPattern = 0x123456789abcdef1;
    const Sweeping blocks = [](const Area& area) { return BlockMoves(area, kPattern); };
    const Sweeping elements = [](const Area& area) { return ElementMoves(area, kPattern); };
    const Sweeping turns = [](const Area& area) { return MovingInversions(area, kPattern); };
    const Sweeping bits = [](const Area& area) { return WalkingBits(area, 8); };
    // The looks come after each sweep, and once more before each compare that follows a write.
    const std::tuple<Sweeping, size_t, std::string> cases[] = {
        {blocks, 1, "10000110"},
        {blocks, kUpper, "01111000"},
        {elements, 1, "110000110000110000110000"},
        {elements, kUpper, "001100001100001100001100"},
        {bits, 1, "110110110110110110110110110110110110110110110110"},
        {AddressInAddress, kUpper, "110110"},
        {turns, 1, "1111110"}};
    for (const auto& [sweep, word, found] : cases) EXPECT_EQ(Found(sweep, word), found);
}

}  // namespace
}  // namespace testprog
