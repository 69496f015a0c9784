#include "cpu/check.h"
#include "lib/record.h"

namespace testprog {

namespace {

// One word, one cache line, and a page with a line, which visits every set in turn.
constexpr size_t kStrides[] = {8, 64, 4160};
constexpr size_t kWord = sizeof(uint64_t);
constexpr size_t kWordsBetweenStops = 16384;

// Calls `visit` for the index of every word once, `stride` bytes on each time; ends early when
// `visit` returns false.
template <typename Visit>
void Walk(size_t size, size_t stride, const Visit& visit) {
    for (size_t first = 0; first < stride; first += kWord) {
        for (size_t at = first; at < size; at += stride) {
            if (!visit(at / kWord)) return;
        }
    }
}

Answer WalkArea(uint64_t* words, size_t size, size_t stride, uint64_t variant,
                const std::function<bool()>& stop) {
    volatile uint64_t* cells = words;
    const auto datum = [variant](size_t i) { return (i * kWord) ^ variant; };
    size_t visited = 0;
    const auto going_on = [&visited, &stop] {
        return ++visited % kWordsBetweenStops != 0 || !stop();
    };
    bool whole = true;
    Walk(size, stride, [&](size_t i) {
        cells[i] = datum(i);
        return whole = going_on();
    });
    Answer answer{0, 0};
    if (!whole) return answer;
    Walk(size, stride, [&](size_t i) {
        answer = {datum(i), cells[i]};
        return answer.expected == answer.got && going_on();
    });
    return answer;
}

}  // namespace

std::vector<Check> CacheChecks(const std::shared_ptr<uint64_t>& memory,
                               const std::vector<size_t>& sizes,
                               const std::function<bool()>& stop) {
    std::vector<Check> checks;
    for (const size_t size : sizes) {
        const bool small = size < 1 << 20;
        for (const size_t stride : kStrides) {
            checks.push_back(
                {Format("walk %zu%c/%zu", size >> (small ? 10 : 20), small ? 'K' : 'M', stride), 1,
                 [memory, size, stride, stop](uint64_t variant) {
                     return WalkArea(memory.get(), size, stride, variant, stop);
                 }});
        }
    }
    return checks;
}

}  // namespace testprog
