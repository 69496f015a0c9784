#include "base/clocks.h"

#include "base/disk_table.h"
#include "base/kinds.h"

namespace patrol {
namespace {

int32_t pass_sample = 0;
int32_t cpu_sample = 0;
int32_t mem_sample = 0;
int32_t hdd_sample = 0;

std::time_t WallClock() { return std::time(nullptr); }

void Start(int32_t* last) {
    start_time = static_cast<int32_t>(clock_now());
    *last = start_time;
}

int Sample(uint32_t* running, int32_t* last, int32_t limit) {
    const auto now = static_cast<int32_t>(clock_now());
    const int64_t step = int64_t{now} - *last;
    if (step > 0) *running += static_cast<uint32_t>(step);
    if (step < 0) *running += 1;
    if (static_cast<int32_t>(*running) > limit) return 1;
    *last = now;
    return 0;
}

int CheckTest(int mode, int32_t limit, uint32_t* running, int32_t* last) {
    if (mode == 0) return Sample(running, last, limit);
    *running = 0;
    Start(last);
    return 0;
}

}  // namespace

int32_t start_time = 0;
uint32_t run_time = 0;
uint32_t cpu_run_time = 0;
uint32_t mem_run_time = 0;
int32_t cpu_pass_num = 0;
int32_t mem_pass_num = 0;
std::time_t (*clock_now)() = WallClock;

int check_time(int mode, int32_t limit) {
    if (mode == 0) return Sample(&run_time, &pass_sample, limit);
    Start(&pass_sample);
    return 0;
}

int cpu_check_time(int mode, int32_t limit) {
    return CheckTest(mode, limit, &cpu_run_time, &cpu_sample);
}

int mem_check_time(int mode, int32_t limit) {
    return CheckTest(mode, limit, &mem_run_time, &mem_sample);
}

int hdd_check_time(int mode, int32_t limit, int entry) {
    uint32_t unknown = 0;
    uint32_t* running = KindRunTime(kKindHdd, entry);
    return CheckTest(mode, limit, running != nullptr ? running : &unknown, &hdd_sample);
}

int SampleKindClock(int kind, int32_t limit, int entry) {
    if (kind == kKindCpu) return cpu_check_time(0, limit);
    if (kind == kKindMemory) return mem_check_time(0, limit);
    return hdd_check_time(0, limit, entry);
}

uint32_t* KindRunTime(int kind, int entry) {
    if (kind == kKindCpu) return &cpu_run_time;
    if (kind == kKindMemory) return &mem_run_time;
    HddExec* disk = kind == kKindHdd ? DiskEntry(entry) : nullptr;
    return disk != nullptr ? &disk->run_time : nullptr;
}

int32_t* KindPassCount(int kind, int entry) {
    if (kind == kKindCpu) return &cpu_pass_num;
    if (kind == kKindMemory) return &mem_pass_num;
    HddExec* disk = kind == kKindHdd ? DiskEntry(entry) : nullptr;
    return disk != nullptr ? &disk->pass_count : nullptr;
}

}  // namespace patrol
