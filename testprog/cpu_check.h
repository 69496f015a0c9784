// What the processor test is made of: checks, each of one operation with an answer that is known
// beforehand or found in another way.

#ifndef TESTPROG_CPU_CHECK_H_
#define TESTPROG_CPU_CHECK_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace testprog {

// The processor is right when the two are equal.
struct Answer {
    std::uint64_t expected;
    std::uint64_t got;
};

struct Check {
    std::string operation;
    // How often the check runs between two looks for a cancel; together less than a millisecond.
    int repeats;
    // `variant` differs from call to call, for checks that make their operands from it.
    std::function<Answer(std::uint64_t variant)> run;
};

// Integer, shift, multiply and divide, bit and floating point operations: digests over a few
// hundred operands against answers computed with exact arithmetic (testprog/known_answers.py),
// and fresh operands against slower ways to the same result.
std::vector<Check> InstructionChecks();

// Patterns carried in more values than there are registers through nested calls, against the
// same calculation in memory. Whole and floating point registers.
std::vector<Check> RegisterChecks();

// Walks over areas from first-level cache size upwards at several strides, each word holding its
// own address; deeper levels add larger areas. `stop` is asked within a walk and ends it early
// (with equal answers). Empty when there is no memory for the largest area.
std::vector<Check> CacheChecks(std::uint64_t level, const std::function<bool()>& stop);

inline std::uint64_t Rotate(std::uint64_t value, unsigned count) {
    return (value << (count & 63U)) | (value >> ((64U - count) & 63U));
}

}  // namespace testprog

#endif  // TESTPROG_CPU_CHECK_H_
