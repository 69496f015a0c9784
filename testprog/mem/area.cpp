#include "mem/area.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "lib/file.h"
#include "lib/options.h"
#include "lib/record.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace testprog {

namespace {

constexpr size_t kLockedAtOnce = 4 << 20;
constexpr size_t kSmallestPiece = 64 << 10;
constexpr size_t kMaxSystemFile = 1 << 20;

size_t PageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

// The number behind a word that begins a line of a file of the system.
std::optional<uint64_t> NumberBehind(const std::string& path, const std::string& word) {
    std::istringstream lines(ReadWhole(path, kMaxSystemFile).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string first;
        uint64_t number = 0;
        if (fields >> first >> number && first == word) return number;
    }
    return std::nullopt;
}

// The files in which a control group tells its limits (what it must not pass, and what slows it
// down), its use, and the file cache in that.
struct GroupFiles {
    const char* limit;
    const char* brake;
    const char* usage;
    const char* cache;
};
constexpr GroupFiles kNewGroups = {"/memory.max", "/memory.high", "/memory.current",
                                   "inactive_file"};
constexpr GroupFiles kOldGroups = {"/memory.limit_in_bytes", "/memory.soft_limit_in_bytes",
                                   "/memory.usage_in_bytes", "total_inactive_file"};

// What the group has left; all there is without a limit.
uint64_t LeftOfGroup(const std::string& directory, const GroupFiles& files) {
    constexpr uint64_t kNone = std::numeric_limits<uint64_t>::max();
    const auto usage = ParseNumber(ReadAttribute(directory + files.usage));
    const uint64_t limit =
        std::min(ParseNumber(ReadAttribute(directory + files.limit)).value_or(kNone),
                 ParseNumber(ReadAttribute(directory + files.brake)).value_or(kNone));
    if (limit == kNone || !usage) return kNone;
    const uint64_t cache = NumberBehind(directory + "/memory.stat", files.cache).value_or(0);
    const uint64_t used = *usage - std::min(*usage, cache);
    return limit - std::min(limit, used);
}

// The least that any group from this one up to the top has left.
uint64_t LeftOfGroups(const std::string& top, std::string group, const GroupFiles& files) {
    uint64_t left = LeftOfGroup(top, files);
    for (; group.size() > 1; group.erase(group.rfind('/'))) {
        left = std::min(left, LeftOfGroup(top + group, files));
    }
    return left;
}

#if defined(__x86_64__)
bool HasFlushWithoutOrder() {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_CLFLUSHOPT) != 0;
}

__attribute__((target("clflushopt"))) void FlushWithoutOrder(const char* from, const char* end,
                                                             size_t line) {
    for (; from < end; from += line) _mm_clflushopt(const_cast<char*>(from));
}
#endif

}  // namespace

std::optional<uint64_t> MemoryToTake(const std::string& root) {
    const auto available = NumberBehind(root + "/proc/meminfo", "MemAvailable:");
    if (!available) return std::nullopt;
    uint64_t left = *available << 10;
    // Lines are "0::/GROUP", or "NUMBER:CONTROLLER,...:/GROUP" of the old kind.
    std::istringstream lines(ReadWhole(root + "/proc/self/cgroup", kMaxSystemFile).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        const size_t first = line.find(':');
        const size_t second = line.find(':', first + 1);
        if (second == std::string::npos) continue;
        const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
        const std::string group = line.substr(second + 1);
        const std::string mount = root + "/sys/fs/cgroup";
        if (controllers == ",,") {
            left = std::min(left, LeftOfGroups(mount, group, kNewGroups));
        } else if (controllers.find(",memory,") != std::string::npos) {
            left = std::min(left, LeftOfGroups(mount + "/memory", group, kOldGroups));
        }
    }
    return left / 4;
}

uint64_t MemoryInAll() {
    return static_cast<uint64_t>(std::max(0L, sysconf(_SC_PHYS_PAGES))) * PageSize();
}

std::vector<int> MemoryNodes() { return ReadNumbers("/sys/devices/system/node/has_memory"); }

bool CanEvict() {
#if defined(__x86_64__) || defined(__aarch64__)
    return true;
#else
    return false;
#endif
}

Area::Area(size_t size, int node, const std::function<bool()>& stop) : mapped_(size) {
    memory_ = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory_ == MAP_FAILED) {
        memory_ = nullptr;
        complaint_ = std::strerror(errno);
        return;
    }
#ifdef SYS_mbind
    if (node >= 0 && node < std::numeric_limits<unsigned long>::digits) {
        constexpr int kPreferred = 1;
        const unsigned long nodes = 1UL << node;
        syscall(SYS_mbind, memory_, size, kPreferred, &nodes,
                std::numeric_limits<unsigned long>::digits + 1, 0);
    }
