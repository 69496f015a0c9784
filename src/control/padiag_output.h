// Reading the output file of a padiag test.
#pragma once

#include <cstdio>

#include "base/running_tests.h"

namespace patrol {

// Reads the records that `test` has written to `file` to its end, line by line (longer lines than
// 511 characters count as several). A progress record is one line; a status record goes on to a
// line that begins with "====="; lines that belong to no record are passed over, and so is a status
// record that is not finished. A test that found a faulty component ends in a part report. `caller`
// is the routine to trace under.
void ReadPadiagOutput(const char* caller, RunningTest* test, FILE* file);

}  // namespace patrol
