#include "msg/call_failure.h"

#include <cstring>
#include <string>

#include "msg/ptl_printf.h"
#include "msg/trace.h"

namespace patrol {

void ReportCallFailure(const CallFailure& failure) {
    ptl_printf(kTraceDetail, nullptr, "E3895", failure.call, failure.error);
    // The event comes before the details: the agent is told even where the trace cannot be written.
    if (failure.event_text != nullptr) {
        ptl_printf(kAgentEvent, nullptr, "E3899", failure.event_text);
    }
    if (failure.cause) ptl_printf(kTraceDetail, nullptr, "L1950", std::strerror(failure.error));
    if (failure.file != nullptr) ReportFileName(failure.file, failure.file_note);
    if (failure.mode != nullptr) ptl_printf(kTraceDetail, nullptr, "L1952", failure.mode);
}

void ReportFileTrouble(const char* caller, const char* what, const char* path, const char* call,
                       int error) {
    Ptltrprintf("[%s] Can't %s %s.( %s, errno:%d )\n", caller, what, path, call, error);
    CallFailure failure(call, error);
    const std::string event_text = std::string("file name = ") + path;
    failure.event_text = event_text.c_str();
    failure.file = path;
    ReportCallFailure(failure);
}

void ReportFileName(const char* file, const char* note) {
    ptl_printf(kTraceDetail, nullptr, "L1951", file, note);
}

}  // namespace patrol