#endif
    // Piece by piece, because the system clears what it locks, which takes its time; smaller pieces
    // up to a limit.
    char* bytes = static_cast<char*>(memory_);
    for (size_t piece = kLockedAtOnce; size_ < size && !stop();) {
        piece = std::min(piece, size - size_);
        if (mlock(bytes + size_, piece) == 0) {
            size_ += piece;
        } else if (piece > kSmallestPiece) {
            piece = std::max(piece / 2 / kSmallestPiece, size_t{1}) * kSmallestPiece;
        } else {
            complaint_ = std::strerror(errno);
            break;
        }
    }
    ReadFrames();
}

Area::~Area() {
    if (memory_ != nullptr) munmap(memory_, mapped_);
}

void Area::ReadFrames() {
    constexpr uint64_t kPresent = uint64_t{1} << 63;
    constexpr uint64_t kFrame = (uint64_t{1} << 55) - 1;
    const Descriptor map(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC));
    const size_t count = size_ / PageSize();
    std::vector<uint64_t> frames(count);
    const size_t bytes = count * sizeof(uint64_t);
    const auto place = reinterpret_cast<uintptr_t>(memory_) / PageSize() * sizeof(uint64_t);
    if (map.fd < 0 || pread(map.fd, frames.data(), bytes, static_cast<off_t>(place)) !=
                          static_cast<ssize_t>(bytes)) {
        return;
    }
    for (uint64_t& frame : frames) {
        const bool present = (frame & kPresent) != 0;
        frame &= kFrame;
        // Without the right to know, the numbers are 0.
        if (!present || frame == 0) return;
    }
    frames_ = std::move(frames);
}

std::optional<uint64_t> Area::PhysicalAddress(size_t offset) const {
    const size_t page = offset / PageSize();
    if (page >= frames_.size()) return std::nullopt;
    return frames_[page] * PageSize() + offset % PageSize();
}

std::optional<size_t> Area::OffsetOf(const void* address) const {
    const auto at = reinterpret_cast<uintptr_t>(address);
    const auto start = reinterpret_cast<uintptr_t>(memory_);
    if (at < start || at - start >= size_) return std::nullopt;
    return at - start;
}

void Area::Break(size_t offset) {
    const size_t page = offset / PageSize() * PageSize();
    // A file that ends before the page has nothing to give.
    const Descriptor empty(memfd_create("broken", MFD_CLOEXEC));
    [[maybe_unused]] const void* const placed =
        mmap(static_cast<char*>(memory_) + page, PageSize(), PROT_READ | PROT_WRITE,
             MAP_PRIVATE | MAP_FIXED, empty.fd, 0);
}

void RealMemory::MoveBlock(size_t to, size_t from, size_t count) {
    uint64_t* target = const_cast<uint64_t*>(words_ + to);
    const uint64_t* source = const_cast<const uint64_t*>(words_ + from);
#if defined(__x86_64__)
    constexpr size_t kWide = 2;  // words; count is a multiple of kLine
    for (size_t i = 0; i < count; i += kWide) {
        const auto* wide = reinterpret_cast<const __m128i*>(source + i);
        _mm_stream_si128(reinterpret_cast<__m128i*>(target + i), _mm_load_si128(wide));
    }
#else
    std::memcpy(target, source, count * kWord);
#endif
    // Keeps the compiler from joining or leaving out moves.
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void RealMemory::Settle(size_t first, size_t count) {
#if defined(__x86_64__)
    // The writes went past the caches, but may still stand in a buffer.
    static_cast<void>(first);
    static_cast<void>(count);
    _mm_sfence();
#else
    Evict(first, count);
#endif
}

void RealMemory::Evict(size_t first, size_t count) {
    const auto* begin = reinterpret_cast<const char*>(const_cast<const uint64_t*>(words_ + first));
    const char* end = begin + count * kWord;
#if defined(__x86_64__)
    constexpr size_t kLineBytes = kLine * kWord;
    static const bool without_order = HasFlushWithoutOrder();
    if (without_order) {
        FlushWithoutOrder(begin, end, kLineBytes);
    } else {
        for (; begin < end; begin += kLineBytes) _mm_clflush(begin);
    }
    _mm_mfence();
#elif defined(__aarch64__)
    uint64_t sizes = 0;
    asm volatile("mrs %0, ctr_el0" : "=r"(sizes));
    const size_t line = size_t{4} << ((sizes >> 16) & 15U);
    for (; begin < end; begin += line) asm volatile("dc civac, %0" : : "r"(begin) : "memory");
    asm volatile("dsb sy" : : : "memory");
#else
    static_cast<void>(begin);
    static_cast<void>(end);
#endif
}

}  // namespace testprog
