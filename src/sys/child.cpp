#include "sys/child.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "base/signals.h"
#include "msg/log_files.h"
#include "msg/trace.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr int kNotExecuted = 127;

// Makes `fd` the child's descriptor `target`.
void Route(int fd, int target) {
    if (fd < 0) return;
    const int result = fd == target ? fcntl(fd, F_SETFD, 0) : dup2(fd, target);
    if (result < 0) _exit(kNotExecuted);
}

[[noreturn]] void RunChild(const ChildStart& start) {
    ClearLogBuffers();
    trpurge();
    RestoreSignalsInChild();
    Route(start.error, STDERR_FILENO);
    Route(start.output, STDOUT_FILENO);
    start.run();
    _exit(kNotExecuted);
}

}  // namespace

pid_t StartChild(const ChildStart& start) {
    PutProfileWrites();
    FlushLogBuffers();
    std::fflush(nullptr);
    const pid_t pid = start.fork_call != nullptr ? start.fork_call() : fork();
    if (pid == 0) RunChild(start);
    if (pid > 0) NoteNewChild(pid);
    return pid;
}

}  // namespace patrol
