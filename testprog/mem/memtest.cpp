// memtest: diagnosis of the memory.
//
// Runs the tests that "-tp" names, with the patterns of "-data", over memory that it takes and
// locks: an area of the size that "-size" says or, without one, as many pieces as there is time
// for, of frames that no run has tested lately. A test name that ends in X spoils one bit, so that
// the way of a failure can be seen on healthy memory.

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <iterator>
#include <memory>
#include <optional>

#include "adapter/external.h"
#include "counters/counters.h"
#include "lib/file.h"
#include "lib/run.h"
#include "lib/trap.h"
#include "mem/area.h"
#include "mem/frame_map.h"
#include "mem/plan.h"

namespace {

using testprog::Area;
using testprog::EndCode;
using testprog::Finding;
using testprog::Format;
using testprog::kDepths;
using testprog::kPatterns;
using testprog::Outcome;
using testprog::RealMemory;

constexpr uint64_t kSmallestSize = 64 << 10;
constexpr uint64_t kDefaultBudget = 5;  // seconds
constexpr double kTimeToLook = 0.5;     // the part of it that may go into finding new frames

struct Options {
    testprog::CommonOptions common;
    std::optional<uint64_t> size;    // "-size", bytes
    std::vector<uint64_t> patterns;  // "-data"; empty leaves the choice to the level
};

// "16MB": a number with KB, MB or GB.
bool TakeSize(const std::string& text, std::optional<uint64_t>* size) {
    constexpr const char* kUnits[] = {"KB", "MB", "GB"};
    if (text.size() < 3) return false;
    std::string unit = text.substr(text.size() - 2);
    for (char& c : unit) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const auto* found = std::find(std::begin(kUnits), std::end(kUnits), unit);
    const auto number = testprog::ParseNumber(std::string_view(text).substr(0, text.size() - 2));
    if (found == std::end(kUnits) || !number || *number > (uint64_t{1} << 32)) return false;
    *size = *number << (10 * (found - kUnits + 1));
    return **size >= kSmallestSize;
}

// A pattern word: with less than 64 bits given, they are repeated.
std::optional<uint64_t> PatternOf(const std::string& word) {
    auto number = testprog::ParseNumber(word);
    if (!number) return number;
    const bool hexadecimal = word.compare(0, 2, "0x") == 0;
    const auto too_narrow = [&](unsigned width) {
        return hexadecimal ? (word.size() - 2) * 4 > width : *number >> width != 0;
    };
    unsigned width = 8;
    while (width < 64 && too_narrow(width)) width *= 2;
    for (; width < 64; width *= 2) *number |= *number << width;
    return number;
}

// "all", or pattern words joined by "+".
bool TakePatterns(const std::string& text, std::vector<uint64_t>* patterns) {
    patterns->clear();
    const std::vector<std::string> words = testprog::SplitList(text);
    if (words.size() == 1 && words[0] == "all") {
        patterns->assign(kPatterns.begin(), kPatterns.end());
        return true;
    }
    for (const std::string& word : words) {
        const auto number = PatternOf(word);
        if (!number) return false;
        patterns->push_back(*number);
    }
    return true;
}

// One sweep of a test, after which the program pauses.
struct Step {
    std::string test;
    bool spoil;
    testprog::Sweep<RealMemory> run;
};

class MemoryTest {
 public:
    MemoryTest(const Options& options, testprog::Run& run) : options_(options), run_(run) {}

    Outcome Test() {
        const std::string complaint = Prepare();
        if (!complaint.empty()) return {EndCode::kSkip, complaint};
        const auto limit = testprog::MemoryToTake("");
        if (!limit) return {EndCode::kSkip, "the system does not tell how much memory is left"};
        limit_ = Whole(*limit);
        if (limit_ == 0) return {EndCode::kSkip, "too little memory is left to take a part of it"};
        testprog::Watch(testprog::Watched::kMemory, {}, &run_);
        return options_.size ? TestOfSize(*options_.size) : TestInTime();
    }

