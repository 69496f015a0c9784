#include <gtest/gtest.h>

#include <vector>

#include "hdd/pace.h"

namespace testprog {
namespace {

// How much of the time the reads take while they last so many milliseconds each, in turn; `busy`
// says how often in a hundred others are seen at work.
double ShareOfReads(Pace* pace, const std::vector<double>& milliseconds, int busy, int count) {
    double reading = 0, resting = 0;
    for (int i = 0; i < count; ++i) {
        const double seconds = milliseconds[i % milliseconds.size()] / 1000;
        reading += seconds;
        resting += pace->RestAfter(seconds, 0x800, i * 37 % 100 < busy);
    }
    return reading / (reading + resting);
}

TEST(HddPaceTest, RestsAsLongAsOthersAreAtWork) {
    const std::vector<double> quiet(1, 7), hindered(1, 70);
    std::vector<double> outliers(20, 7);
    outliers[3] = 0.2;
    outliers[9] = 400;
    Pace pace(true);
    EXPECT_EQ(ShareOfReads(&pace, quiet, 1, 1000), 1) << "single ones are not others";
    EXPECT_GT(ShareOfReads(&pace, outliers, 1, 10000), 0.9) << "single slow ones neither";
    ShareOfReads(&pace, quiet, 100, 100);
    EXPECT_LT(ShareOfReads(&pace, quiet, 100, 1000), 0.015) << "the kernel sees others";
    EXPECT_LT(ShareOfReads(&pace, quiet, 40, 1000), 0.08) << "they have pauses";
    ShareOfReads(&pace, quiet, 0, 500);
    EXPECT_EQ(ShareOfReads(&pace, quiet, 0, 1000), 1) << "they have gone";
    ShareOfReads(&pace, hindered, 0, 50);
    EXPECT_LT(ShareOfReads(&pace, hindered, 0, 400), 0.3) << "others whom nobody sees";
    ShareOfReads(&pace, hindered, 0, 1000);
    EXPECT_EQ(ShareOfReads(&pace, hindered, 0, 1000), 1) << "the disk has become so slow";
    Pace random(false);
    EXPECT_EQ(ShareOfReads(&random, {0.1, 28, 12, 28}, 0, 1000), 1);
}

}  // namespace
}  // namespace testprog
