// The status record: the last word of a test.
#pragma once

#include <cstdint>

#include "base/running_tests.h"
#include "base/text.h"
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

// Returns the result code that a test with this end code has in the history.
int HistoryResult(int end_code);

// Bits of the flag.
inline constexpr uint32_t kFlagNextAddress = 1;
inline constexpr uint32_t kFlagResultText = 2;  // brings a next address too
inline constexpr uint32_t kFlagFaulty = 4;

// A status body as it reads, before anything is done about it.
struct Status {
    Text<5> code_field;
    int end_code = 0;
    Text<5> flag_field;
    uint32_t flag = 0;
    Text<11> address_field;
    uint32_t next_address = 0;
    int address_error = 0;  // errno of the conversion

    bool Has(uint32_t bits) const { return (flag & bits) != 0; }
    bool HasText() const { return Has(kFlagResultText); }
    bool HasAddress() const { return Has(kFlagNextAddress | kFlagResultText); }
    bool ValidCode() const { return end_code >= kEndOk && end_code <= kEndAbort; }
    // An address of 0 is one, unless that is what no number came to.
    bool ValidAddress() const { return next_address != 0 || address_error == 0; }

    // What the caller is told: the flag alone makes a faulty part, an NG that was explained by a
    // text does not.
    int CodeForCaller() const {
        if (Has(kFlagFaulty)) return kEndNg;
        return end_code == kEndNg && HasText() ? int{kEndOk} : end_code;
    }
};
Status ParseStatus(const char* body);

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
