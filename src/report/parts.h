// Faulty-part reports: key=value files that the agent's parts command takes.
#pragma once

#include <cstddef>
#include <ctime>

#include "base/running_tests.h"
#include "base/text.h"
#include "report/fault_record.h"

namespace patrol {

// Names the unit that failed by the `size` bytes of a status record of `test`, with `detail`, the
// result block in it, and hands its report to the agent. `run_mode` is kRunPatrol or kRunPadiag. A
// failure is traced under `caller`.
void ReportFault(const char* caller, const RunningTest& test, int run_mode, const char* status,
                 size_t size, const char* detail);

// The steps of it.

// Writes the report of a patrol (kRunPatrol) or padiag (kRunPadiag) run for `device` into the
// agent's temporary directory, with a backup copy, hands it to the parts command, and removes both.
// Returns 0, or 1 when any step failed; a report that the command did not take stays.
int patrol_parts_proc(const FaultRecord& record, int run_mode, const char* device);

// Replaces what stands at `path` by a new file with `text`, mode 0644; a link is removed, not
// followed. Returns 0, or 1 (reported).
int write_parts_data(const char* text, size_t length, const char* path);

// Removes a file, trying three times. Returns 0 when it is gone, also when it never was; 1
// (reported).
int delfile(const char* path);

// Runs "parts set REPORT" of the agent for at most six hours. Returns its exit status, -1 when it
// could not be started, 1 when "KVX_bin" is unset.
int exec_parts_cmd(const char* report_path);

// Returns what to do after the parts command ended with `exit_status`: 0 done, 4 run it again, 1
// give up (reported). Status 2 allows six runs in all, status 4 one repeat. Keeps a state between
// calls; `counter` is the caller's for one report.
int check_parts_cmd_value(int exit_status, int* counter);

// The routine that formats the report: snprintfx under the name it has here.
inline constexpr auto* set_array = snprintfx;

// Removes every `unwanted` from `text` in place. Returns 0, or -1 for an empty text.
int remove_char(char* text, char unwanted);

// Returns `now` as local time, "TIME=yyyy-mm-ddThh:mm:ss+hh:mm".
Text<64> date_tm_tz(std::time_t now);

}  // namespace patrol
