// A test from its launch until its result is entered: one value, handed on by whoever launches,
// waits, reads or enters.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "base/kinds.h"
#include "base/local_time.h"
#include "base/text.h"

namespace patrol {

using PhysicalPath = Text<100>;

// What an on-request diagnosis keeps of a test, for its events and its history line.
struct PadiagTest {
    IsoTime start_time;
    PhysicalPath phypath;    // where the component sits
    int event_check = 0;     // 1 while the end of the test has not been announced
    int32_t progress = 0;    // percent of a disk that was done before this test
    uint64_t start_lba = 0;  // block that a disk test started at
};

struct RunningTest {
    int kind = kKindHdd;
    Text<512> device_name;       // as the histories, reports and events name the component
    int32_t schedule_index = 0;  // of a disk: n of the section HDD_SCHEDULE n
    uint32_t run_time = 0;       // seconds: the test's run clock, or what its program reported
    int32_t pass_count = 0;      // as its program last reported
    int32_t read_fd = -1;        // pipe, or output file, that its program writes to
    int32_t write_fd = -1;       // the other end of a pipe, closed in this process
    pid_t pid = 0;
    PadiagTest padiag;
};

// The tests of the two kinds that run one test each; those of the disks stand in hdd_exec_tbl.
extern RunningTest cpu_test;
extern RunningTest mem_test;

// The names of their parts.
inline uint32_t& cpu_run_time = cpu_test.run_time;
inline uint32_t& mem_run_time = mem_test.run_time;
inline int32_t& cpu_pass_num = cpu_test.pass_count;
inline int32_t& mem_pass_num = mem_test.pass_count;
inline pid_t& ProcessIdCpu = cpu_test.pid;
inline pid_t& ProcessIdMem = mem_test.pid;
inline int32_t& PipeCpuRead = cpu_test.read_fd;
inline int32_t& PipeMemRead = mem_test.read_fd;
inline int32_t& PipeCpuWrite = cpu_test.write_fd;
inline int32_t& PipeMemWrite = mem_test.write_fd;
inline int32_t& fhandleCpu = cpu_test.read_fd;
inline int32_t& fhandleMem = mem_test.read_fd;
inline IsoTime& stime_padiag_cpu = cpu_test.padiag.start_time;
inline IsoTime& stime_padiag_mem = mem_test.padiag.start_time;
inline PhysicalPath& padiag_cpu_phypath = cpu_test.padiag.phypath;
inline PhysicalPath& padiag_mem_phypath = mem_test.padiag.phypath;
inline int& cpu_event_check = cpu_test.padiag.event_check;
inline int& mem_event_check = mem_test.padiag.event_check;

}  // namespace patrol
