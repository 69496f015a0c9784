// Running time of the pass and of each test, robust against a wall clock that is set back.
//
// Every clock is started with a mode that is not 0 and sampled with mode 0. A sample adds the
// forward step since the last one, or exactly 1 second for a backward step. It returns 0 while the
// running time (as a signed number) is at most `limit` seconds, and 1 when it is above; a sample
// above the limit does not move the last sample, so the next one counts the same span again.
#pragma once

#include <cstdint>
#include <ctime>

#include "base/running_tests.h"

namespace patrol {

// Seconds since the epoch at which any clock was last started; stamps the history.
extern int32_t start_time;

// Running time of the pass in seconds. That of each test stands in its RunningTest.
extern uint32_t run_time;

// The pass clock. Starting it keeps `run_time`.
int check_time(int mode, int32_t limit);

// The clock of `test`. Starting it sets the test's running time to 0. All disks share one last
// sample.
int CheckTestTime(int mode, int32_t limit, RunningTest* test);

// The same for the processor test, the memory test and launched disk `entry`. A disk that is not in
// the table samples as 0 seconds.
int cpu_check_time(int mode, int32_t limit);
int mem_check_time(int mode, int32_t limit);
int hdd_check_time(int mode, int32_t limit, int entry);

// The wall clock that the clocks read; replaced by tests.
extern std::time_t (*clock_now)();

}  // namespace patrol
