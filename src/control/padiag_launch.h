// The padiag launchers decide what is requested, and with which command line its test is started.
#pragma once

#include <string>

#include "base/running_tests.h"

namespace patrol {

// Start the requested tests at padiag_level, announce each, and note what its wait needs. They
// return 1 when the test was started, 0 when it is not requested or the level is none of 1 to 3,
// and -1 when it failed to start (traced). Of the disks, the result is that of the last one tried.
int PadiagCpuTestExec();
int PadiagMemTestExec();
int PadiagHddTestExec();

// Returns the path of a test's output file, in the log directory.
std::string OutputPath(const RunningTest& test);

}  // namespace patrol
