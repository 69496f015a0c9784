// What bench/testprog measures with: the sweeps and checks of the test programs against faults that
// are known, and the plainest test of memory.
//
//   testprog_model faults        lines "WHAT;FOUND;OF"
//   testprog_model plain BYTES   bytes that one processor second writes and reads back, with words
//                                of 64 bits

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "cpu/check.h"
#include "mem/plan.h"
#include "memory_faults.h"

namespace {

using testprog::FaultyMemory;
using testprog::Unit;

double ProcessorSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void Tell(const std::string& what, size_t found, size_t of) {
    std::printf("%s;%zu;%zu\n", what.c_str(), found, of);
}

// The textbook's March C-, with zeros and ones.
bool MarchFinds(FaultyMemory& memory) {
    const size_t count = memory.count();
    const auto element = [&](bool upwards, uint64_t expected, uint64_t value) {
        bool wrong = false;
        for (size_t i = 0; i < count; ++i) {
            const size_t at = upwards ? i : count - 1 - i;
            wrong = wrong || memory.Read(at) != expected;
            memory.Write(at, value);
        }
        return wrong;
    };
    for (size_t i = 0; i < count; ++i) memory.Write(i, 0);
    const uint64_t ones = ~uint64_t{0};
    return element(true, 0, ones) || element(true, ones, 0) || element(false, 0, ones) ||
           element(false, ones, 0) || element(true, 0, 0);
}

void TellMemoryFaults() {
    constexpr size_t kWords = 4096;
    constexpr uint64_t kMask = 0x123456789abcdef1;
    const auto faults = testprog::MemoryFaults(kWords, 10);
    for (const char* test : {"BMOVE", "IMOVE", "WHOLE"}) {
        for (const size_t level : {size_t{0}, size_t{3}}) {
            const testprog::Depth& depth = testprog::kDepths.at(level);
            const auto steps = testprog::StepsOf<FaultyMemory>(
                test, {testprog::kPatterns.begin(), testprog::kPatterns.begin() + depth.patterns},
                depth, kMask);
            const auto finds = [&steps](FaultyMemory& memory) {
                return std::any_of(steps.begin(), steps.end(), [&memory](const auto& step) {
                    return step(memory).has_value();
                });
            };
            Tell(std::string("memory: ") + test + ", level " + std::to_string(level),
                 CountFound(faults, kWords, finds), faults.size());
        }
    }
    Tell("memory: March C-, for comparison", CountFound(faults, kWords, MarchFinds), faults.size());
}

using Spoil = void (*)(const testprog::Operands& operands, testprog::Words& results,
                       uint64_t parameter);

// Whether the check of the unit finds what `spoil` does to its results, in so many calls.
bool Finds(const Unit& sound, Spoil spoil, uint64_t parameter, uint64_t first, uint64_t calls) {
    Unit unit = sound;
    unit.compute = [&](const testprog::Operands& operands, testprog::Words& results) {
        sound.compute(operands, results);
        spoil(operands, results, parameter);
    };
    const testprog::Check check = CheckOf(unit);
    for (uint64_t variant = first; variant < first + calls; ++variant) {
        const testprog::Answer answer = check.run(variant);
        if (answer.expected != answer.got) return true;
    }
    return false;
}

void Invert(const testprog::Operands&, testprog::Words& results, uint64_t bit) {
    for (uint64_t& result : results) result ^= uint64_t{1} << bit;
}
void AddConstant(const testprog::Operands&, testprog::Words& results, uint64_t bit) {
    for (uint64_t& result : results) result += uint64_t{1} << bit;
}
// Wrong for one pair of operands in 2^16, always for the same.
void SpoilFew(const testprog::Operands& operands, testprog::Words& results, uint64_t number) {
    for (size_t i = 0; i < results.size(); ++i) {
        const uint64_t mixed = (operands.x[i] ^ operands.y[i]) * 0x9e3779b97f4a7c15;
        if (mixed >> 48 == number) results[i] ^= 1U;
    }
}

void TellProcessorFaults() {
    // What a pass at level 0 has of each check.
    constexpr uint64_t kCalls = 50;
    constexpr uint64_t kPasses = 30;
    size_t bits = 0;
    size_t inverted = 0;
    size_t added = 0;
    size_t units = 0;
    size_t rare = 0;
    for (const auto& all :
         {testprog::ScalarUnits(), testprog::VectorUnits(), testprog::SpecialUnits()}) {
        for (const Unit& unit : all) {
            for (uint64_t bit = 0; bit < 64; ++bit, ++bits) {
                inverted += Finds(unit, Invert, bit, 1, 1) ? 1 : 0;
                added += Finds(unit, AddConstant, bit, 1, 1) ? 1 : 0;
            }
            rare += Finds(unit, SpoilFew, ++units, 1, kCalls * kPasses) ? 1 : 0;
        }
    }
    Tell("processor: bits always inverted", inverted, bits);
    Tell("processor: a constant always added", added, bits);
    Tell("processor: wrong once in 65536, 30 passes", rare, units);
}

int TestPlainly(size_t size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return 1;
    std::memset(memory, 1, size);
    auto* words = static_cast<volatile uint64_t*>(memory);
    const size_t count = size / sizeof *words;
    constexpr int kRounds = 4;
    const double start = ProcessorSeconds();
    for (uint64_t round = 0; round < kRounds; ++round) {
        const uint64_t value = 0x5555555555555555 << (round % 2);
        for (size_t i = 0; i < count; ++i) words[i] = value;
        for (size_t i = 0; i < count; ++i) {
            if (words[i] != value) return 1;
        }
    }
    std::printf("%.0f\n", kRounds * static_cast<double>(size) / (ProcessorSeconds() - start));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "plain") == 0) {
        return TestPlainly(std::strtoul(argv[2], nullptr, 10));
    }
    TellMemoryFaults();
    TellProcessorFaults();
    return 0;
}
