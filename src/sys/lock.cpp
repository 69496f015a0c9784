#include "sys/lock.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "base/file.h"
#include "base/signals.h"

namespace patrol {
namespace {

constexpr suseconds_t kRepeatMicroseconds = 100000;

Descriptor lock_fd;

// A handler is all it takes for the alarm to interrupt the wait.
void lock_timeout(int) {}

// Returns false, with errno set, where the file cannot be had.
bool OpenLockFile(const char* path) {
    // The lock held before is given up even where this one cannot be had.
    lock_fd.Reset(-1);
    lock_fd.Reset(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    return lock_fd.ok();
}

// Rings after `seconds` and then again and again: the first ring may come before the wait begins.
void SetRepeatingAlarm(int seconds) {
    itimerval timer = {};
    if (seconds > 0) {
        timer.it_value.tv_sec = seconds;
        timer.it_interval.tv_usec = kRepeatMicroseconds;
    }
    setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

int lock(const char* path, int seconds) {
    if (!OpenLockFile(path)) return -1;
    struct sigaction before = {};
    sigaction(SIGALRM, nullptr, &before);
    InstallHandler(SIGALRM, lock_timeout);
    sigset_t only;
    sigset_t mask_before;
    sigemptyset(&only);
    sigaddset(&only, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &only, &mask_before);
    SetRepeatingAlarm(seconds);
    const int result = lockf(lock_fd.get(), F_LOCK, 0);
    const int error = errno;
    SetRepeatingAlarm(0);
    sigprocmask(SIG_SETMASK, &mask_before, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    if (result == 0) return 0;
    return error == EINTR ? -2 : -1;
}

int tlock(const char* path) {
    if (!OpenLockFile(path)) return -1;
    return lockf(lock_fd.get(), F_TLOCK, 0) == 0 ? 0 : -1;
}

int unlock() {
    lock_fd.Reset(-1);
    return 0;
}

}  // namespace patrol
