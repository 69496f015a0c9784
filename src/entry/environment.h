// Preparing the run: descriptors, host name, paths, trace, signals.
#pragma once

namespace patrol {

// Opens "/dev/null" on each of the descriptors 0 to 2 that is closed, so that no pipe or file of
// this program lands there.
void EnsureStandardDescriptors();

// Makes running out of memory an orderly end with status 1, after an event to the agent, instead of
// an abort.
void CatchOutOfMemory();

// Turns standard output to "/dev/null", so that nothing this run prints reaches its caller.
void SilenceOutput();

// Fills host_buf and sets the core-file size limit to 0. Returns 0, or -1 with an empty host_buf,
// and the limit as it was, when the host has no name.
int setup_hostname();

// Takes the log and data directories from "KVX_log" and "KVX_data", sets the trace up and builds
// all paths. Returns the length of the last path uncut. A missing or empty variable (W2895) or a
// trace that cannot be set up ends the program with status 1.
int set_filepath();

// Installs the handlers for SIGINT, SIGHUP and SIGTERM (unless this program was started with
// SIGTERM ignored). A failure is reported and the program goes on.
void ptl_sigaction();

}  // namespace patrol
