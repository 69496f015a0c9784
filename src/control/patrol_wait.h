// Waiting for the test programs of a patrol pass.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace patrol {

// Everything that a wait is told about its test.
struct TestWait {
    int kind;
    int timeout;  // seconds; 0 or below: none
    const char* device;
    uint32_t mask;       // the record types that are taken
    int schedule_index;  // of a disk
    uint32_t address;    // where a disk's test started
    int32_t read_fd;
    pid_t pid;
    int entry;  // of a disk in hdd_exec_tbl
    int mode;   // kRunPatrol or kRunPadiag, for the status and parts routines
};

// Reads the records of one test until its status record or the end of its pipe. A test that has
// said its last is given `timeout` seconds (0 or below: no limit) until it, or any other child,
// ends; after that it is stopped and its result stands; a pipe that ends without a status record is
// a time-out when the test has run longer than that, and is entered in the history as one. A test
// program that neither writes nor closes its pipe is waited for without limit, SIGINT and SIGHUP
// apart. 0, or -1 for a test that failed, was skipped or aborted, or did not report.
int wait_for_testdata(const TestWait& wait);

// Wait for the running tests of a kind. 0, or -1 when (one of) the wait(s) failed.
int WaitCpuTest();
int WaitMemTest();
int WaitHddTest();

}  // namespace patrol
