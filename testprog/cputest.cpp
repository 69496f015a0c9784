// cputest: diagnosis of the processors.
//
// Binds itself to every processor it may run on, in turn, and lets it carry out the checks of the
// modules that "-tp" names. "-dbg_modid" and "-dbg_point" spoil the answer of one check, so that
// the way of a failure can be seen on a healthy machine.

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "cpu_check.h"
#include "run.h"

namespace {

using testprog::Answer;
using testprog::Check;
using testprog::EndCode;
using testprog::Format;
using testprog::Outcome;

struct Options {
    testprog::CommonOptions common;
    std::uint64_t module = 0;  // "-dbg_modid": the id of a module below
    std::uint64_t point = 0;   // "-dbg_point": which of its checks to spoil, from 1 on
};

struct Module {
    const char* name;
    std::uint64_t id;
};
constexpr Module kModules[] = {{"instruction", 0x10000}, {"register", 0x20000}, {"cache", 0x40000}};

struct Test {
    std::vector<Check> checks;
    const Check* spoilt = nullptr;
};

std::vector<Check> ChecksOf(const Module& module, const Options& options, testprog::Run& run) {
    if (module.id == kModules[0].id) return testprog::InstructionChecks();
    if (module.id == kModules[1].id) return testprog::RegisterChecks();
    return testprog::CacheChecks(options.common.level, [&run] { return run.Stop(); });
}

// Collects the checks; a complaint about "-tp" or the debug words otherwise.
std::string Prepare(const Options& options, testprog::Run& run, Test* test) {
    std::size_t spoilt = SIZE_MAX;
    for (const std::string& name : testprog::SplitList(options.common.pattern)) {
        const auto* module =
            std::find_if(std::begin(kModules), std::end(kModules),
                         [&name](const Module& known) { return name == known.name; });
        if (module == std::end(kModules)) {
            return Format("option \"-tp\" with an unknown test \"%s\"", name.c_str());
        }
        const std::vector<Check> checks = ChecksOf(*module, options, run);
        if (checks.empty()) return Format("no memory for the test \"%s\"", name.c_str());
        if (options.module == module->id && options.point - 1 < checks.size()) {
            spoilt = test->checks.size() + options.point - 1;
        }
        test->checks.insert(test->checks.end(), checks.begin(), checks.end());
    }
    if (options.module == 0 && options.point == 0) return {};
    if (spoilt == SIZE_MAX)
        return "options \"-dbg_modid\" and \"-dbg_point\" name no check of \"-tp\"";
    test->spoilt = &test->checks[spoilt];
    return {};
}

struct FreeCpuSet {
    void operator()(cpu_set_t* set) const { CPU_FREE(set); }
};

// False where the system does not have or give that processor.
bool BindTo(int processor, int configured) {
    const std::unique_ptr<cpu_set_t, FreeCpuSet> set(CPU_ALLOC(static_cast<size_t>(configured)));
    if (!set) return false;
    const std::size_t size = CPU_ALLOC_SIZE(static_cast<size_t>(configured));
    CPU_ZERO_S(size, set.get());
    CPU_SET_S(static_cast<size_t>(processor), size, set.get());
    return sched_setaffinity(0, size, set.get()) == 0;
}

// One check as often as the level asks, on the processor that the program is bound to.
Outcome RunCheck(const Check& check, bool spoilt, int processor, const Options& options,
                 testprog::Run& run) {
    const int times = 2 << std::min<std::uint64_t>(options.common.level, 3);
    std::uint64_t variant = static_cast<std::uint64_t>(processor) << 32;
    for (int i = 0; i < times && !run.Stop(); ++i) {
        for (int j = 0; j < check.repeats; ++j) {
            Answer answer = check.run(++variant);
            if (spoilt) answer.got ^= 1U;
            if (answer.got != answer.expected) {
                return {EndCode::kNg, Format("processor %d %s: expected 0x%llx got 0x%llx",
                                             processor, check.operation.c_str(),
                                             static_cast<unsigned long long>(answer.expected),
                                             static_cast<unsigned long long>(answer.got))};
            }
        }
        run.Pause();
    }
    return {};
}

Outcome TestProcessor(int processor, const Test& test, const Options& options, testprog::Run& run) {
    for (const Check& check : test.checks) {
        Outcome outcome = RunCheck(check, &check == test.spoilt, processor, options, run);
        if (outcome.code != EndCode::kOk || run.Stop()) return outcome;
    }
    return {};
}

Outcome Round(const Test& test, const Options& options, testprog::Run& run) {
    const int configured = std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_CONF)));
    int tested = 0;
    Outcome outcome;
    for (int processor = 0; processor < configured; ++processor) {
        run.SetDone(static_cast<std::uint64_t>(processor), static_cast<std::uint64_t>(configured));
        if (!BindTo(processor, configured)) continue;
        ++tested;
        outcome = TestProcessor(processor, test, options, run);
        if (outcome.code != EndCode::kOk || run.Stop()) return outcome;
    }
    if (tested == 0) return {EndCode::kAbort, "the system lets the test run on no processor"};
    return {};
}

Outcome TestProcessors(const Options& options, testprog::Run& run) {
    Test test;
    const std::string complaint = Prepare(options, run, &test);
    if (!complaint.empty()) return {EndCode::kSkip, complaint};
    return run.Rounds([&] { return Round(test, options, run); });
}

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
    Options options;
    options.common.device = "CPU";
    options.common.pattern = "Instruction+Register";
    std::vector<testprog::Option> table = testprog::CommonOptionTable(&options.common);
    table.push_back(testprog::NumberOption("dbg_modid", &options.module, 1, UINT32_MAX));
    table.push_back(testprog::NumberOption("dbg_point", &options.point, 1, UINT32_MAX));
    const std::string complaint = testprog::ParseOptions(argc, argv, table);
    testprog::Run run("cputest", "Processor diagnosis", options.common);
    return run.Finish(complaint.empty() ? TestProcessors(options, run)
                                        : Outcome{EndCode::kSkip, complaint});
}
