// The mode routine of KVXstart, reload and confchg.
#pragma once

namespace patrol {

// Ages the histories and then, by the run mode, rebuilds or updates the Schedule files. At agent
// start a file is only rebuilt where one exists: the first comes from a reload or a patrol pass.
// Returns 0 when that is done (also when nothing had to be), -1 when a file could not be created.
int sched_main();

}  // namespace patrol
