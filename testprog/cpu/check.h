// What the processor test is made of: checks, each of one operation with an answer that is known
// beforehand or found in another way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cpu/operations.h"

namespace testprog {

// The processor is right when the two are equal.
struct Answer {
    uint64_t expected;
    uint64_t got;
};

struct Check {
    // At most 14 characters: the controller shows 80 of the line that tells a failure.
    std::string operation;
    // How often the check runs between two looks for a cancel; together about a millisecond. A
    // check that may take longer by itself looks too.
    int repeats;
    // `variant` differs from call to call and is never 0; the check makes its operands from it.
    // May be called by several threads at once, but for the checks of one area of CacheChecks.
    std::function<Answer(uint64_t variant)> run;
};

// Compares the unit's digest over the fixed operands with the known answer, then its results for
// fresh operands with those of its reference.
Check CheckOf(const Unit& unit);

// The checks of all scalar, vector and special units that the processor has.
std::vector<Check> InstructionChecks();

// Patterns, changed by the variant, carried in more values than there are registers through nested
// calls, against the same calculation in memory (whole and floating point registers); operands
// moved through all vector registers.
std::vector<Check> RegisterChecks();
std::vector<Check> VectorRegisterChecks();

// Walks over areas of these sizes (bytes, multiples of 8) at several strides, each word holding its
// own address. All share `memory`, which is as large as the largest. `stop` is asked within a walk
// and ends it early (with equal answers).
std::vector<Check> CacheChecks(const std::shared_ptr<uint64_t>& memory,
                               const std::vector<size_t>& sizes, const std::function<bool()>& stop);

// What two processors do to the same words: atomic additions, exchanges and comparisons, and cache
// lines handed to and fro. The partner of the processor that runs the check is the next one of
// these; none with less than two.
std::vector<Check> CoherenceChecks(const std::vector<int>& processors);

}  // namespace testprog
