#include "base/clocks.h"

#include <climits>

#include "../support.h"

namespace patrol_test {
namespace {

std::time_t wall_clock = 0;

class ClockTest : public UnitTest {
 protected:
    ClockTest() {
        clock_now = [] { return wall_clock; };
    }
    ~ClockTest() override {
        clock_now = [] { return std::time(nullptr); };
    }
};

TEST_F(ClockTest, ForwardStepsCountAndABackwardStepCountsOneSecond) {
    // Start or sample, now, limit, result, running time. Above the limit the last sample stays, so
    // the span from 1005 on counts twice.
    const std::tuple<bool, std::time_t, int32_t, int, uint32_t> steps[] = {
        {true, 1000, 0, 0, 0},    {false, 1000, 0, 0, 0},        {false, 1005, 5, 0, 5},
        {false, 1008, 7, 1, 8},   {false, 1009, 7, 1, 12},       {false, 1001, 13, 0, 13},
        {false, 1001, 12, 1, 13}, {false, 1002, INT_MAX, 0, 14}, {false, 1, 15, 0, 15}};
    run_time = 0;
    cpu_run_time = mem_run_time = 77;  // starting these clocks clears them
    for (const auto& [start, now, limit, result, running] : steps) {
        wall_clock = now;
        for (const auto clock : {check_time, cpu_check_time, mem_check_time}) {
            EXPECT_EQ(clock(start, limit), result) << now;
        }
        for (const uint32_t time : {run_time, cpu_run_time, mem_run_time}) {
            EXPECT_EQ(time, running) << now;
        }
    }
    check_time(1, 0);
    EXPECT_EQ(run_time, 15U) << "a start keeps the time of the pass";
    run_time = INT_MAX;
    ++wall_clock;
    EXPECT_EQ(check_time(0, 0), 0) << "compared as a signed number";
}

TEST_F(ClockTest, DisksShareOneLastSample) {
    ASSERT_TRUE(AllocateDiskTable(2));
    hdd_exec_use = 2;
    for (const int entry : {0, 1}) {
        wall_clock += 10;
        hdd_check_time(1, 0, entry);
    }
    wall_clock += 5;
    EXPECT_EQ(hdd_check_time(0, 99, 0) + hdd_check_time(0, 99, 1), 0);
    EXPECT_EQ(hdd_exec_tbl[0].run_time, 5U);
    EXPECT_EQ(hdd_exec_tbl[1].run_time, 0U);
    EXPECT_EQ(hdd_check_time(0, 0, 2), 0) << "not in the table";
}

}  // namespace
}  // namespace patrol_test
