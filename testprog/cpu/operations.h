// The operations that a processor carries out, each with a way to judge what comes out of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace testprog {

constexpr size_t kOperands = 256;
using Words = std::array<uint64_t, kOperands>;

// The i-th words of the three are the operands of the i-th calculation.
struct Operands {
    alignas(64) Words x;
    alignas(64) Words y;
    alignas(64) Words z;
};

// Makes operands by shifts and exclusive-or alone, so that a fault elsewhere does not spread.
// Variant 0 makes those of the known answers.
Operands MakeOperands(uint64_t variant);

struct Operation {
    const char* name;
    uint64_t (*fast)(uint64_t x, uint64_t y, uint64_t z);
    // The same out of simpler instructions, mostly additions and bit operations.
    uint64_t (*slow)(uint64_t x, uint64_t y, uint64_t z);
    uint64_t digest;  // of the results for variant 0, from known_answers.py
};
constexpr size_t kOperationCount = 14;
extern const std::array<Operation, kOperationCount> kOperations;

// A part of the processor that carries out one operation: the scalar units, or a vector unit.
struct Unit {
    std::string name;
    std::function<void(const Operands& operands, Words& results)> compute;
    uint64_t (*reference)(uint64_t x, uint64_t y, uint64_t z);
    std::optional<uint64_t> digest;  // as above; without one the reference alone judges
};

// Every operation in the scalar units, against its slow way.
std::vector<Unit> ScalarUnits();
// Most operations in each vector unit that this processor has, against the scalar ones.
std::vector<Unit> VectorUnits();
// Instructions that do one special thing (checksums, ciphers, carry-less multiplication), as far as
// this processor has them, against the same in simpler ones.
std::vector<Unit> SpecialUnits();

// A number made of all results, in which no two errors cancel each other by their place or value:
// exclusive-or and rotations alone would lose any bit that is always wrong.
uint64_t Digest(const Words& results);

inline uint64_t Rotate(uint64_t value, unsigned count) {
    return (value << (count & 63U)) | (value >> ((64U - count) & 63U));
}

}  // namespace testprog
