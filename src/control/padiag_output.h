// Reading the output file of a padiag test.
#pragma once

#include <cstdio>

namespace patrol {

// Whose output it is.
struct PadiagOutput {
    const char* caller;  // the routine to trace under
    int kind;
    const char* kind_name;
    const char* device;  // as history, report and events name it
    int schedule_index;  // of a disk
    int entry;           // of a disk in hdd_exec_tbl
};

// Reads the records of `file` to its end, line by line (longer lines than 511 characters count as
// several). A progress record is one line; a status record goes on to a line that begins with
// "====="; lines that belong to no record are passed over, and so is a status record that is not
// finished. A test that found a faulty component ends in a part report.
void ReadPadiagOutput(const PadiagOutput& output, FILE* file);

}  // namespace patrol
