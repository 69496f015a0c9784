// patrolctl: shows what the patrol diagnosis does, asks it, and warns.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "options.h"

namespace {

// Keeps files that are opened later off a standard descriptor that is closed; using it fails as
// before.
void FillStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        const int flags = fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", flags) < 0) return;
    }
}

}  // namespace

int main(int argc, char** argv) {
    FillStandardDescriptors();
    patrolctl::Options options;
    int status = patrolctl::kExitUsage;
    const patrolctl::Command command = patrolctl::ParseCommandLine(argc, argv, &options, &status);
    if (command != nullptr) status = command(options);
    // A reader that went away has seen what it wanted; a full disk has not.
    const bool lost = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (lost) std::fputs("patrolctl: standard output could not be written\n", stderr);
    const bool shown = status == patrolctl::kExitOk || status == patrolctl::kExitUnreadable;
    if (lost && shown) status = patrolctl::kExitFailed;
    return status;
}
