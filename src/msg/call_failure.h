// How a failed system call is reported: one group of messages, in one order.
//
// The log writers do not come here: their failures would lead back to them.
#pragma once

#include "base/text.h"

namespace patrol {

struct CallFailure {
    CallFailure(const char* failed_call, int failed_errno)
        : call(failed_call), error(failed_errno) {}

    const char* call;
    int error;                         // errno, saved at the failing call
    const char* event_text = nullptr;  // argument of the event E3899 to the agent
    bool cause = true;                 // L1950, the text of the error
    const char* file = nullptr;        // L1951, with `file_note` behind the name
    const char* file_note = "";
    const char* mode = nullptr;  // L1952
};

// Reports E3895 (call, errno) and then, as far as the failure has them: E3899 as an event, L1950,
// L1951, L1952. All but the event go to the trace-detail log.
void ReportCallFailure(const CallFailure& failure);

// Tells that something could not be done with a file: a trace line of `caller` ("Can't `what`
// `path`."), and the group above with the file's name in the event.
void ReportFileTrouble(const char* caller, const char* what, const char* path, const char* call,
                       int error);

// Reports L1951 alone: the name of a file with a note behind it.
void ReportFileName(const char* file, const char* note);

}  // namespace patrol
