// Waiting for the test programs of a patrol pass.
#pragma once

#include <cstdint>

#include "base/running_tests.h"
#include "report/records.h"

namespace patrol {

// What a wait is told beside its test.
struct TestWait {
    int timeout = 0;                                        // seconds; 0 or below: none
    uint32_t mask = kTypeLog | kTypeStatus | kTypeProcess;  // the record types that are taken
    uint32_t address = 0;                                   // where a disk's test started
    int mode = kRunPatrol;  // or kRunPadiag, for the status and parts routines
};

// Reads the records of `test` until its status record or the end of its pipe. A test that has said
// its last is given `timeout` seconds (0 or below: no limit) until it, or any other child, ends;
// after that it is stopped and its result stands; a pipe that ends without a status record is a
// time-out when the test has run longer than that, and is entered in the history as one. A test
// program that neither writes nor closes its pipe is waited for without limit; SIGINT and SIGHUP
// end the wait when there is nothing to read. Returns 0, or -1 for a test that failed, was skipped
// or aborted, or did not report.
int wait_for_testdata(RunningTest* test, const TestWait& wait);

// Wait for the running tests of a kind. They return 0, or -1 when (one of) the wait(s) failed.
int WaitCpuTest();
int WaitMemTest();
int WaitHddTest();

}  // namespace patrol
