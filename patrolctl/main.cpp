// patrolctl: shows what the patrol diagnosis does, asks it, and warns.

#include <cstdio>

#include "options.h"

int main(int argc, char** argv) {
    patrolctl::Options options;
    int status = patrolctl::kExitUsage;
    const patrolctl::Command command = patrolctl::ParseCommandLine(argc, argv, &options, &status);
    if (command != nullptr) status = command(options);
    // A reader that went away has seen what it wanted; a full disk has not.
    const bool lost = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (lost && status == patrolctl::kExitOk) status = patrolctl::kExitFailed;
    return status;
}