 private:
    // Collects the steps that "-tp" names; a complaint otherwise.
    std::string Prepare() {
        const testprog::Depth& depth = kDepths.at(std::min<uint64_t>(options_.common.level, 3));
        std::vector<uint64_t> patterns = options_.patterns;
        if (patterns.empty())
            patterns.assign(kPatterns.begin(), kPatterns.begin() + depth.patterns);
        const uint64_t mask = run_.Seed() * 0x9e3779b97f4a7c15;
        size_t at = 0;
        for (std::string test : testprog::SplitList(options_.common.pattern)) {
            const std::string given = options_.common.pattern.substr(at, test.size());
            at += test.size() + 1;
            for (char& c : test) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            const bool spoil = !test.empty() && test.back() == 'X';
            if (spoil) test.pop_back();
            const auto sweeps = testprog::StepsOf<RealMemory>(test, patterns, depth, mask);
            if (sweeps.empty()) {
                return Format("option \"-tp\" with an unknown test \"%s\"", given.c_str());
            }
            for (const auto& sweep : sweeps) steps_.push_back({test, spoil, sweep});
        }
        return {};
    }

    // One area, in every round.
    Outcome TestOfSize(uint64_t size) {
        if (size > limit_) {
            run_.Note(Format("%llu KiB are tested, a quarter of the memory that is left",
                             static_cast<unsigned long long>(limit_ >> 10)));
        }
        held_.tested.push_back(MakeArea(std::min(size, limit_), -1));
        Area* area = held_.tested.back().get();
        if (area->size() < kSmallestSize && !run_.Stop()) return NothingLocked();
        return run_.Rounds([this, area] {
            uint64_t done = 0;
            return TestArea(area, [&] { run_.SetDone(++done, steps_.size()); });
        });
    }

    Outcome TestInTime() {
        const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
        testprog::FrameMap map(testprog::Environment("KVX_data"), testprog::MemoryInAll() / page,
                               std::time(nullptr), [this] { return run_.Stop(); });
        Outcome outcome = run_.Rounds([this, &map] { return Round(&map); });
        if (map.tested() > 0) run_.Note(map.Summary());
        return outcome;
    }

    // Memory that is held. Nothing is given back within a round, so that other frames come, and at
    // the end the closing record comes first: giving back takes its time.
    struct Held {
        uint64_t taken = 0;  // bytes
        std::vector<std::unique_ptr<Area>> tested;
        std::vector<std::unique_ptr<Area>> known;  // of frames that earlier runs have tested
    };

    // Tests piece after piece until the time is over, but one at least.
    Outcome Round(testprog::FrameMap* map) {
        held_ = Held();
        // Others may have come to need theirs since the last round.
        if (const auto limit = testprog::MemoryToTake("")) {
            limit_ = std::max(kSmallestSize, Whole(*limit));
        }
        start_ = testprog::Now();
        while ((held_.tested.empty() || Spent() < 1) && !run_.Stop()) {
            std::unique_ptr<Area> area = NextPiece(*map);
            if (!area) break;
            held_.tested.push_back(std::move(area));
            Outcome outcome = TestPiece(held_.tested.back().get(), map);
            if (outcome.code != EndCode::kOk) return outcome;
        }
        return held_.tested.empty() && !run_.Stop() ? NothingLocked() : Outcome{};
    }

    // Looks for frames that are not known in the first part of the time; takes what comes later,
    // and what is known when no more may be taken. Returns nullptr when nothing is left.
    std::unique_ptr<Area> NextPiece(const testprog::FrameMap& map) {
        const uint64_t size = std::min(limit_, PieceSize());
        while (held_.taken + size <= limit_ && !run_.Stop()) {
            held_.taken += size;
            auto area = MakeArea(size, NextNode());
            if (area->size() < kSmallestSize) break;
            const bool known = 2 * map.CountTested(area->frames()) > area->frames().size();
            if (!known || Spent() >= kTimeToLook) return area;
            held_.known.push_back(std::move(area));
        }
        held_.taken = limit_;
        if (held_.known.empty()) return nullptr;
        std::swap(held_.known[turn_++ % held_.known.size()], held_.known.back());
        std::unique_ptr<Area> area = std::move(held_.known.back());
        held_.known.pop_back();
        return area;
    }

    static uint64_t Whole(uint64_t size) { return size / kSmallestSize * kSmallestSize; }

    int NextNode() {
        static const std::vector<int> nodes = testprog::MemoryNodes();
        return nodes.empty() ? -1 : nodes[turn_++ % nodes.size()];
    }

    // Notes once that an area is smaller than it should be.
    std::unique_ptr<Area> MakeArea(uint64_t size, int node) {
        auto area = std::make_unique<Area>(size, node, [this] { return run_.Stop(); });
        if (!area->complaint().empty() && unlocked_.empty()) {
            unlocked_ = area->complaint();
            if (area->size() < kSmallestSize) return area;
            run_.Note(Format("only the %zu bytes of an area that could be locked are tested: %s",
                             area->size(), unlocked_.c_str()));
        }
        return area;
    }

