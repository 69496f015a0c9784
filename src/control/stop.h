// Stopping test programs, and what signals do to this one.
#pragma once

#include <sys/types.h>

namespace patrol {

// Sends SIGINT to a child (a pid of 0 or below is none) and waits for nothing. A failure is traced.
void ptl_test_terminate(pid_t pid);

// Stops the padiag tests that are running. `cause` is 1 for SIGHUP, 2 for SIGINT. It does not end
// the program: the wait under way fails, and the ways of a failed wait end the run.
void ptl_clean_up(int cause);

// The handlers for SIGHUP and SIGINT. They only ever run inside a wait.
void sighup_func(int signal);
void sigint_func(int signal);

// The handler for SIGTERM, which runs there too: stops every test that is running, of whatever run,
// and has this process die of the signal.
void sigterm_func(int signal);

}  // namespace patrol
