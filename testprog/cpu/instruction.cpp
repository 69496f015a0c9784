#include "cpu/check.h"
#include "cpu/operations.h"

namespace testprog {

namespace {

// The known answer comes first: it rests on no other instruction.
Answer Compare(const Unit& unit, uint64_t variant) {
    Words results = {};
    Answer answer = {0, 0};
    if (unit.digest) {
        unit.compute(MakeOperands(0), results);
        answer = {*unit.digest, Digest(results)};
    }
    const Operands operands = MakeOperands(variant);
    if (answer.expected == answer.got) unit.compute(operands, results);
    for (size_t i = 0; i < kOperands && answer.expected == answer.got; ++i) {
        answer = {unit.reference(operands.x[i], operands.y[i], operands.z[i]), results[i]};
    }
    return answer;
}

}  // namespace

Check CheckOf(const Unit& unit) {
    constexpr int kRepeats = 25;
    return {unit.name, kRepeats, [unit](uint64_t variant) { return Compare(unit, variant); }};
}

std::vector<Check> InstructionChecks() {
    std::vector<Check> checks;
    for (const auto& units : {ScalarUnits(), VectorUnits(), SpecialUnits()}) {
        for (const Unit& unit : units) checks.push_back(CheckOf(unit));
    }
    return checks;
}

}  // namespace testprog
