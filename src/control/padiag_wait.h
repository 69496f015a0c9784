// Waiting for the tests of a padiag run.
#pragma once

namespace patrol {

// Wait for the end of the running test(s) of a kind, without limit; then read and remove the output
// file. SIGINT and SIGHUP end the wait for a test that they come in, if it has not ended: it counts
// as an exit with 0, and the file is read as it is. A
// test whose result was not announced while it was read is announced and entered as aborted; one
// whose file cannot be opened in five tries a second apart is not heard of again.
void PadiagWaitCpuTest();
void PadiagWaitMemTest();
void PadiagWaitHddTest();

}  // namespace patrol
