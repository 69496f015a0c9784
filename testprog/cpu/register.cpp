#include <array>
#include <cstring>
#include <utility>

#include "cpu/check.h"
#include "lib/record.h"

namespace testprog {

namespace {

// More values than a machine has registers to keep across a call.
constexpr size_t kValues = 12;
constexpr size_t kDepth = 8;

// Every bit of every value stays in the result, and one value does not undo another.
template <typename T>
uint64_t Blend(uint64_t so_far, T value) {
    static_assert(sizeof value == sizeof so_far, "values are blended bit by bit");
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return Rotate(so_far, 5) + bits;
}

// Hands its values on by one place at each call and blends them after the call has come back, so
// that all of them live across it, in registers where there are any left.
template <typename T>
[[gnu::noinline]] uint64_t Carry(T a, T b, T c, T d, T e, T f, T g, T h, T i, T j, T k, T l,
                                 size_t depth) {
    uint64_t result = depth == 0 ? 0 : Carry(b, c, d, e, f, g, h, i, j, k, l, a, depth - 1);
    result = Blend(Blend(Blend(Blend(result, a), b), c), d);
    result = Blend(Blend(Blend(Blend(result, e), f), g), h);
    return Blend(Blend(Blend(Blend(result, i), j), k), l);
}

// The same in memory: the deepest call blends first.
template <typename T>
uint64_t CarryInMemory(const std::array<T, kValues>& values) {
    volatile T cells[kValues] = {};
    for (size_t i = 0; i < kValues; ++i) cells[i] = values.at(i);
    uint64_t result = 0;
    for (size_t call = kDepth + 1; call-- > 0;) {
        for (size_t i = 0; i < kValues; ++i) {
            result = Blend(result, T{cells[(call + i) % kValues]});
        }
    }
    return result;
}

template <typename T, size_t... kIndex>
uint64_t CarryInRegisters(const std::array<T, kValues>& values, std::index_sequence<kIndex...>) {
    return Carry(values.at(kIndex)..., kDepth);
}

template <typename T>
Answer Compare(const std::array<T, kValues>& values) {
    return {CarryInMemory(values), CarryInRegisters(values, std::make_index_sequence<kValues>())};
}

constexpr uint64_t kPatterns[] = {0x0000000000000000, 0xffffffffffffffff, 0x5555555555555555,
                                  0xaaaaaaaaaaaaaaaa, 0x0123456789abcdef, 0x8000000000000001};

// The pattern with some bits changed, in another place for each value, so that no two are equal.
uint64_t ValueAt(unsigned place, uint64_t pattern, uint64_t variant) {
    return Rotate(pattern ^ variant, 7 * place);
}

Answer WholeRegisters(uint64_t pattern, uint64_t variant) {
    std::array<uint64_t, kValues> values = {};
    unsigned place = 0;
    for (uint64_t& value : values) value = ValueAt(place++, pattern, variant);
    return Compare(values);
}

Answer FloatRegisters(uint64_t pattern, uint64_t variant) {
    constexpr uint64_t kExponent = 0x7ff0000000000000;
    std::array<double, kValues> values = {};
    unsigned place = 0;
    for (double& value : values) {
        uint64_t bits = ValueAt(place++, pattern, variant);
        // Of values that are no numbers a processor may change bits as it moves them.
        if ((bits & kExponent) == kExponent) bits ^= uint64_t{1} << 62;
        std::memcpy(&value, &bits, sizeof value);
    }
    return Compare(values);
}

}  // namespace

std::vector<Check> RegisterChecks() {
    std::vector<Check> checks;
    for (const uint64_t pattern : kPatterns) {
        const auto shown = static_cast<unsigned>(pattern >> 48);
        checks.push_back({Format("register %04x", shown), 1000, [pattern](uint64_t variant) {
                              return WholeRegisters(pattern, variant);
                          }});
        checks.push_back({Format("fp reg %04x", shown), 1000, [pattern](uint64_t variant) {
                              return FloatRegisters(pattern, variant);
                          }});
    }
    return checks;
}

}  // namespace testprog
