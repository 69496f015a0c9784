// Messages for the system log, staged until their group is complete.
#pragma once

namespace patrol {

// Appends a message to "pat_sys.log" in the log directory; I0807 empties the file before, as it
// starts a group, and E0809 hands the lines staged so far to syslog, one record each, as it ends
// the group. The file keeps its lines until the next I0807. No number, or "L1000", stages the text
// alone. Returns 0, or -1 when the file cannot be opened (reported). Lines for which there is no
// room are lost, which is reported once a run.
int ptl_system_logging(const char* number, const char* text);

}  // namespace patrol
