#include <algorithm>
#include <cstring>
#include <string_view>

#include "cpu/check.h"
#include "cpu/operations.h"

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace testprog {

namespace {

using Compute = void (*)(const Operands& operands, Words& results);

struct Kernel {
    std::string_view operation;
    Compute compute;
};

// Vectors that are in registers at once: an instruction's list of operands has room for no more.
[[maybe_unused]] constexpr size_t kHeld = 14;

// Has the vectors of an array in registers of the class `kind`, of which none is in the list that
// follows, and puts them back.
#define HOLD(values, kind, ...)                                                          \
    asm volatile(""                                                                      \
                 : kind(values[0]), kind(values[1]), kind(values[2]), kind(values[3]),   \
                   kind(values[4]), kind(values[5]), kind(values[6]), kind(values[7]),   \
                   kind(values[8]), kind(values[9]), kind(values[10]), kind(values[11]), \
                   kind(values[12]), kind(values[13])                                    \
                 :                                                                       \
                 : __VA_ARGS__)

#if defined(__x86_64__)

namespace sse2 {
#define VECTOR_BYTES 16
#define VECTOR_TARGET
#define VECTOR_SQRT _mm_sqrt_pd
#define VECTOR_HOLD(values) HOLD(values, "+x", "memory")
#include "cpu/vector_kernels.inc"
}  // namespace sse2

namespace avx2 {
#define VECTOR_BYTES 32
#define VECTOR_TARGET __attribute__((target("avx2,fma")))
#define VECTOR_SQRT _mm256_sqrt_pd
#define VECTOR_FMA _mm256_fmadd_pd
#define VECTOR_HOLD(values) HOLD(values, "+x", "memory")
#include "cpu/vector_kernels.inc"
}  // namespace avx2

namespace avx512 {
#define VECTOR_BYTES 64
#define VECTOR_TARGET __attribute__((target("avx512f,avx512dq")))
#define VECTOR_SQRT(reals) _mm512_maskz_sqrt_pd(0xff, reals)
#define VECTOR_FMA _mm512_fmadd_pd
// First in any registers, then in the upper half of them, which only this unit has.
#define VECTOR_HOLD(values)                                                                    \
    HOLD(values, "+v", "memory");                                                              \
    HOLD(values, "+v", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", \
         "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15")
#include "cpu/vector_kernels.inc"
}  // namespace avx512

#elif defined(__aarch64__)

namespace neon {
#define VECTOR_BYTES 16
#define VECTOR_TARGET
#define VECTOR_SQRT vsqrtq_f64
#define VECTOR_FMA(x, y, z) vfmaq_f64(z, x, y)
#define VECTOR_HOLD(values) HOLD(values, "+w", "memory")
#include "cpu/vector_kernels.inc"
}  // namespace neon

#endif

#undef HOLD

// What one vector unit can do.
struct Set {
    const char* name;
    bool present;
    const Kernel* begin;
    const Kernel* end;
    Compute carry;
};

std::vector<Set> Sets() {
#if defined(__x86_64__)
    const bool wide = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    const bool widest = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
    return {{"sse2", true, std::begin(sse2::kKernels), std::end(sse2::kKernels), sse2::Carry},
            {"avx2", wide, std::begin(avx2::kKernels), std::end(avx2::kKernels), avx2::Carry},
            {"avx512", widest, std::begin(avx512::kKernels), std::end(avx512::kKernels),
             avx512::Carry}};
#elif defined(__aarch64__)
    return {{"neon", true, std::begin(neon::kKernels), std::end(neon::kKernels), neon::Carry}};
#else
    return {};
#endif
}

Answer CompareCarried(Compute carry, uint64_t variant) {
    const Operands operands = MakeOperands(variant);
    Words results = {};
    carry(operands, results);
    const auto [expected, got] =
        std::mismatch(operands.x.begin(), operands.x.end(), results.begin());
    if (expected == operands.x.end()) return {0, 0};
    return {*expected, *got};
}

}  // namespace

std::vector<Unit> VectorUnits() {
    std::vector<Unit> units;
    for (const Set& set : Sets()) {
        if (!set.present) continue;
        for (const Kernel* kernel = set.begin; kernel != set.end; ++kernel) {
            const auto* same = std::find_if(
                kOperations.begin(), kOperations.end(),
                [kernel](const Operation& known) { return known.name == kernel->operation; });
            units.push_back({std::string(set.name) + " " + same->name, kernel->compute, same->fast,
                             same->digest});
        }
    }
    return units;
}

std::vector<Check> VectorRegisterChecks() {
    std::vector<Check> checks;
    for (const Set& set : Sets()) {
        if (!set.present) continue;
        checks.push_back(
            {std::string(set.name) + " reg", 1000,
             [carry = set.carry](uint64_t variant) { return CompareCarried(carry, variant); }});
    }
    return checks;
}

}  // namespace testprog
