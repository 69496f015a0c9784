#include <array>
#include <cstring>
#include <initializer_list>

#include "cpu/operations.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#include <sys/auxv.h>
#endif

namespace testprog {

#if defined(__x86_64__) || defined(__aarch64__)

namespace {

using Value = uint64_t (*)(uint64_t x, uint64_t y, uint64_t z);

// Two halves as one word in which an error of either shows.
uint64_t Fold(uint64_t low, uint64_t high) { return low ^ Rotate(high, 21); }
template <typename Vector>
uint64_t Fold(const Vector& value) {
    std::array<uint64_t, 2> halves = {};
    static_assert(sizeof value == sizeof halves, "a vector has two halves");
    std::memcpy(halves.data(), &value, sizeof halves);
    return Fold(halves[0], halves[1]);
}

// The slow ways.

uint64_t SlowCountOnes(uint64_t x, uint64_t, uint64_t) {
    uint64_t count = 0;
    for (; x != 0; x >>= 1) count += x & 1U;
    return count;
}

uint64_t SlowChecksum(uint64_t x, uint64_t y, uint64_t) {
    constexpr uint64_t kPolynomial = 0x82f63b78;
    uint64_t rest = (x & UINT32_MAX) ^ y;
    for (int bit = 0; bit < 64; ++bit) rest = (rest >> 1) ^ ((rest & 1U) != 0 ? kPolynomial : 0);
    return rest;
}

uint64_t SlowCarrylessProduct(uint64_t x, uint64_t y, uint64_t) {
    uint64_t low = 0;
    uint64_t high = 0;
    for (unsigned bit = 0; bit < 64; ++bit) {
        if (((y >> bit) & 1U) == 0) continue;
        low ^= x << bit;
        high ^= bit == 0 ? 0 : x >> (64 - bit);
    }
    return Fold(low, high);
}

uint64_t Unchanged(uint64_t x, uint64_t y, uint64_t) { return Fold(x, y); }

using Bytes = std::array<uint8_t, 16>;

// The product of two bytes in the cipher's field.
uint8_t FieldProduct(unsigned x, unsigned y) {
    unsigned product = 0;
    for (; y != 0; y >>= 1) {
        product ^= (y & 1U) != 0 ? x : 0;
        x = (x << 1) ^ ((x & 0x80U) != 0 ? 0x11bU : 0);
    }
    return static_cast<uint8_t>(product);
}

std::array<uint8_t, 256> MakeSubstitutes() {
    std::array<uint8_t, 256> substitutes = {};
    for (unsigned byte = 0; byte < 256; ++byte) {
        unsigned inverse = byte == 0 ? 0 : 1;  // byte to the power of 254
        for (int i = 0; byte != 0 && i < 254; ++i) inverse = FieldProduct(inverse, byte);
        unsigned value = 0x63;
        for (unsigned i = 0; i < 5; ++i) value ^= (inverse << i) | (inverse >> (8 - i));
        substitutes.at(byte) = static_cast<uint8_t>(value);
    }
    return substitutes;
}

uint64_t SlowCipherRound(uint64_t x, uint64_t y, uint64_t z) {
    static const std::array<uint8_t, 256> substitutes = MakeSubstitutes();
    Bytes block = {};
    std::memcpy(block.data(), &x, sizeof x);
    std::memcpy(block.data() + sizeof x, &y, sizeof y);
    Bytes moved = {};
    for (size_t i = 0; i < block.size(); ++i) {
        moved.at(i) = substitutes.at(block.at((i + 4 * (i % 4)) % block.size()));
    }
    for (size_t i = 0; i < block.size(); ++i) {
        const size_t column = i / 4 * 4;
        const auto row = [&](size_t ahead) { return moved.at(column + (i + ahead) % 4); };
        block.at(i) = static_cast<uint8_t>(FieldProduct(row(0), 2) ^ FieldProduct(row(1), 3) ^
                                           row(2) ^ row(3));
    }
    std::array<uint64_t, 2> halves = {};
    std::memcpy(halves.data(), block.data(), sizeof halves);
    return Fold(halves[0] ^ z, halves[1] ^ ~z);
}

uint32_t Low(uint64_t value) { return static_cast<uint32_t>(value); }
uint32_t High(uint64_t value) { return static_cast<uint32_t>(value >> 32); }
uint64_t Join(uint32_t low, uint32_t high) { return low | (uint64_t{high} << 32); }
uint32_t Turn(uint32_t value, unsigned count) { return (value >> count) | (value << (32 - count)); }

// What a round of the hash changes.
struct HashState {
    std::array<uint32_t, 4> first;   // a, b, c, d
    std::array<uint32_t, 4> second;  // e, f, g, h
};
HashState Hashed(HashState state, std::initializer_list<uint32_t> words) {
    for (const uint32_t word : words) {
        const auto [a, b, c, d] = state.first;
        const auto [e, f, g, h] = state.second;
        const uint32_t sum =
            h + word + ((e & f) ^ (~e & g)) + (Turn(e, 6) ^ Turn(e, 11) ^ Turn(e, 25));
        const uint32_t more =
            ((a & b) ^ (a & c) ^ (b & c)) + (Turn(a, 2) ^ Turn(a, 13) ^ Turn(a, 22));
        state = {{sum + more, a, b, c}, {d + sum, e, f, g}};
    }
    return state;
}

uint64_t SlowHashWords(uint64_t x, uint64_t y, uint64_t z) {
    const std::array<uint32_t, 6> old = {Low(x), High(x), Low(y), High(y), Low(z), 0};
    std::array<uint32_t, 6> words = {Low(~x), High(~x)};
    for (size_t i = 0; i < 4; ++i) {
        const uint32_t next = old.at(i + 1);
        const uint32_t last = words.at(i);
        words.at(i + 2) = old.at(i) + (Turn(next, 7) ^ Turn(next, 18) ^ (next >> 3)) +
                          (Turn(last, 17) ^ Turn(last, 19) ^ (last >> 10));
    }
    return Fold(Join(words[2], words[3]), Join(words[4], words[5]));
}

template <Value kValue>
void ComputeAll(const Operands& operands, Words& results) {
    for (size_t i = 0; i < kOperands; ++i) {
        results[i] = kValue(operands.x[i], operands.y[i], operands.z[i]);
    }
}

// Which of the instructions the processor has.
struct Features {
    bool count, checksum, product, cipher, hash;
};

// The instructions.

#if defined(__x86_64__)

__m128i Pack(uint64_t low, uint64_t high) {
    return _mm_set_epi64x(static_cast<int64_t>(high), static_cast<int64_t>(low));
}

__attribute__((target("popcnt"))) uint64_t CountOnes(uint64_t x, uint64_t, uint64_t) {
    return static_cast<uint64_t>(__builtin_popcountll(x));
}
__attribute__((target("sse4.2"))) uint64_t Checksum(uint64_t x, uint64_t y, uint64_t) {
    return _mm_crc32_u64(x & UINT32_MAX, y);
}
__attribute__((target("pclmul"))) uint64_t CarrylessProduct(uint64_t x, uint64_t y, uint64_t) {
    return Fold(_mm_clmulepi64_si128(Pack(x, 0), Pack(y, 0), 0));
}
// One round of the cipher over the block (x, y) with the key (z, ~z), forwards.
__attribute__((target("aes"))) uint64_t CipherRound(uint64_t x, uint64_t y, uint64_t z) {
    return Fold(_mm_aesenc_si128(Pack(x, y), Pack(z, ~z)));
}
// Forwards and backwards again.
__attribute__((target("aes"))) uint64_t CipherBack(uint64_t x, uint64_t y, uint64_t z) {
    const __m128i mixed = _mm_aesenc_si128(Pack(x, y), Pack(z, ~z));
    const __m128i unmixed = _mm_aesimc_si128(_mm_xor_si128(mixed, Pack(z, ~z)));
    return Fold(_mm_aesdeclast_si128(unmixed, _mm_setzero_si128()));
}
// Two rounds of the hash from the state (x, y, z, ~x).
__attribute__((target("sha,sse4.1"))) uint64_t HashRounds(uint64_t x, uint64_t y, uint64_t z) {
    return Fold(_mm_sha256rnds2_epu32(Pack(x, y), Pack(z, ~x), Pack(y ^ z, 0)));
}
uint64_t SlowHashRounds(uint64_t x, uint64_t y, uint64_t z) {
    const HashState start = {{High(~x), Low(~x), High(y), Low(y)},
                             {High(z), Low(z), High(x), Low(x)}};
    const auto [first, second] = Hashed(start, {Low(y ^ z), High(y ^ z)});
    return Fold(Join(second[1], second[0]), Join(first[1], first[0]));
}

// The words of the next rounds, from (x, y) and (z, ~x).
__attribute__((target("sha,sse4.1"))) uint64_t HashWords(uint64_t x, uint64_t y, uint64_t z) {
    const __m128i sums = _mm_sha256msg1_epu32(Pack(x, y), Pack(z, ~x));
    return Fold(_mm_sha256msg2_epu32(sums, Pack(z, ~x)));
}

// Not every compiler knows the name of this one.
bool HasHash() {
    constexpr unsigned kHash = 1U << 29;
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & kHash) != 0;
}

Features FeaturesHere() {
    return {__builtin_cpu_supports("popcnt") != 0, __builtin_cpu_supports("sse4.2") != 0,
            __builtin_cpu_supports("pclmul") != 0, __builtin_cpu_supports("aes") != 0, HasHash()};
}

#else

uint64x2_t Pack(uint64_t low, uint64_t high) {
    return vcombine_u64(vcreate_u64(low), vcreate_u64(high));
}

uint64_t CountOnes(uint64_t x, uint64_t, uint64_t) { return vaddv_u8(vcnt_u8(vcreate_u8(x))); }

// The rest in the assembler's words, as compilers know them only where all of the program may use
// them.
uint64_t Checksum(uint64_t x, uint64_t y, uint64_t) {
    uint32_t rest = 0;
    asm(".arch_extension crc\n\tcrc32cx %w0, %w1, %2" : "=r"(rest) : "r"(Low(x)), "r"(y));
    return rest;
}

uint64_t CarrylessProduct(uint64_t x, uint64_t y, uint64_t) {
    uint64x2_t product;
    asm(".arch_extension aes\n\tpmull %0.1q, %1.1d, %2.1d"
        : "=w"(product)
        : "w"(Pack(x, 0)), "w"(Pack(y, 0)));
    return Fold(product);
}

uint64x2_t Mixed(uint64_t x, uint64_t y) {
    uint64x2_t block = Pack(x, y);
    asm(".arch_extension aes\n\taese %0.16b, %1.16b\n\taesmc %0.16b, %0.16b"
        : "+w"(block)
        : "w"(Pack(0, 0)));
    return block;
}
// One round of the cipher over the block (x, y) with the key (z, ~z), forwards.
uint64_t CipherRound(uint64_t x, uint64_t y, uint64_t z) {
    return Fold(veorq_u64(Mixed(x, y), Pack(z, ~z)));
}
// Forwards and backwards again.
uint64_t CipherBack(uint64_t x, uint64_t y, uint64_t) {
    uint64x2_t block = Mixed(x, y);
    asm(".arch_extension aes\n\taesimc %0.16b, %0.16b\n\taesd %0.16b, %1.16b"
        : "+w"(block)
        : "w"(Pack(0, 0)));
    return Fold(block);
}

// Four rounds of the hash from the state (x, y), (z, ~x).
uint64_t HashRounds(uint64_t x, uint64_t y, uint64_t z) {
    uint64x2_t first = Pack(x, y);
    uint64x2_t second = Pack(z, ~x);
    asm(".arch_extension sha2\n\tsha256h %q0, %q1, %2.4s"
        : "+w"(first)
        : "w"(second), "w"(Pack(y ^ z, x ^ z)));
    asm(".arch_extension sha2\n\tsha256h2 %q0, %q1, %2.4s"
        : "+w"(second)
        : "w"(Pack(x, y)), "w"(Pack(y ^ z, x ^ z)));
    return Fold(Fold(first), Fold(second));
}
uint64_t SlowHashRounds(uint64_t x, uint64_t y, uint64_t z) {
    const HashState start = {{Low(x), High(x), Low(y), High(y)},
                             {Low(z), High(z), Low(~x), High(~x)}};
    const auto [first, second] = Hashed(start, {Low(y ^ z), High(y ^ z), Low(x ^ z), High(x ^ z)});
    return Fold(Fold(first), Fold(second));
}

// The words of the next rounds, from (x, y), z and ~x; those that lie between are 0.
uint64_t HashWords(uint64_t x, uint64_t y, uint64_t z) {
    uint64x2_t words = Pack(x, y);
    asm(".arch_extension sha2\n\tsha256su0 %0.4s, %1.4s\n\tsha256su1 %0.4s, %2.4s, %3.4s"
        : "+&w"(words)
        : "w"(Pack(z, 0)), "w"(Pack(0, 0)), "w"(Pack(0, ~x)));
    return Fold(words);
}

Features FeaturesHere() {
    const unsigned long has = getauxval(AT_HWCAP);
    return {true, (has & HWCAP_CRC32) != 0, (has & HWCAP_PMULL) != 0, (has & HWCAP_AES) != 0,
            (has & HWCAP_SHA2) != 0};
}

#endif

}  // namespace

std::vector<Unit> SpecialUnits() {
    const Features here = FeaturesHere();
    std::vector<Unit> units;
    const auto add = [&units](bool present, const char* name, const auto& compute, Value slow) {
        if (present) units.push_back({name, compute, slow, std::nullopt});
    };
    add(here.count, "popcount", ComputeAll<CountOnes>, SlowCountOnes);
    add(here.checksum, "crc32", ComputeAll<Checksum>, SlowChecksum);
    add(here.product, "clmul", ComputeAll<CarrylessProduct>, SlowCarrylessProduct);
    add(here.cipher, "aes", ComputeAll<CipherRound>, SlowCipherRound);
    add(here.cipher, "aes back", ComputeAll<CipherBack>, Unchanged);
    add(here.hash, "sha rounds", ComputeAll<HashRounds>, SlowHashRounds);
    add(here.hash, "sha words", ComputeAll<HashWords>, SlowHashWords);
    return units;
}

#else

std::vector<Unit> SpecialUnits() { return {}; }

#endif

}  // namespace testprog
