// Whether the agent is ready for a diagnosis.
#pragma once

namespace patrol {

// Runs the agent's status command, the value of "KVX_bin" directly followed by "/get agent_status",
// through the shell. An answer with a line that begins with "0" says that it is ready; lines are
// read in pieces of 63 characters that count as lines of their own. Returns 0 when it is ready,
// else -1 (traced).
int GetMasterStatus();

}  // namespace patrol
