#include "base/clocks.h"

#include <climits>

#include "../support.h"
#include "base/local_time.h"

namespace {

std::time_t stopped_at = 0;

}  // namespace

// Takes the place of the C library's in this program: the clock of the machine, or the stopped one.
extern "C" std::time_t time(std::time_t* result) noexcept {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::time_t seconds = stopped_at != 0 ? stopped_at : now.tv_sec;
    if (result != nullptr) *result = seconds;
    return seconds;
}

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

TEST(LocalTimeTest, TheOffsetHasItsSignAndHoldsAcrossNewYear) {
    const char* set = getenv("TZ");
    const std::string zone = set != nullptr ? set : "";
    for (const Strings& row : Rows("XYZ3:30|1782000000|2026-06-20T20:30:00-03:30\n"
                                   "XYZ-5:45|1782000000|2026-06-21T05:45:00+05:45\n"
                                   "XYZ-14|1798759800|2027-01-01T13:30:00+14:00\n"
                                   "XYZ12|1798763400|2026-12-31T12:30:00-12:00")) {
        setenv("TZ", row[0].c_str(), 1);
        tzset();
        stopped_at = std::stol(row[1]);
        IsoTime text;
        date2iso8601(stopped_at, &text);
        EXPECT_EQ(text.view(), row[2]);
    }
    set != nullptr ? setenv("TZ", zone.c_str(), 1) : unsetenv("TZ");
    tzset();
    stopped_at = 0;
}

}  // namespace
}  // namespace patrol_test
