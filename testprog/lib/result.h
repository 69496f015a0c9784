// The result block: the text of a status record that people read, in the log, in the history and
// in the part report.

#pragma once

#include <string>
#include <vector>

#include "lib/record.h"

namespace testprog {

// How long the test was meant to run.
struct Extent {
    enum class Kind { kRound, kMinutes, kEndless };
    Kind kind = Kind::kRound;
    long minutes = 0;
};

struct Result {
    bool patrol = false;  // else an on-request run or one by hand
    std::string program;
    std::string title;
    std::string device;
    long level = 0;
    Extent extent;
    EndCode code = EndCode::kOk;
    long passes = 0;
    // Why the test ended as it did, one line; empty for none. The controller puts its first 80
    // characters into the history and takes the line as the summary of a part report.
    std::string error;
    // What else people may want to know. The first ten are taken, each cut at 160 characters, so
    // that the block stays within what the controller keeps of it.
    std::vector<std::string> details;
};

// The block from "[[[[" to the closing line, which has no line feed: the status record adds it.
// The controller finds the program under "PROGRAM : ", the device under "DEVICE  : " and the
// error under "ERROR   : ", each at the start of its line.
std::string ResultBlock(const Result& result);

}  // namespace testprog
