// The padiag launchers: what is requested, with which command line is its test started.
#pragma once

#include <string>

#include "base/running_test.h"

namespace patrol {

// Start the requested tests at padiag_level, announce each, and note what its wait needs. 1
// started, 0 not requested or the level is none of 1 to 3, -1 failed (traced). Of the disks, the
// result is that of the last one tried.
int PadiagCpuTestExec();
int PadiagMemTestExec();
int PadiagHddTestExec();

// The output file of a test, in the log directory.
std::string OutputPath(const RunningTest& test);

}  // namespace patrol
