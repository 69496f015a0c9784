// Faulty-part reports: naming the unit that failed and handing a report to the agent's parts
// command.
#pragma once

#include <cstddef>
#include <ctime>

#include "base/text.h"

namespace patrol {

struct FaultRecord {
    Text<25> mark;
    Text<25> fru_name;  // "HDD", "Partition", or "BB" when the partition cannot be told
    Text<25> fru_index;
    Text<40> location;
    Text<49152> detail;  // the result block of the status record
    Text<8192> summary;  // its error line
};

// The fault being reported.
extern FaultRecord errlog_inf;

// Fills `record` but for its detail from the `length` bytes of a status record.
void set_parts_errinf(FaultRecord* record, const char* status, size_t length);

// Writes the report of a patrol (kRunPatrol) or padiag (kRunPadiag) run for `device` into the
// agent's temporary directory, with a backup copy, hands it to the parts command, and removes both.
// 0, or 1 when any step failed; a report that the command did not take stays.
int patrol_parts_proc(const FaultRecord& record, int run_mode, const char* device);

// The steps of it.

// Replaces the file at `path` by `text`, mode 0644. 0, or 1 (reported).
int write_parts_data(const char* text, size_t length, const char* path);

// Removes a file, trying three times. 0 when it is gone, also when it never was; 1 (reported).
int delfile(const char* path);

// Runs "parts set REPORT" of the agent for at most six hours. Its exit status, -1 when it could not
// be started, 1 when "KVX_bin" is unset.
int exec_parts_cmd(const char* report_path);

// What to do after the parts command ended with `exit_status`: 0 done, 4 run it again, 1 give up
// (reported). Status 2 allows six runs in all, status 4 one repeat. Keeps a state between calls;
// `counter` is the caller's for one report.
int check_parts_cmd_value(int exit_status, int* counter);

// Removes every `unwanted` from `text` in place. 0, or -1 for an empty text.
int remove_char(char* text, char unwanted);

// `now` as local time, "TIME=yyyy-mm-ddThh:mm:ss+hh:mm".
Text<64> date_tm_tz(std::time_t now);

}  // namespace patrol
