#include "base/clocks.h"

#include "base/disk_table.h"

namespace patrol {
namespace {

// When each clock was last looked at, in seconds since the epoch. The disks share one, so that a
// disk which is waited for behind others gets only what has passed since the one before it: the
// histories have always counted so.
int32_t pass_sample = 0;
int32_t cpu_sample = 0;
int32_t mem_sample = 0;
int32_t hdd_sample = 0;

std::time_t WallClock() { return std::time(nullptr); }

// Every clock that is started stamps the history: what is entered bears the time at which the last
// test, or the pass, began.
void Start(int32_t* last) {
    start_time = static_cast<int32_t>(clock_now());
    *last = start_time;
}

// Adds up steps instead of taking the difference to the start: a wall clock that is set back cannot
// take away what has been counted.
int Sample(uint32_t* running, int32_t* last, int32_t limit) {
    const auto now = static_cast<int32_t>(clock_now());
    const int64_t step = int64_t{now} - *last;
    if (step > 0) *running += static_cast<uint32_t>(step);
    // How much time has really passed nobody knows. A second each brings even a test to its limit
    // whose clock is set back again and again.
    if (step < 0) *running += 1;
    if (static_cast<int32_t>(*running) > limit) return 1;
    *last = now;
    return 0;
}

int32_t* LastSample(int kind) {
    if (kind == kKindCpu) return &cpu_sample;
    return kind == kKindMemory ? &mem_sample : &hdd_sample;
}

}  // namespace

int32_t start_time = 0;
uint32_t run_time = 0;
std::time_t (*clock_now)() = WallClock;

int check_time(int mode, int32_t limit) {
    if (mode == 0) return Sample(&run_time, &pass_sample, limit);
    Start(&pass_sample);
    return 0;
}

int CheckTestTime(int mode, int32_t limit, RunningTest* test) {
    int32_t* last = LastSample(test->kind);
    if (mode == 0) return Sample(&test->run_time, last, limit);
    test->run_time = 0;
    Start(last);
    return 0;
}

int cpu_check_time(int mode, int32_t limit) { return CheckTestTime(mode, limit, &cpu_test); }

int mem_check_time(int mode, int32_t limit) { return CheckTestTime(mode, limit, &mem_test); }

int hdd_check_time(int mode, int32_t limit, int entry) {
    RunningTest unknown;
    RunningTest* disk = DiskEntry(entry);
    return CheckTestTime(mode, limit, disk != nullptr ? disk : &unknown);
}

}  // namespace patrol
