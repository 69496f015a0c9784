#include "sys/retry.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "base/blocking.h"
#include "base/signals.h"
#include "msg/trace.h"
#include "sys/child.h"

namespace patrol {
namespace {

// The errors that the calls below take for passing ones.
bool InterruptedOrShort(int error) { return error == EINTR || error == EAGAIN; }
bool Interrupted(int error) { return error == EINTR; }
bool Short(int error) { return error == EAGAIN; }
bool Always(int) { return true; }

void FilePause() { RetryPause(kFilePauseDivisor); }
void ProcessPause() { RetryPause(kProcessPauseDivisor); }
void NoPause() {}

// Returns rand() as the unsigned number that the pauses multiply, which is meant to wrap.
uint32_t Random() {
    // NOLINTNEXTLINE(cert-msc51-cpp): any number will do
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    return static_cast<uint32_t>(std::rand());
}

// The product wraps like that of the other pauses. It comes out as no pause at all or, clamped, as
// one just below a second.
void AllocationPause() {
    constexpr int32_t kBelowSecond = 999999;
    const auto product = static_cast<int32_t>(Random() / 1000000u * 2147483647u);
    const auto pause = static_cast<useconds_t>(std::clamp(product, 0, kBelowSecond));
    BlockingCall([pause] { usleep(pause); });
}

// Whether a failure is traced: always, unless the attempts were used up, never.
enum Silence { kSpeaks, kSilentWhenSpent, kSilent };

struct Rule {
    const char* name;
    bool (*again)(int error);  // whether an error is worth another attempt
    void (*pause)();
    Silence silence = kSpeaks;
};

// Calls until `failed` is false for the result, `tries` times at most. Returns the result, or
// `failure`.
template <class Result, class Call, class Failed>
Result Retry(const Rule& rule, int tries, Result failure, Call call, Failed failed) {
    int error = 0;
    for (; tries >= 1; --tries) {
        const Result result = call();
        if (!failed(result)) return result;
        error = errno;
        if (!rule.again(error)) {
            if (rule.silence != kSilent) OutTracef("ERROR  END %s()", rule.name);
            errno = error;
            return failure;
        }
        OutTracef("RETRY %s()", rule.name);
        rule.pause();
    }
    if (rule.silence == kSpeaks) OutTracef("ERROR  END %s()", rule.name);
    errno = error;
    return failure;
}

template <class Result>
bool Negative(Result result) {
    return result < 0;
}

bool Null(const void* pointer) { return pointer == nullptr; }

}  // namespace

void RetryPause(int32_t divisor) {
    const auto product = static_cast<int32_t>(Random() * 1000000u);
    // A microsecond at most: no BlockingCall.
    usleep(static_cast<useconds_t>(std::max(product / divisor, 0)));
}

int ropen(const char* path, int flags, int tries) {
    return Retry(
        {"ropen", InterruptedOrShort, FilePause}, tries, -1,
        [&] { return open(path, flags | O_CLOEXEC, 0666); }, Negative<int>);
}

int recreat(const char* path, mode_t mode, int tries, int flags) {
    return Retry(
        {"recreat", InterruptedOrShort, FilePause, kSilentWhenSpent}, tries, -1,
        [&] { return open(path, O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC | flags, mode); },
        Negative<int>);
}

ssize_t rread(int fd, void* buffer, size_t length, int tries) {
    return Retry(
        {"rread", InterruptedOrShort, FilePause}, tries, ssize_t{-1},
        [&] { return read(fd, buffer, length); }, Negative<ssize_t>);
}

ssize_t rwrite(int fd, const void* buffer, size_t length, int tries) {
    return Retry(
        {"rwrite", InterruptedOrShort, FilePause}, tries, ssize_t{-1},
        [&] { return write(fd, buffer, length); }, Negative<ssize_t>);
}

int restat(const char* path, struct stat* status, int tries) {
    return Retry(
        {"restat", Interrupted, FilePause, kSilent}, tries, -1, [&] { return stat(path, status); },
        Negative<int>);
}

int refstat(int fd, struct stat* status, int tries) {
    return Retry(
        {"refstat", Interrupted, FilePause}, tries, -1, [&] { return fstat(fd, status); },
        Negative<int>);
}

void* recalloc(size_t count, size_t size, int tries) {
    return Retry(
        {"recalloc", Short, AllocationPause}, tries, static_cast<void*>(nullptr),
        [&] { return std::calloc(count, size); }, Null);
}

void* rrealloc(void* pointer, size_t size, int tries) {
    return Retry(
        {"rrealloc", Short, FilePause}, tries, static_cast<void*>(nullptr),
        [&] { return std::realloc(pointer, size); }, Null);
}

void* rmmap(void* address, size_t length, int protection, int flags, int fd, off_t offset,
            int tries) {
    return Retry(
        {"rmmap", Short, FilePause}, tries, static_cast<void*>(nullptr),
        [&] { return mmap(address, length, protection, flags, fd, offset); }, Null);
}

int rmunmap(void* address, size_t length, int tries) {
    return Retry(
        {"rmunmap", Short, NoPause}, tries, -1, [&] { return munmap(address, length); },
        [](int result) { return result <= 0; });
}

pid_t rfork(int tries) {
    return Retry(
        {"rfork", Always, ProcessPause, kSilent}, tries, pid_t{-1}, [] { return fork(); },
        Negative<pid_t>);
}

int rexecv(const char* path, char* const* arguments, int tries) {
    return Retry(
        {"rexecv", Interrupted, ProcessPause}, tries, -1,
        [&] { return ExecuteProgram(path, arguments); }, Negative<int>);
}

pid_t rwait(pid_t child, int* status, int tries) {
    return Retry(
        {"rwait", Interrupted, ProcessPause, kSilent}, tries, pid_t{-1},
        [&] { return WaitForChild(child, status, 0); }, Negative<pid_t>);
}

int rsignal(int signal, void (*handler)(int), int tries) {
    return Retry(
        {"rsignal", Interrupted, ProcessPause}, tries, -1,
        [&] { return InstallHandler(signal, handler); }, Negative<int>);
}

}  // namespace patrol
