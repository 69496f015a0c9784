#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "cpu/check.h"

namespace testprog {
namespace {

using Spoil = std::function<uint64_t(uint64_t result)>;

std::vector<Unit> AllUnits() {
    std::vector<Unit> all;
    for (const auto& units : {ScalarUnits(), VectorUnits(), SpecialUnits()}) {
        all.insert(all.end(), units.begin(), units.end());
    }
    return all;
}

// The unit as a processor has it that is always wrong in the same way; with `changed` telling
// whether that has made a difference.
Unit Spoilt(const Unit& sound, const Spoil& spoil, bool* changed) {
    Unit unit = sound;
    unit.compute = [sound, spoil, changed](const Operands& operands, Words& results) {
        sound.compute(operands, results);
        for (uint64_t& result : results) {
            *changed = *changed || spoil(result) != result;
            result = spoil(result);
        }
    };
    return unit;
}

bool Finds(const Unit& unit, uint64_t variant) {
    const Answer answer = CheckOf(unit).run(variant);
    return answer.expected != answer.got;
}

TEST(ProcessorTest, EachWrongBitOfEachOperationIsFound) {
    for (const Unit& unit : AllUnits()) {
        EXPECT_FALSE(Finds(unit, 1)) << unit.name;
        std::string missed;
        for (unsigned bit = 0; bit < 64; ++bit) {
            const uint64_t mask = uint64_t{1} << bit;
            const Spoil spoils[] = {[mask](uint64_t result) { return result ^ mask; },
                                    [mask](uint64_t result) { return result | mask; },
                                    [mask](uint64_t result) { return result & ~mask; },
                                    [mask](uint64_t result) { return result + mask; }};
            for (const Spoil& spoil : spoils) {
                bool changed = false;
                if (Finds(Spoilt(unit, spoil, &changed), 2 + bit) != changed) {
                    missed += " " + std::to_string(bit);
                }
            }
        }
        EXPECT_EQ(missed, "") << unit.name;
    }
}

TEST(ProcessorTest, KnownAnswersAloneSeeABitThatIsAlwaysWrong) {
    for (const Unit& unit : AllUnits()) {
        if (!unit.digest) continue;
        Words results = {};
        unit.compute(MakeOperands(0), results);
        EXPECT_EQ(Digest(results), *unit.digest) << unit.name;
        for (unsigned bit = 0; bit < 64; ++bit) {
            Words wrong = results;
            for (uint64_t& result : wrong) result ^= uint64_t{1} << bit;
            EXPECT_NE(Digest(wrong), *unit.digest) << unit.name << " " << bit;
        }
    }
}

TEST(ProcessorTest, FreshOperandsFindWhatIsWrongForFewOfThem) {
    for (const Unit& unit : AllUnits()) {
        // Wrong for one operand of a thousand: in some calls, but not in every one.
        Unit rare = unit;
        rare.digest.reset();
        rare.compute = [unit](const Operands& operands, Words& results) {
            unit.compute(operands, results);
            for (size_t i = 0; i < kOperands; ++i) {
                if (operands.x[i] % 1024 == 77) results[i] ^= 1U;
            }
        };
        int found = 0;
        for (uint64_t variant = 1; variant <= 40; ++variant) found += Finds(rare, variant) ? 1 : 0;
        EXPECT_GT(found, 0) << unit.name;
        EXPECT_LT(found, 40) << unit.name;
    }
}

TEST(ProcessorTest, EveryCheckOfAHealthyProcessorIsRightAndFitsIntoALine) {
    const std::shared_ptr<uint64_t> memory(new uint64_t[1 << 16],
                                           std::default_delete<uint64_t[]>());
    const auto go_on = [] { return false; };
    for (const auto& checks : {InstructionChecks(), RegisterChecks(), VectorRegisterChecks(),
                               CacheChecks(memory, {8 << 10, 512 << 10}, go_on),
                               CoherenceChecks({0, 1}), CoherenceChecks({0})}) {
        for (const Check& check : checks) {
            EXPECT_LE(check.operation.size(), 14U) << check.operation;
            for (const uint64_t variant : {uint64_t{1}, ~uint64_t{0} / 3}) {
                const Answer answer = check.run(variant);
                EXPECT_EQ(answer.expected, answer.got) << check.operation;
            }
        }
    }
}

TEST(ProcessorTest, AWordThatIsLostFromTheWalkedMemoryIsFound) {
    constexpr size_t kWords = 1 << 16;
    const std::shared_ptr<uint64_t> memory(new uint64_t[kWords], std::default_delete<uint64_t[]>());
    int looks = 0;
    const auto lose = [&] {
        // Between writing and reading, of which each is looked into four times.
        if (++looks == 4) memory.get()[kWords - 5] ^= 0x100U;
        return false;
    };
    for (const Check& check : CacheChecks(memory, {kWords * 8}, lose)) {
        looks = 0;
        const Answer answer = check.run(1);
        EXPECT_EQ(answer.expected ^ answer.got, 0x100U) << check.operation;
    }
}

}  // namespace
}  // namespace testprog
