// The commands. Each writes to standard output and returns the exit status.
#pragma once

#include "options.h"

namespace patrolctl {

int RunStatus(const Options& options);
int RunNext(const Options& options);
int RunHistory(const Options& options);
int RunFaults(const Options& options);
int RunCheck(const Options& options);
int RunMetrics(const Options& options);
int RunDoctor(const Options& options);
int RunDiagnosis(const Options& options);
int RunValidate(const Options& options);
int RunReport(const Options& options);

}  // namespace patrolctl
