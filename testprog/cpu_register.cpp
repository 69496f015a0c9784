#include <array>
#include <cstring>
#include <utility>

#include "cpu_check.h"
#include "record.h"

namespace testprog {

namespace {

// More values than a machine has registers to keep across a call.
constexpr std::size_t kValues = 12;
constexpr std::size_t kDepth = 8;

std::uint64_t Blend(std::uint64_t so_far, std::uint64_t value) { return Rotate(so_far, 5) ^ value; }
double Blend(double so_far, double value) { return so_far * 0.5 + value; }

// Hands its values on by one place at each call and blends them after the call has come back, so
// that all of them live across it, in registers where there are any left.
template <typename T>
[[gnu::noinline]] T Carry(T a, T b, T c, T d, T e, T f, T g, T h, T i, T j, T k, T l,
                          std::size_t depth) {
    T result = depth == 0 ? T{} : Carry(b, c, d, e, f, g, h, i, j, k, l, a, depth - 1);
    result = Blend(Blend(Blend(Blend(result, a), b), c), d);
    result = Blend(Blend(Blend(Blend(result, e), f), g), h);
    return Blend(Blend(Blend(Blend(result, i), j), k), l);
}

// The same in memory: the deepest call blends first.
template <typename T>
T CarryInMemory(const std::array<T, kValues>& values) {
    volatile T cells[kValues] = {};
    for (std::size_t i = 0; i < kValues; ++i) cells[i] = values.at(i);
    T result{};
    for (std::size_t call = kDepth + 1; call-- > 0;) {
        for (std::size_t i = 0; i < kValues; ++i) {
            result = Blend(result, T{cells[(call + i) % kValues]});
        }
    }
    return result;
}

template <typename T, std::size_t... kIndex>
T CarryInRegisters(const std::array<T, kValues>& values, std::index_sequence<kIndex...>) {
    return Carry(values.at(kIndex)..., kDepth);
}

template <typename T>
Answer Compare(const std::array<T, kValues>& values) {
    static_assert(sizeof(T) == sizeof(std::uint64_t), "answers are compared bit by bit");
    const T expected = CarryInMemory(values);
    const T got = CarryInRegisters(values, std::make_index_sequence<kValues>());
    Answer answer{};
    std::memcpy(&answer.expected, &expected, sizeof expected);
    std::memcpy(&answer.got, &got, sizeof got);
    return answer;
}

constexpr std::uint64_t kPatterns[] = {0x0000000000000000, 0xffffffffffffffff, 0x5555555555555555,
                                       0xaaaaaaaaaaaaaaaa, 0x0123456789abcdef, 0x8000000000000001};

Answer WholeRegisters(std::uint64_t pattern) {
    std::array<std::uint64_t, kValues> values{};
    unsigned turn = 0;
    for (std::uint64_t& value : values) value = Rotate(pattern, 5 * turn++);
    return Compare(values);
}

Answer FloatRegisters(std::uint64_t pattern) {
    std::array<double, kValues> values{};
    unsigned turn = 0;
    for (double& value : values) value = static_cast<double>(Rotate(pattern, 5 * turn++) >> 32);
    return Compare(values);
}

}  // namespace

std::vector<Check> RegisterChecks() {
    std::vector<Check> checks;
    for (const std::uint64_t pattern : kPatterns) {
        const auto shown = static_cast<unsigned>(pattern >> 48);
        checks.push_back({Format("register %04x", shown), 2000,
                          [pattern](std::uint64_t) { return WholeRegisters(pattern); }});
        checks.push_back({Format("float register %04x", shown), 2000,
                          [pattern](std::uint64_t) { return FloatRegisters(pattern); }});
    }
    return checks;
}

}  // namespace testprog
