// One on-request diagnosis: the mode routine of "pastart".
#pragma once

namespace patrol {

// Asks the agent, then runs the diagnosis. Returns 0, or -1 when another one is running on the same
// data directory, the agent is not ready or a missing padiag Schedule file could not be made.
int PadiagCntlMain();

// Launches the requested tests at the level of the Schedule file, waits for them, saves a copy of
// the disks' progress, and tells the agent that the diagnosis is finished. Without a Schedule file
// it only makes one. Returns 0, or -1 when that fails.
int PadiagSchedCntl();

}  // namespace patrol
