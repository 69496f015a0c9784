// memtest: diagnosis of the memory.
//
// Takes an area of the size that "-size" says, locks it where it may, and runs the tests that
// "-tp" names over it with the patterns of "-data". A test name that ends in X spoils one bit, so
// that the way of a failure can be seen on healthy memory.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <optional>

#include "lib/run.h"
#include "mem/patterns.h"

namespace {

using testprog::Area;
using testprog::EndCode;
using testprog::Finding;
using testprog::Format;
using testprog::Outcome;

constexpr uint64_t kPatterns[] = {0x5555555555555555, 0xaaaaaaaaaaaaaaaa, 0x0000000000000000,
                                  0xffffffffffffffff, 0x3333333333333333, 0xcccccccccccccccc,
                                  0x0f0f0f0f0f0f0f0f, 0xf0f0f0f0f0f0f0f0, 0x00ff00ff00ff00ff,
                                  0xff00ff00ff00ff00};
constexpr uint64_t kSmallestSize = 64 << 10;
constexpr size_t kLockedAtOnce = 4 << 20;

// How deep the tests go, by level; higher levels are as the last.
struct Depth {
    size_t patterns;     // of those above, where "-data" names none
    unsigned positions;  // of a walking bit
    unsigned sweeps;     // with each pattern
};
constexpr Depth kDepths[] = {{2, 8, 1}, {4, 16, 2}, {6, 32, 3}, {std::size(kPatterns), 64, 4}};

struct Options {
    testprog::CommonOptions common;
    uint64_t size = 16 << 20;        // "-size", bytes
    std::vector<uint64_t> patterns;  // "-data"; empty leaves the choice to the level
};

// "16MB": a number with KB, MB or GB.
bool TakeSize(const std::string& text, uint64_t* size) {
    constexpr const char* kUnits[] = {"KB", "MB", "GB"};
    if (text.size() < 3) return false;
    std::string unit = text.substr(text.size() - 2);
    for (char& c : unit) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const auto* found = std::find(std::begin(kUnits), std::end(kUnits), unit);
    const auto number = testprog::ParseNumber(std::string_view(text).substr(0, text.size() - 2));
    if (found == std::end(kUnits) || !number || *number > (uint64_t{1} << 32)) return false;
    *size = *number << (10 * (found - kUnits + 1));
    return *size >= kSmallestSize;
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
        patterns->assign(std::begin(kPatterns), std::end(kPatterns));
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
    std::function<Finding(const Area&)> run;
};

// The steps of one test, in upper case and without its X; none for an unknown one.
std::vector<Step> StepsOf(const std::string& test, bool spoil,
                          const std::vector<uint64_t>& patterns, const Depth& depth) {
    std::vector<Step> steps;
    const bool whole = test == "WHOLE";
    if (whole) {
        steps.push_back({test, spoil, [positions = depth.positions](const Area& area) {
                             return testprog::WalkingBits(area, positions);
                         }});
        steps.push_back({test, spoil, testprog::AddressInAddress});
    }
    const auto sweep = test == "BMOVE"   ? testprog::BlockMoves
                       : test == "IMOVE" ? testprog::ElementMoves
                       : whole           ? testprog::MovingInversions
                                         : nullptr;
    if (sweep == nullptr) return steps;
    for (const uint64_t pattern : patterns) {
        steps.push_back({test, spoil, [sweep, pattern, sweeps = depth.sweeps](const Area& area) {
                             Finding finding;
                             for (unsigned i = 0;
                                  i < sweeps && !finding && (i == 0 || !area.stop()); ++i) {
                                 finding = sweep(area, i % 2 == 0 ? pattern : ~pattern);
                             }
                             return finding;
                         }});
    }
    return steps;
}

// Collects the steps that "-tp" names; a complaint otherwise.
std::string Prepare(const Options& options, std::vector<Step>* steps) {
    const Depth& depth = kDepths[std::min<uint64_t>(options.common.level, 3)];
    std::vector<uint64_t> patterns = options.patterns;
    if (patterns.empty()) patterns.assign(kPatterns, kPatterns + depth.patterns);
    size_t at = 0;
    for (std::string test : testprog::SplitList(options.common.pattern)) {
        const std::string given = options.common.pattern.substr(at, test.size());
        at += test.size() + 1;
        for (char& c : test) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        const bool spoil = !test.empty() && test.back() == 'X';
        if (spoil) test.pop_back();
        const std::vector<Step> more = StepsOf(test, spoil, patterns, depth);
        if (more.empty()) {
            return Format("option \"-tp\" with an unknown test \"%s\"", given.c_str());
        }
        steps->insert(steps->end(), more.begin(), more.end());
    }
    return {};
}

Outcome Round(const std::vector<Step>& steps, Area* area, testprog::Run& run) {
    uint64_t done = 0;
    for (const Step& step : steps) {
        area->spoil = step.spoil;
        if (const Finding finding = step.run(*area)) {
            return {EndCode::kNg,
                    Format("%s offset 0x%zx: expected 0x%016llx got 0x%016llx", step.test.c_str(),
                           finding->offset, static_cast<unsigned long long>(finding->expected),
                           static_cast<unsigned long long>(finding->got))};
        }
        run.SetDone(++done, steps.size());
        if (run.Pause()) break;
    }
    return {};
}

// Locks the area piece by piece, because the system clears what it locks, which takes seconds for
// a large one.
void Lock(char* memory, size_t size, testprog::Run& run) {
    for (size_t at = 0; at < size && !run.Stop(); at += kLockedAtOnce) {
        if (mlock(memory + at, std::min(kLockedAtOnce, size - at)) == 0) continue;
        run.Note(
            Format("only %zu bytes of the memory area are locked: %s", at, std::strerror(errno)));
        return;
    }
}

Outcome TestMemory(const Options& options, testprog::Run& run) {
    std::vector<Step> steps;
    const std::string complaint = Prepare(options, &steps);
    if (!complaint.empty()) return {EndCode::kSkip, complaint};

    const auto pages = static_cast<uint64_t>(std::max(0L, sysconf(_SC_PHYS_PAGES)));
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    if (options.size / page > pages / 2) {
        return {EndCode::kSkip, "option \"-size\" is more than half of the machine's memory"};
    }
    // Given back when the process ends: that takes its time, and the closing record comes first.
    void* memory =
        mmap(nullptr, options.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return {EndCode::kAbort, Format("no memory area: %s", std::strerror(errno))};
    }
    Lock(static_cast<char*>(memory), options.size, run);
    const size_t count = options.size / sizeof(uint64_t) & ~size_t{1};
    Area area{static_cast<uint64_t*>(memory), count, [&run] { return run.Stop(); }, false};
    return run.Rounds([&] { return Round(steps, &area, run); });
}

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
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
    return run.Finish(complaint.empty() ? TestMemory(options, run)
                                        : Outcome{EndCode::kSkip, complaint});
}
