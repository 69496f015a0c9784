// Commands that people already trust, run as tests: "-tp ext:NAME".
//
// NAME stands for the file "ext_NAME.ini" in the data directory ("KVX_data"), which says what to
// run and what its end means; docs/test-programs.md describes it. Each test program hands such a
// run over before anything else, so that choosing a command is a matter of the settings alone.
#pragma once

#include <string>

namespace testprog {

// Whether the words of a command line ask for a command.
bool AsksForExternal(int argc, const char* const* argv);

// The rest of a test program's main in that case; in any other the test is skipped. `program` is
// the test program's name, under which the records go out. Takes every word that the controller
// gives to any test program. Returns the exit status.
int RunExternal(const std::string& program, int argc, const char* const* argv);

}  // namespace testprog
