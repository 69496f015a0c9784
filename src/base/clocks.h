// Running time of the pass and of each test, robust against a wall clock that is set back.
//
// Every clock is started with a mode that is not 0 and sampled with mode 0. A sample adds the
// forward step since the last one, or exactly 1 second for a backward step. It returns 0 while the
// running time (as a signed number) is at most `limit` seconds, and 1 when it is above; a sample
// above the limit does not move the last sample, so the next one counts the same span again.
#pragma once

#include <cstdint>
#include <ctime>

namespace patrol {

// Seconds since the epoch at which any clock was last started; stamps the history.
extern int32_t start_time;

// Running time in seconds. `run_time` is the pass; the others are also overwritten by what a test
// program reports of itself.
extern uint32_t run_time;
extern uint32_t cpu_run_time;
extern uint32_t mem_run_time;

// Passes completed, as reported by the test programs.
extern int32_t cpu_pass_num;
extern int32_t mem_pass_num;

// The pass clock. Starting it keeps `run_time`.
int check_time(int mode, int32_t limit);

// The clocks of one test each. Starting them sets their running time to 0.
int cpu_check_time(int mode, int32_t limit);
int mem_check_time(int mode, int32_t limit);

// The clock of launched disk `entry`. All disks share one last sample. A disk that is not in the
// table samples as 0 seconds.
int hdd_check_time(int mode, int32_t limit, int entry);

// Samples the clock of a kind (`entry` counts for disks alone) with mode 0.
int SampleKindClock(int kind, int32_t limit, int entry);

// Where the running time and the pass count of a kind are kept; null for an unknown kind or a disk
// that is not in the table.
uint32_t* KindRunTime(int kind, int entry);
int32_t* KindPassCount(int kind, int entry);

// The wall clock that the clocks read; replaced by tests.
extern std::time_t (*clock_now)();

}  // namespace patrol
