// One patrol pass: the mode routine of "start".
#pragma once

namespace patrol {

// Asks the agent, then runs the pass. Returns 0, or -1 when another pass is running on the same
// data directory, the agent is not ready or a missing Schedule file could not be made. What becomes
// of single tests stands in the history and the trace.
int cntl_main();

// Launches the tests that are due, waits for them, and advances the Schedule file. Without a
// Schedule file it only makes one. Returns 0, or -1 when that fails.
int sched_cntl();

}  // namespace patrol
