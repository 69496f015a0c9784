// The status record: the last word of a test.
#pragma once

#include "base/running_test.h"
#include "report/records.h"

namespace patrol {

// End codes.
enum : int {
    kEndOk = 1,
    kEndCancel = 2,
    kEndCompleted = 3,
    kEndNg = 4,
    kEndSkip = 5,
    kEndAbort = 6,
};

// Takes the final status of `test`: for a disk the next address goes to the section of its Schedule
// index, a result text goes to the trace-detail log (its carriage returns are removed in place),
// the result to the history. Returns the end code for the caller, or -1 for a bad field (traced;
// nothing was entered); a next address without digits is one. An NG that brings a result text
// returns kEndOk: the text has said it. The flag for a faulty part returns kEndNg whatever the end
// code was.
//
// For a padiag run the padiag Schedule file and history are used instead, a result text is
// announced as an event (after which event_check of the test is 0), and at level 3 the progress is
// worked out from "lba_outfile.ini".
int check_testdata_status(char* body, const RecordContext& context, RunningTest* test,
                          int run_mode);

// Returns the result text in a status body; an empty one where the body ends before it.
char* ResultText(char* body);

}  // namespace patrol
