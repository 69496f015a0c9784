#include <bitset>
#include <cmath>
#include <cstring>

#include "cpu/check.h"

namespace testprog {

namespace {

constexpr int kOperands = 256;

// Read anew for every check, so that no answer is worked out when the program is compiled.
volatile uint64_t first_operand = 0x9e3779b97f4a7c15;

// Operands x, y, z: shifts and exclusive-or alone, so that a fault elsewhere does not spread.
class Operands {
 public:
    explicit Operands(uint64_t variant) : state_(first_operand ^ Rotate(variant, 17)) {
        if (state_ == 0) state_ = 1;
    }
    uint64_t Next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_;
    }
    // In [1, 2): no sum, product, quotient or root of two of them leaves the normal numbers.
    double NextReal() {
        const uint64_t bits = (Next() >> 12) | 0x3ff0000000000000;
        double real = 0;
        std::memcpy(&real, &bits, sizeof real);
        return real;
    }

 private:
    uint64_t state_;
};

uint64_t Bits(double real) {
    uint64_t bits = 0;
    std::memcpy(&bits, &real, sizeof bits);
    return bits;
}

uint64_t Add(Operands& next) {
    const uint64_t x = next.Next();
    const uint64_t y = next.Next();
    return x + y - (next.Next() >> 3);
}

uint64_t Shift(Operands& next) {
    const uint64_t x = next.Next();
    const uint64_t y = next.Next();
    return (x << (y & 63U)) ^ (y >> (x & 63U)) ^ Rotate(x, static_cast<unsigned>(y >> 58));
}

uint64_t Multiply(Operands& next) {
    const uint64_t x = next.Next();
    const uint64_t y = next.Next();
    return (x * y) ^ ((x >> 32) * (y >> 32));
}

uint64_t Divide(Operands& next) {
    const uint64_t x = next.Next();
    const uint64_t y = next.Next();
    const uint64_t divisor = (y >> (y & 31U)) | 1U;
    return (x / divisor) ^ Rotate(x % divisor, 32);
}

uint64_t SignedDivide(Operands& next) {
    constexpr int64_t kHalf = int64_t{1} << 62;
    const int64_t x = static_cast<int64_t>(next.Next() >> 1) - kHalf;
    const int64_t divisor = static_cast<int64_t>(next.Next() >> 40) - (1 << 23);
    const int64_t safe = divisor == 0 || divisor == -1 ? 3 : divisor;
    return static_cast<uint64_t>(x / safe) ^ Rotate(static_cast<uint64_t>(x % safe), 32);
}

uint64_t BitOperations(Operands& next) {
    const uint64_t x = next.Next();
    const uint64_t y = next.Next();
    const uint64_t z = next.Next();
    return ((x & y) | (~x & z)) ^ std::bitset<64>(x ^ y).count();
}

uint64_t FloatAdd(Operands& next) {
    const double x = next.NextReal();
    const double y = next.NextReal();
    return Bits(x + y) ^ Rotate(Bits(x - y), 32);
}

uint64_t FloatMultiply(Operands& next) {
    const double x = next.NextReal();
    return Bits(x * next.NextReal());
}

uint64_t FloatDivide(Operands& next) {
    const double x = next.NextReal();
    return Bits(x / next.NextReal());
}

uint64_t SquareRoot(Operands& next) { return Bits(std::sqrt(next.NextReal())); }

uint64_t Convert(Operands& next) {
    const uint64_t x = next.Next();
    const auto whole = static_cast<uint64_t>(next.NextReal() * 4294967296.0);
    return Bits(static_cast<double>(x)) ^ whole ^
           Bits(static_cast<double>(static_cast<float>(next.NextReal())));
}

struct KnownAnswer {
    const char* operation;
    uint64_t (*value)(Operands& next);
    uint64_t digest;
};

// The digests come from known_answers.py.
constexpr KnownAnswer kKnownAnswers[] = {
    {"add", Add, 0x34e1247275f8fd4c},
    {"shift", Shift, 0x407a11b7d88946bb},
    {"multiply", Multiply, 0x3eb871c979ba5035},
    {"divide", Divide, 0xcd8d50bab973dafc},
    {"signed divide", SignedDivide, 0x5a20c88591b343ac},
    {"bit logic", BitOperations, 0x6837cfef8536bf0f},
    {"fp add", FloatAdd, 0xc0a6f7c2d80d1f3c},
    {"fp multiply", FloatMultiply, 0xda5e2604744ecb72},
    {"fp divide", FloatDivide, 0x88db0fcb311f339e},
    {"square root", SquareRoot, 0x6ab48ded3fb8bd89},
    {"convert", Convert, 0x2e24d5fd11aef1d5},
};

uint64_t Digest(uint64_t (*value)(Operands& next), uint64_t variant) {
    Operands operands(variant);
    uint64_t digest = 0;
    for (int i = 0; i < kOperands; ++i) digest = Rotate(digest, 7) ^ value(operands);
    return digest;
}

// Pairs of ways to one result, the fast one first.

uint64_t Sum(uint64_t x, uint64_t y) { return x + y; }
uint64_t SumByCarries(uint64_t x, uint64_t y) {
    while (y != 0) {
        const uint64_t carries = (x & y) << 1;
        x ^= y;
        y = carries;
    }
    return x;
}

uint64_t Product(uint64_t x, uint64_t y) { return x * y; }
uint64_t ProductByAdding(uint64_t x, uint64_t y) {
    uint64_t product = 0;
    for (; y != 0; y >>= 1, x <<= 1) product += (y & 1U) != 0 ? x : 0;
    return product;
}

uint64_t Quotient(uint64_t x, uint64_t y) {
    const uint64_t divisor = (y >> 20) | 1U;
    return (x / divisor) ^ Rotate(x % divisor, 16);
}
uint64_t QuotientBySubtracting(uint64_t x, uint64_t y) {
    const uint64_t divisor = (y >> 20) | 1U;
    uint64_t quotient = 0;
    uint64_t rest = 0;
    for (unsigned bit = 64; bit-- > 0;) {
        rest = (rest << 1) | ((x >> bit) & 1U);
        const bool fits = rest >= divisor;
        rest -= fits ? divisor : 0;
        quotient = (quotient << 1) | (fits ? 1U : 0U);
    }
    return quotient ^ Rotate(rest, 16);
}

// Products below 2^52 are exact in floating point.
uint64_t FloatProduct(uint64_t x, uint64_t y) {
    return static_cast<uint64_t>(static_cast<double>(x >> 38) * static_cast<double>(y >> 38));
}
uint64_t FloatProductByAdding(uint64_t x, uint64_t y) { return ProductByAdding(x >> 38, y >> 38); }

struct TwoWays {
    const char* operation;
    uint64_t (*fast)(uint64_t x, uint64_t y);
    uint64_t (*slow)(uint64_t x, uint64_t y);
};

constexpr TwoWays kTwoWays[] = {
    {"new add", Sum, SumByCarries},
    {"new multiply", Product, ProductByAdding},
    {"new divide", Quotient, QuotientBySubtracting},
    {"new fp", FloatProduct, FloatProductByAdding},
};

Answer CompareWays(const TwoWays& ways, uint64_t variant) {
    Operands operands(variant);
    Answer answer{0, 0};
    for (int i = 0; i < kOperands && answer.expected == answer.got; ++i) {
        const uint64_t x = operands.Next();
        const uint64_t y = operands.Next();
        answer = {ways.slow(x, y), ways.fast(x, y)};
    }
    return answer;
}

}  // namespace

std::vector<Check> InstructionChecks() {
    std::vector<Check> checks;
    for (const KnownAnswer& known : kKnownAnswers) {
        checks.push_back({known.operation, 400, [&known](uint64_t) {
                              return Answer{known.digest, Digest(known.value, 0)};
                          }});
    }
    for (const TwoWays& ways : kTwoWays) {
        checks.push_back(
            {ways.operation, 25, [&ways](uint64_t variant) { return CompareWays(ways, variant); }});
    }
    return checks;
}

}  // namespace testprog
