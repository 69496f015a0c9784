// The history files that an administrator reads: "patstat0.txt" for patrol, "pastat.txt" for
// padiag, both in the log directory. Every line begins with a local time stamp.
#pragma once

#include "base/paths.h"
#include "base/running_tests.h"
#include "base/text.h"
#include "state/history_line.h"

namespace patrol {

// Appends "TIME RESULT COMPONENT DEVICE [Ns]MESSAGE" of `test` to the patrol history, stamped with
// the start time; the message follows the "]" directly. The test's clock is sampled; a processor
// test always counts as 1 second, and its running time is set back to 1. A null `message` is none.
// Ages the file first. Returns 0, or -1 when it cannot be opened.
int ptl_history(int result, RunningTest* test, const char* message);

// Appends "TIME RESULT COMPONENT DEVICE [Ns] DETAIL MESSAGE" to the padiag history, stamped with
// the time now. The detail is the pass count, and for a disk at level 3 that was not aborted its
// progress before and after (from "lba_outfile.ini"). Ages the file first. The seconds are what the
// test program last reported, at most the time limit. Returns 0, or -1 when the file cannot be
// opened.
int PadiagHistory(int result, RunningTest* test, const char* message);

// Append the devices, or the test kinds, that a new or changed schedule is for. `mode` is the run
// mode. Return 0, or -1 when the file cannot be opened.
int ptl_change_hist(int mode, const char* devices);
int ptl_change_hist2(int mode);
int PadiagChangeHist(int mode, const char* devices);
int PadiagChangeHist2(int mode);

// Return the paths of the two files.
Path PatrolHistoryPath();
Path PadiagHistoryPath();

// Ages a history file above 1,048,447 bytes. This does not shift generations as one would expect,
// and must stay so: "patstat3.txt" is removed, `path` becomes its name, the renames that follow
// find nothing to rename, and the caller appends to "patstat3.txt" from then on.
void ptl_histfile_cntl(Path* path);

// Returns what follows the first "ERROR   :" of a result text, up to the line's end and at most 80
// characters, in a static buffer that the next call overwrites; null when there is none.
const char* get_error_msg(const char* text);

// Return the word for a result code (empty when unknown), and for the run mode in a mode word.
const char* ptl_result_str(int result);
const char* ptl_histentry_str(int mode);

}  // namespace patrol
