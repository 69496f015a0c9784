// System calls that are tried again when a signal interrupts them or resources are short.
//
// All take the arguments of the call and then how many attempts they may make; below 1 they fail
// without a call. Each retry and each final failure leaves a line "[for parts], RETRY NAME()" or
// "[for parts], ERROR  END NAME()" in the trace, except where noted. errno is that of the last
// call, 0 without one.
//
// Which errors are worth another attempt, and what counts as a failure, differs from call to call;
// readers of the trace know the differences, so they stay.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace patrol {

// Retried on EINTR and EAGAIN. Return what the call returns, -1 on failure.
int ropen(const char* path, int flags, int tries);
// Says nothing when the attempts are used up. `flags` stand beside those of creat.
int recreat(const char* path, mode_t mode, int tries, int flags = 0);
ssize_t rread(int fd, void* buffer, size_t length, int tries);
ssize_t rwrite(int fd, const void* buffer, size_t length, int tries);

// Retried on EINTR. Return 0, or -1 on failure; restat never says that it failed.
int restat(const char* path, struct stat* status, int tries);
int refstat(int fd, struct stat* status, int tries);

// Retried on EAGAIN. Return null on failure. The pause of recalloc is longer, below a second.
void* recalloc(size_t count, size_t size, int tries);
void* rrealloc(void* pointer, size_t size, int tries);

// Retried on EAGAIN. rmmap takes null alone for a failure, so a refused mapping comes back as
// MAP_FAILED without a word; rmunmap takes 0 for one, so a successful unmapping returns -1. Callers
// that check must know both.
void* rmmap(void* address, size_t length, int protection, int flags, int fd, off_t offset,
            int tries);
int rmunmap(void* address, size_t length, int tries);

// fork, retried after any failure, because a full process table empties again.
pid_t rfork(int tries);

// execv, retried on EINTR alone. Returns -1 when the program could not be executed.
int rexecv(const char* path, char* const* arguments, int tries);

// Waits for the end of `child`, again when a signal ends the wait. Returns its pid, or -1.
pid_t rwait(pid_t child, int* status, int tries);

// Installs a handler, retried on EINTR. Returns 0 or -1.
int rsignal(int signal, void (*handler)(int), int tries);

// Pauses before a retry, at most a microsecond: a random number divided by `divisor`. The two
// divisors are those of the file calls and of the process calls.
inline constexpr int32_t kFilePauseDivisor = 2147483646;
inline constexpr int32_t kProcessPauseDivisor = 2147483647;
void RetryPause(int32_t divisor);

}  // namespace patrol
