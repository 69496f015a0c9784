// Running one of the agent's commands to its end.
#pragma once

namespace patrol {

// Runs `path` with `arguments` (null-ended, the first being the command's name) for at most
// `seconds` (0 or below: no limit). Returns its exit status, 0 for one that a signal ended, or -1
// when it could not be started. While it runs, SIGTERM and the time limit end the command with
// SIGTERM; the result is then bits 8 to 15 of what interproc returned. The handlers of other
// signals run at once, and the command is waited for all the same.
int execute(const char* path, char* const* arguments, int seconds);

// Ends the running command with SIGTERM, behind which a stopped one is continued, and waits for it.
// Returns 1 for signal SIGTERM, else the wait status; -1 when it could not be signalled.
int interproc(int signal);

}  // namespace patrol
