// The processors of the machine, and threads that stay on one of them.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <vector>

namespace testprog {

// Returns the processors that the system has online, or as many as it counts where it has no list.
std::vector<int> OnlineProcessors();

// Returns those that the process may run on, as it was started or bound last.
std::vector<int> AllowedProcessors();

// Binds the calling thread. Returns false, with errno set, where the system does not have or give
// that processor.
bool BindTo(int processor);

// Returns the sizes of the processor's data caches in bytes, the smallest first; typical ones where
// the system does not tell.
std::vector<size_t> CacheSizes(int processor);

// A thread bound to one processor.
class BoundThread {
 public:
    // Starts the thread, which calls `work` with true, or with false where it cannot be bound.
    // Where no thread can be started, `work` is never called. It ends where it throws
    // std::bad_alloc.
    BoundThread(int processor, std::function<void(bool bound)> work);
    // Waits for the end of `work`.
    ~BoundThread();
    BoundThread(const BoundThread&) = delete;
    BoundThread& operator=(const BoundThread&) = delete;

    bool started() const { return started_; }
    bool running() const { return running_; }
    // Whether `work` found no memory. To be asked when the thread is running no more.
    bool starved() const { return starved_; }

 private:
    int processor_;
    std::function<void(bool bound)> work_;
    pthread_t thread_ = {};
    bool started_;
    std::atomic<bool> running_{true};
    bool starved_ = false;
};

}  // namespace testprog
