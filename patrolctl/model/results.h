// The histories: what tests have found.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "model/places.h"
#include "state/history_line.h"

namespace patrolctl {

struct Result {
    std::time_t time = 0;
    int code = patrol::kResultOk;
    int kind = 0;  // of base/kinds.h; 0 for a component that is none of them
    std::string program;
    std::string device;
    int seconds = 0;
    std::string text;
    // Only of an on-request run.
    std::optional<patrol::PadiagDetail> request;

    const char* Word() const { return patrol::kResultWords[code]; }
    // An OK with a text says why nothing was tested.
    bool Skipped() const { return code == patrol::kResultOk && !text.empty(); }
    // ERROR, TIMEOUT and ABORT.
    bool Failed() const;
};

struct Results {
    std::vector<Result> list;         // in time order
    std::time_t first = 0;            // of anything entered at all; 0: there is nothing
    std::vector<std::string> faults;  // what could not be read, a sentence each
};

// Reads both histories and the aged one. A file that is not there is no fault.
Results ReadResults(const Places& places);

// The results in a piece of an on-request history.
std::vector<Result> ParseRequestResults(std::string_view text);

}  // namespace patrolctl
