#include "state/disk_progress.h"

#include "../support.h"

namespace patrol_test {
namespace {

TEST(DiskProgressTest, ProgressTouchesItsEndsOnlyWhereItIsThere) {
    const uint64_t most = ~uint64_t{0}, word = 0xffffffff;
    const std::tuple<uint64_t, uint64_t, int32_t> cases[] = {
        {0, 100, 0},    {1, most, 1},      {50, 100, 50},        {999, 1000, 99}, {100, 100, 100},
        {101, 100, 99}, {most, most, 100}, {word - 1, word, 99}, {2, 3, 66},      {0, 0, 0},
    };
    for (const auto& [next, maximum, percent] : cases) {
        EXPECT_EQ(ProgressPercent(next, maximum), percent) << next << " of " << maximum;
    }
}

}  // namespace
}  // namespace patrol_test
