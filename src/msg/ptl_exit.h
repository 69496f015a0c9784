// The orderly end, the only way the program ends. It stands beside the log buffers that it flushes.
#pragma once

namespace patrol {

// Flushes the log buffers, saves copies of the newest log files when `status` is 1, and exits.
// Before the log directory is known it only exits.
[[noreturn]] void ptl_exit(int status);

}  // namespace patrol
