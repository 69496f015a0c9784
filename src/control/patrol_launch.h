// The patrol launchers decide whether a component is due, and with which command line its test is
// started.
#pragma once

#include <cstdint>

namespace patrol {

// Time-outs of the running tests in seconds, from the Schedule file.
extern int32_t cpu_tout_watch;
extern int32_t mem_tout_watch;
extern int32_t hdd_tout_watch;

// Start the test where it is due: its next-go value is there and does not begin with "OFF". They
// return 1 when it was started, 0 when it is not due, -1 when it could not be started (traced).
int CpuTestExec();
int MemTestExec();

// Starts a test for every disk that is due and fills hdd_exec_tbl. The result is that of the last
// disk tried: 1 started, -1 failed; 0 when none was due; -1 when the table cannot be allocated.
int HddTestExec();

}  // namespace patrol
