#include "cpu/operations.h"

#include <cmath>
#include <cstring>

namespace testprog {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr uint64_t kOdd = 0x9e3779b97f4a7c15;
constexpr int64_t kHalf = int64_t{1} << 62;
constexpr int64_t kDivisors = int64_t{1} << 23;
constexpr unsigned kDoubleDigits = 53;
constexpr unsigned kSingleDigits = 24;

// Read anew for every check, so that no answer is worked out when the program is compiled.
volatile uint64_t first_operand = kOdd;

uint64_t Bits(double real) {
    uint64_t bits = 0;
    std::memcpy(&bits, &real, sizeof bits);
    return bits;
}

// Floating point numbers in [1, 2): no sum, product, quotient or root leaves the normal numbers.
double Real(uint64_t word) {
    const uint64_t bits = (word >> 12) | 0x3ff0000000000000;
    double real = 0;
    std::memcpy(&real, &bits, sizeof real);
    return real;
}
float Single(uint64_t word) {
    const uint32_t bits = static_cast<uint32_t>(word >> 41) | 0x3f800000;
    float real = 0;
    std::memcpy(&real, &bits, sizeof real);
    return real;
}

// The fast ways.

uint64_t Add(uint64_t x, uint64_t y, uint64_t z) { return x + y - (z >> 3); }

uint64_t Shift(uint64_t x, uint64_t y, uint64_t z) {
    return (x << (y & 63U)) ^ (y >> (z & 63U)) ^ Rotate(z, static_cast<unsigned>(y >> 58));
}

uint64_t Multiply(uint64_t x, uint64_t y, uint64_t z) { return (x * y) ^ ((x >> 32) * (z >> 32)); }

uint64_t Divide(uint64_t x, uint64_t y, uint64_t z) {
    const uint64_t divisor = (y >> (z & 31U)) | 1U;
    return (x / divisor) ^ Rotate(x % divisor, 32);
}

int64_t SignedDivisor(uint64_t y) {
    const int64_t divisor = static_cast<int64_t>(y >> 40) - kDivisors;
    return divisor == 0 || divisor == -1 ? 3 : divisor;
}

uint64_t SignedDivide(uint64_t x, uint64_t y, uint64_t) {
    const int64_t dividend = static_cast<int64_t>(x >> 1) - kHalf;
    const int64_t divisor = SignedDivisor(y);
    return static_cast<uint64_t>(dividend / divisor) ^
           Rotate(static_cast<uint64_t>(dividend % divisor), 32);
}

uint64_t Logic(uint64_t x, uint64_t y, uint64_t z) { return (x & y) | (~x & z); }

uint64_t Scan(uint64_t x, uint64_t y, uint64_t z) {
    const int leading = __builtin_clzll((x >> (z & 31U)) | 1U);
    const int trailing = __builtin_ctzll((y << (z & 31U)) | (uint64_t{1} << 63));
    return __builtin_bswap64(z) ^ static_cast<uint64_t>(leading) ^
           (static_cast<uint64_t>(trailing) << 8);
}

uint64_t FloatAdd(uint64_t x, uint64_t y, uint64_t z) {
    return Bits(Real(x) + Real(y)) ^ Rotate(Bits(Real(x) - Real(z)), 32);
}
uint64_t FloatMultiply(uint64_t x, uint64_t y, uint64_t) { return Bits(Real(x) * Real(y)); }
uint64_t FloatDivide(uint64_t x, uint64_t y, uint64_t) { return Bits(Real(x) / Real(y)); }
uint64_t SquareRoot(uint64_t x, uint64_t, uint64_t) { return Bits(std::sqrt(Real(x))); }
uint64_t SingleFloat(uint64_t x, uint64_t y, uint64_t z) {
    return Bits(double{Single(x) * Single(y)}) ^ Rotate(Bits(double{Single(x) / Single(z)}), 32);
}

uint64_t Convert(uint64_t x, uint64_t y, uint64_t z) {
    return Bits(static_cast<double>(x)) ^ static_cast<uint64_t>(Real(y) * 4294967296.0) ^
           Bits(double{static_cast<float>(Real(z))});
}

uint64_t MultiplyAdd(uint64_t x, uint64_t y, uint64_t z) {
    return Bits(std::fma(Real(x), Real(y), Real(z)));
}

// The slow ways.

uint64_t SumByCarries(uint64_t x, uint64_t y) {
    while (y != 0) {
        const uint64_t carries = (x & y) << 1;
        x ^= y;
        y = carries;
    }
    return x;
}

uint64_t SlowAdd(uint64_t x, uint64_t y, uint64_t z) {
    uint64_t shifted = 0;
    for (unsigned bit = 3; bit < 64; ++bit) shifted |= ((z >> bit) & 1U) << (bit - 3);
    return SumByCarries(SumByCarries(x, y), SumByCarries(~shifted, 1));
}

uint64_t ShiftUp(uint64_t value, uint64_t count) {
    for (; count > 0; --count) value += value;
    return value;
}

// Moves bit after bit, with masks that are made by doubling.
uint64_t ShiftDown(uint64_t value, uint64_t count) {
    uint64_t result = 0;
    uint64_t to = 1;
    for (uint64_t from = ShiftUp(1, count); from != 0; from += from, to += to) {
        if ((value & from) != 0) result |= to;
    }
    return result;
}

uint64_t SlowShift(uint64_t x, uint64_t y, uint64_t z) {
    const uint64_t turn = ShiftDown(y, 58);
    const uint64_t down = turn == 0 ? 0 : ShiftDown(z, 64 - turn);
    return ShiftUp(x, y & 63U) ^ ShiftDown(y, z & 63U) ^ (ShiftUp(z, turn) | down);
}

uint64_t ProductByAdding(uint64_t x, uint64_t y) {
    uint64_t product = 0;
    for (; y != 0; y >>= 1, x += x) product += (y & 1U) != 0 ? x : 0;
    return product;
}

uint64_t SlowMultiply(uint64_t x, uint64_t y, uint64_t z) {
    return ProductByAdding(x, y) ^ ProductByAdding(x >> 32, z >> 32);
}

struct Quotient {
    uint64_t quotient;
    uint64_t rest;
};

// By subtracting.
Quotient QuotientBySubtracting(uint64_t x, uint64_t divisor) {
    uint64_t quotient = 0;
    uint64_t rest = 0;
    for (unsigned bit = 64; bit-- > 0;) {
        const bool lost = rest >> 63 != 0;
        rest = (rest << 1) | ((x >> bit) & 1U);
        const bool fits = lost || rest >= divisor;
        rest -= fits ? divisor : 0;
        quotient = (quotient << 1) | (fits ? 1U : 0U);
    }
    return {quotient, rest};
}

uint64_t SlowDivide(uint64_t x, uint64_t y, uint64_t z) {
    const Quotient result = QuotientBySubtracting(x, (y >> (z & 31U)) | 1U);
    return result.quotient ^ Rotate(result.rest, 32);
}

uint64_t Negated(uint64_t value, bool negative) { return negative ? ~value + 1 : value; }

uint64_t SlowSignedDivide(uint64_t x, uint64_t y, uint64_t) {
    const int64_t dividend = static_cast<int64_t>(x >> 1) - kHalf;
    const int64_t divisor = SignedDivisor(y);
    const Quotient result =
        QuotientBySubtracting(Negated(static_cast<uint64_t>(dividend), dividend < 0),
                              Negated(static_cast<uint64_t>(divisor), divisor < 0));
    const bool opposite = (dividend < 0) != (divisor < 0);
    return Negated(result.quotient, opposite) ^ Rotate(Negated(result.rest, dividend < 0), 32);
}

uint64_t SlowLogic(uint64_t x, uint64_t y, uint64_t z) {
    uint64_t result = 0;
    for (uint64_t bit = 1; bit != 0; bit += bit) {
        const uint64_t chosen = (x & bit) != 0 ? y : z;
        if ((chosen & bit) != 0) result += bit;
    }
    return result;
}

uint64_t SlowScan(uint64_t x, uint64_t y, uint64_t z) {
    x = (x >> (z & 31U)) | 1U;
    y = (y << (z & 31U)) | (uint64_t{1} << 63);
    uint64_t leading = 0;
    for (; (x & (uint64_t{1} << 63)) == 0; x += x) ++leading;
    uint64_t trailing = 0;
    for (uint64_t bit = 1; (y & bit) == 0; bit += bit) ++trailing;
    uint64_t swapped = 0;
    for (unsigned byte = 0; byte < 8; ++byte) swapped = (swapped << 8) | ((z >> (8 * byte)) & 255U);
    return swapped ^ leading ^ (trailing << 8);
}

// Floating point numbers as whole ones: a mantissa, times a power of two. What the instructions for
// whole numbers get wrong shows above.
uint64_t Mantissa(uint64_t word) { return (word >> 12) | (uint64_t{1} << 52); }
uint64_t SingleMantissa(uint64_t word) { return (word >> 41) | (uint64_t{1} << 23); }

// The bits of the double nearest to value * 2^exponent with so many digits, ties to even.
uint64_t Rounded(Wide value, int exponent, unsigned digits, bool negative = false) {
    if (value == 0) return 0;
    const auto upper = static_cast<uint64_t>(value >> 64);
    const int unused =
        upper != 0 ? __builtin_clzll(upper) : 64 + __builtin_clzll(static_cast<uint64_t>(value));
    const auto length = static_cast<unsigned>(128 - unused);
    if (length > digits) {
        const unsigned cut = length - digits;
        const Wide half = Wide{1} << (cut - 1);
        const Wide rest = value & ((half << 1) - 1);
        value >>= cut;
        exponent += static_cast<int>(cut);
        if (rest > half || (rest == half && (value & 1U) != 0)) ++value;
    }
    for (; value >> 53 != 0; ++exponent) value >>= 1;
    for (; value >> 52 == 0; --exponent) value <<= 1;
    const auto fraction = static_cast<uint64_t>(value) & ((uint64_t{1} << 52) - 1);
    return (uint64_t{negative} << 63) | (static_cast<uint64_t>(exponent + 52 + 1023) << 52) |
           fraction;
}

uint64_t SlowFloatAdd(uint64_t x, uint64_t y, uint64_t z) {
    const uint64_t a = Mantissa(x);
    const uint64_t b = Mantissa(z);
    const uint64_t difference = Rounded(a < b ? b - a : a - b, -52, kDoubleDigits, a < b);
    return Rounded(a + Mantissa(y), -52, kDoubleDigits) ^ Rotate(difference, 32);
}

uint64_t SlowFloatMultiply(uint64_t x, uint64_t y, uint64_t) {
    return Rounded(Wide{Mantissa(x)} * Mantissa(y), -104, kDoubleDigits);
}

// A last bit for what is left over lets the result be rounded as if it had all its digits.
uint64_t RoundedQuotient(uint64_t x, uint64_t y, unsigned digits) {
    const Wide dividend = Wide{x} << 60;
    return Rounded((dividend / y << 1) | (dividend % y != 0 ? 1U : 0U), -61, digits);
}

uint64_t SlowFloatDivide(uint64_t x, uint64_t y, uint64_t) {
    return RoundedQuotient(Mantissa(x), Mantissa(y), kDoubleDigits);
}

uint64_t SlowSquareRoot(uint64_t x, uint64_t, uint64_t) {
    Wide rest = Wide{Mantissa(x)} << 60;
    Wide root = 0;
    for (Wide bit = Wide{1} << 112; bit != 0; bit >>= 2) {
        const bool fits = rest >= (root | bit);
        rest -= fits ? root | bit : 0;
        root = (root >> 1) | (fits ? bit : 0);
    }
    return Rounded((root << 1) | (rest != 0 ? 1U : 0U), -57, kDoubleDigits);
}

uint64_t SlowSingleFloat(uint64_t x, uint64_t y, uint64_t z) {
    const uint64_t product = ProductByAdding(SingleMantissa(x), SingleMantissa(y));
    const uint64_t quotient = RoundedQuotient(SingleMantissa(x), SingleMantissa(z), kSingleDigits);
    return Rounded(product, -46, kSingleDigits) ^ Rotate(quotient, 32);
}

uint64_t SlowConvert(uint64_t x, uint64_t y, uint64_t z) {
    return Rounded(x, 0, kDoubleDigits) ^ (Mantissa(y) >> 20) ^
           Rounded(Mantissa(z), -52, kSingleDigits);
}

uint64_t SlowMultiplyAdd(uint64_t x, uint64_t y, uint64_t z) {
    const Wide sum = Wide{Mantissa(x)} * Mantissa(y) + (Wide{Mantissa(z)} << 52);
    return Rounded(sum, -104, kDoubleDigits);
}

}  // namespace

