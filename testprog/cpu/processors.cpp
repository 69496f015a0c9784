#include "cpu/processors.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <numeric>
#include <string>
#include <utility>

#include "lib/file.h"
#include "lib/record.h"

namespace testprog {

namespace {

// More than any machine has.
constexpr size_t kMaxProcessors = 1 << 16;
// Of a thread, whatever the limit that the program was started with.
constexpr size_t kStackSize = size_t{1} << 20;

}  // namespace

std::vector<int> OnlineProcessors() {
    std::vector<int> processors = ReadNumbers("/sys/devices/system/cpu/online");
    if (processors.empty()) {
        processors.resize(static_cast<size_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN))));
        std::iota(processors.begin(), processors.end(), 0);
    }
    return processors;
}

std::vector<int> AllowedProcessors() {
    std::vector<int> processors;
    for (size_t count = CPU_SETSIZE; count <= kMaxProcessors; count *= 2) {
        std::vector<cpu_set_t> sets(count / CPU_SETSIZE);
        const size_t size = sets.size() * sizeof sets[0];
        if (sched_getaffinity(0, size, sets.data()) != 0) {
            if (errno == EINVAL) continue;  // the system knows of more
            break;
        }
        for (size_t i = 0; i < count; ++i) {
            if (CPU_ISSET_S(i, size, sets.data())) processors.push_back(static_cast<int>(i));
        }
        break;
    }
    return processors;
}

bool BindTo(int processor) {
    const auto number = static_cast<size_t>(processor);
    std::vector<cpu_set_t> sets(number / CPU_SETSIZE + 1);
    const size_t size = sets.size() * sizeof sets[0];
    CPU_SET_S(number, size, sets.data());
    return sched_setaffinity(0, size, sets.data()) == 0;
}

std::vector<size_t> CacheSizes(int processor) {
    std::vector<size_t> sizes;
    for (int index = 0; index < 16; ++index) {
        const std::string cache =
            Format("/sys/devices/system/cpu/cpu%d/cache/index%d/", processor, index);
        if (ReadAttribute(cache + "type") == "Instruction") continue;
        const std::string size = ReadAttribute(cache + "size");  // as "48K"
        const size_t number = std::strtoul(size.c_str(), nullptr, 10);
        const unsigned shift = size.find('K') < size.size()   ? 10
                               : size.find('M') < size.size() ? 20
                                                              : 0;
        if (number > 0 && number < (size_t{1} << 20)) sizes.push_back(number << shift);
    }
    if (sizes.empty()) sizes = {size_t{32} << 10, size_t{1} << 20, size_t{16} << 20};
    std::sort(sizes.begin(), sizes.end());
    return sizes;
}

BoundThread::BoundThread(int processor, std::function<void(bool bound)> work)
    : processor_(processor), work_(std::move(work)) {
    const auto run = [](void* self) -> void* {
        auto* thread = static_cast<BoundThread*>(self);
        try {
            thread->work_(BindTo(thread->processor_));
        } catch (const std::bad_alloc&) {
            thread->starved_ = true;
        }
        thread->running_ = false;
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackSize);
    started_ = pthread_create(&thread_, &attributes, run, this) == 0;
    pthread_attr_destroy(&attributes);
    if (!started_) running_ = false;
}

BoundThread::~BoundThread() {
    if (started_) pthread_join(thread_, nullptr);
}

}  // namespace testprog
