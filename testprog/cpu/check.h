// What the processor test is made of: checks, each of one operation with an answer that is known
// beforehand or found in another way.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace testprog {

// The processor is right when the two are equal.
struct Answer {
    uint64_t expected;
    uint64_t got;
};

struct Check {
    // At most 13 characters: the controller shows 80 of the line that tells a failure.
    std::string operation;
    // How often the check runs between two looks for a cancel; together about a millisecond. A
    // check that may take longer by itself looks too.
    int repeats;
    // `variant` differs from call to call and is never 0, for checks that make their operands
    // from it.
    std::function<Answer(uint64_t variant)> run;
};

// Integer, shift, multiply and divide, bit and floating point operations: digests over a few
// hundred operands against answers computed with exact arithmetic (known_answers.py),
// and fresh operands against slower ways to the same result.
std::vector<Check> InstructionChecks();

// Patterns, changed by the variant, carried in more values than there are registers through
// nested calls, against the same calculation in memory. Whole and floating point registers.
std::vector<Check> RegisterChecks();

// Walks over areas from first-level cache size upwards at several strides, each word holding its
// own address; `areas` (1 to 6) says how many sizes. `stop` is asked within a walk and ends it
// early (with equal answers). Empty when there is no memory for the largest area.
std::vector<Check> CacheChecks(size_t areas, const std::function<bool()>& stop);

inline uint64_t Rotate(uint64_t value, unsigned count) {
    return (value << (count & 63U)) | (value >> ((64U - count) & 63U));
}

}  // namespace testprog
