// What a patrol pass and a padiag run have in common.
#pragma once

namespace patrol {

// Starts the run clock, asks the agent, and calls `run`. `caller` and `name` ("Patrol", "Padiag")
// are for the trace. 0, or -1 when the agent is not ready or `run` failed.
int RunDiagnosis(const char* caller, const char* name, int (*run)());

// Makes a missing Schedule file by `create`; `word` says how the trace calls a success. 0 or -1.
int RemakeSchedule(const char* caller, int (*create)(), const char* word);

// Frees the disk table where there is one.
void EndDiskTable(const char* caller);

}  // namespace patrol