    Outcome NothingLocked() const {
        return {EndCode::kSkip, "no memory could be locked: " + unlocked_};
    }

    static uint64_t PieceSize() {
        constexpr uint64_t kPiece = uint64_t{32} << 20;
        const long cache = sysconf(_SC_LEVEL3_CACHE_SIZE);
        return testprog::CanEvict() || cache <= 0
                   ? kPiece
                   : std::max(kPiece, 4 * static_cast<uint64_t>(cache));
    }

    // The part of the time for a round that has passed; pauses do not count.
    double Spent() const {
        const auto budget = options_.common.budget.value_or(kDefaultBudget);
        return (testprog::Now() - start_) / std::max(1e-3, static_cast<double>(budget));
    }

    Outcome TestPiece(Area* area, testprog::FrameMap* map) {
        Outcome outcome = TestArea(area, [this] {
            run_.SetDone(static_cast<uint64_t>(100 * std::min(1.0, Spent())), 100);
        });
        const bool whole = outcome.code == EndCode::kOk && !run_.Stop();
        if (whole && !map->Mark(area->frames()) && !unsaved_) {
            unsaved_ = true;
            run_.Note("what has been tested is not saved");
        }
        return outcome;
    }

    // All steps; `after` follows each.
    template <typename After>
    Outcome TestArea(Area* area, const After& after) {
        for (const Step& step : steps_) {
            Outcome outcome = RunStep(area, step);
            if (outcome.code != EndCode::kOk) return outcome;
            after();
            const double pause = testprog::Now();
            if (run_.Pause()) break;
            start_ += testprog::Now() - pause;
        }
        return {};
    }

    Outcome RunStep(Area* area, const Step& step) {
        const bool broken = step.spoil && options_.common.trap;
        if (broken) area->Break(area->size() / 3);
        const auto stop = [this] { return run_.Stop(); };
        RealMemory memory(*area, stop, step.spoil && !broken);
        Finding finding;
        const auto trap = testprog::Trapped([&] { finding = step.run(memory); });
        if (trap) {
            const auto offset = area->OffsetOf(trap->address);
            if (trap->signal == SIGBUS && offset) {
                return Wrong(*area, step, *offset, "uncorrectable error");
            }
            raise(trap->signal);
        }
        if (!finding) return {};
        return Wrong(*area, step, finding->offset,
                     Format("expected 0x%016llx got 0x%016llx, again 0x%016llx",
                            static_cast<unsigned long long>(finding->expected),
                            static_cast<unsigned long long>(finding->got),
                            static_cast<unsigned long long>(finding->again)));
    }

    static Outcome Wrong(const Area& area, const Step& step, size_t offset,
                         const std::string& what) {
        std::string text = Format("%s offset 0x%zx: %s", step.test.c_str(), offset, what.c_str());
        if (const auto physical = area.PhysicalAddress(offset)) {
            text += Format(", physical 0x%llx", static_cast<unsigned long long>(*physical));
        }
        return {EndCode::kNg, text};
    }

    const Options& options_;
    testprog::Run& run_;
    uint64_t limit_ = 0;  // bytes that may be taken
    std::vector<Step> steps_;
    Held held_;
    uint64_t turn_ = run_.Seed();  // of the nodes, and of pieces that are tested again
    double start_ = 0;             // of the round, later by its pauses
    std::string unlocked_;         // why an area could not be locked whole
    bool unsaved_ = false;
};

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
    if (testprog::AsksForExternal(argc, argv)) {
        return testprog::RunExternal("memtest", argc, argv);
    }
    Options options;
    options.common.device = "mem";
    options.common.pattern = "BMOVE";
    std::vector<testprog::Option> table = testprog::CommonOptionTable(&options.common);
    table.push_back({"size", true, [&options](const std::string& value) {
                         return TakeSize(value, &options.size);
                     }});
    table.push_back({"data", true, [&options](const std::string& value) {
                         return TakePatterns(value, &options.patterns);
                     }});
    const std::string complaint = testprog::ParseOptions(argc, argv, table);
    testprog::Run run("memtest", "Memory diagnosis", options.common);
    MemoryTest test(options, run);
    return run.Finish(complaint.empty() ? test.Test() : Outcome{EndCode::kSkip, complaint});
}
