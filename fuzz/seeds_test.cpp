// The fuzz targets as tests: each on its seeds and on what some changes make of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "support.h"

namespace patrol_fuzz {
namespace {

class SeedTest : public ::testing::TestWithParam<std::string> {};

TEST_P(SeedTest, KeepTheRulesOfTheirTarget) {
    std::vector<std::string> seeds;
    for (const auto& entry : std::filesystem::directory_iterator(FUZZ_SEEDS + GetParam())) {
        seeds.push_back(patrol_test::ReadFile(entry.path()));
    }
    std::sort(seeds.begin(), seeds.end());
    std::mt19937 random(20101);
    const auto pick = [&](size_t count) { return random() % count; };
    for (size_t run = 0; run < 150; ++run) {
        std::string bytes = seeds[run % seeds.size()];
        // A piece of any seed, or one byte, takes the place of a piece.
        for (size_t changes = run < seeds.size() ? 0 : 1 + pick(4); changes > 0; --changes) {
            const std::string& other = seeds[pick(seeds.size())];
            const std::string piece = pick(2) == 0 ? std::string(1, "\n\0=[%-09x,\xff"[pick(12)])
                                                   : other.substr(pick(other.size() + 1), pick(60));
            bytes.replace(pick(bytes.size() + 1), pick(3) == 0 ? pick(60) : 0, piece);
        }
        SCOPED_TRACE(::testing::PrintToString(bytes));
        Input input(bytes);
        Targets().at(GetParam())(input);
    }
}

std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const auto& [name, target] : Targets()) names.push_back(name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Targets, SeedTest, ::testing::ValuesIn(Names()),
                         [](const auto& tested) { return tested.param; });

}  // namespace
}  // namespace patrol_fuzz
