// Waiting for the tests of a padiag run.
#pragma once

namespace patrol {

// Wait for the end of the running test(s) of a kind, without limit, SIGINT and SIGHUP apart; then
// read and remove the output file. A test whose result was not announced while it was read is
// announced and entered as aborted.
void PadiagWaitCpuTest();
void PadiagWaitMemTest();
void PadiagWaitHddTest();

}  // namespace patrol