const std::array<Operation, kOperationCount> kOperations = {{
    {"add", Add, SlowAdd, 0xe6a9c565d11f93a2},
    {"shift", Shift, SlowShift, 0xc4c82d921e56b5ea},
    {"mul", Multiply, SlowMultiply, 0xea47b6d35a99566f},
    {"div", Divide, SlowDivide, 0xe09ae6e9e339ba96},
    {"signed div", SignedDivide, SlowSignedDivide, 0x92d9c4656b305210},
    {"logic", Logic, SlowLogic, 0xb6cbcc280015de8d},
    {"scan", Scan, SlowScan, 0x28e5831f9d983078},
    {"fp add", FloatAdd, SlowFloatAdd, 0xb53f647d0e8567ba},
    {"fp mul", FloatMultiply, SlowFloatMultiply, 0xcecaedad2f0ff169},
    {"fp div", FloatDivide, SlowFloatDivide, 0x72c016cb2f6ba689},
    {"fp sqrt", SquareRoot, SlowSquareRoot, 0xad27b5589fcf5b8c},
    {"single", SingleFloat, SlowSingleFloat, 0x8d418aa1cc815314},
    {"convert", Convert, SlowConvert, 0x630b9262e5a883c5},
    {"fma", MultiplyAdd, SlowMultiplyAdd, 0x58f2f3c81b769f56},
}};

Operands MakeOperands(uint64_t variant) {
    Operands operands;
    uint64_t state = first_operand ^ Rotate(variant, 17);
    if (state == 0) state = 1;
    const auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    for (size_t i = 0; i < kOperands; ++i) {
        operands.x[i] = next();
        operands.y[i] = next();
        operands.z[i] = next();
    }
    return operands;
}

uint64_t Digest(const Words& results) {
    uint64_t digest = 0;
    for (const uint64_t result : results) {
        digest = (digest + result) * kOdd;
        digest ^= digest >> 32;
    }
    return digest;
}

std::vector<Unit> ScalarUnits() {
    std::vector<Unit> units;
    for (const Operation& operation : kOperations) {
        // By way of the pointer, so that the compiler does not make vectors of the loop.
        const auto compute = [&operation](const Operands& operands, Words& results) {
            for (size_t i = 0; i < kOperands; ++i) {
                results[i] = operation.fast(operands.x[i], operands.y[i], operands.z[i]);
            }
        };
        units.push_back({operation.name, compute, operation.slow, operation.digest});
    }
    return units;
}

}  // namespace testprog
