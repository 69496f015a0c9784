// cputest: diagnosis of the processors.
//
// Binds itself to every online processor in turn, whichever of them it was started on, and lets it
// carry out the checks of the modules that "-tp" names. "-dbg_modid" and "-dbg_point" spoil the
// answer of one check, whether "-tp" names its module or not, so that the way of a failure can be
// seen on a healthy machine.

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>
#include <set>

#include "cpu/check.h"
#include "lib/run.h"

namespace {

using testprog::Answer;
using testprog::Check;
using testprog::EndCode;
using testprog::Format;
using testprog::Outcome;

struct Options {
    testprog::CommonOptions common;
    uint64_t module = 0;  // "-dbg_modid": the id of a module below
    uint64_t point = 0;   // "-dbg_point": which of its checks to spoil, from 1 on
};

// How deep the tests go, by level; higher levels are as the last.
struct Depth {
    int times;     // how often each check's repeats are run
    size_t areas;  // how many sizes are walked over
};
constexpr Depth kDepths[] = {{2, 3}, {4, 4}, {8, 5}, {16, 6}};

struct Module {
    const char* name;
    uint64_t id;
    // Empty when there is no memory for the checks.
    std::vector<Check> (*make)(const Depth& depth, const std::function<bool()>& stop);
};
constexpr Module kModules[] = {
    {"instruction", 0x10000,
     [](const Depth&, const std::function<bool()>&) { return testprog::InstructionChecks(); }},
    {"register", 0x20000,
     [](const Depth&, const std::function<bool()>&) { return testprog::RegisterChecks(); }},
    {"cache", 0x40000, [](const Depth& depth, const std::function<bool()>& stop) {
         return testprog::CacheChecks(depth.areas, stop);
     }}};

// The first module for which `fits` is true, or nullptr.
template <typename Fits>
const Module* FindModule(const Fits& fits) {
    const auto* module = std::find_if(std::begin(kModules), std::end(kModules), fits);
    return module == std::end(kModules) ? nullptr : module;
}

// The system's list of them, as "0-3,8".
std::vector<int> OnlineProcessors() {
    std::vector<int> processors;
    std::ifstream list("/sys/devices/system/cpu/online");
    for (int first = 0; list >> first; list.ignore()) {
        int last = first;
        if (list.peek() == '-') list.ignore() >> last;
        for (; first <= last; ++first) processors.push_back(first);
    }
    if (processors.empty()) {
        processors.resize(static_cast<size_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN))));
        std::iota(processors.begin(), processors.end(), 0);
    }
    return processors;
}

// False where the system does not have or give that processor.
bool BindTo(int processor) {
    const auto number = static_cast<size_t>(processor);
    std::vector<cpu_set_t> sets(number / CPU_SETSIZE + 1);
    const size_t size = sets.size() * sizeof sets[0];
    CPU_SET_S(number, size, sets.data());
    return sched_setaffinity(0, size, sets.data()) == 0;
}

class ProcessorTest {
 public:
    ProcessorTest(const Options& options, testprog::Run& run)
        : options_(options),
          run_(run),
          depth_(kDepths[std::min<uint64_t>(options.common.level, 3)]) {}

    Outcome Test() {
        Outcome outcome = ChooseModules();
        if (outcome.code == EndCode::kOk) outcome = MakeChecks();
        if (outcome.code != EndCode::kOk) return outcome;
        return run_.Rounds([this] { return Round(); });
    }

 private:
    // Those that "-tp" names and the one with the check to spoil.
    Outcome ChooseModules() {
        size_t at = 0;
        for (const std::string& name : testprog::SplitList(options_.common.pattern)) {
            const Module* module =
                FindModule([&name](const Module& known) { return name == known.name; });
            if (module == nullptr) {
                const std::string given = options_.common.pattern.substr(at, name.size());
                return {EndCode::kSkip,
                        Format("option \"-tp\" with an unknown test \"%s\"", given.c_str())};
            }
            modules_.push_back(module);
            at += name.size() + 1;
        }
        if (options_.module == 0 && options_.point == 0) return {};
        spoilt_ = FindModule([this](const Module& known) { return known.id == options_.module; });
        if (spoilt_ == nullptr) return NoSuchCheck();
        if (std::find(modules_.begin(), modules_.end(), spoilt_) == modules_.end()) {
            modules_.push_back(spoilt_);
        }
        return {};
    }

    Outcome MakeChecks() {
        for (const Module* module : modules_) {
            std::vector<Check> checks = module->make(depth_, [this] { return run_.Stop(); });
            if (checks.empty()) {
                return {EndCode::kAbort, Format("no memory for the test \"%s\"", module->name)};
            }
            if (module == spoilt_) {
                if (options_.point - 1 >= checks.size()) return NoSuchCheck();
                auto& run = checks[options_.point - 1].run;
                run = [sound = run](uint64_t variant) {
                    Answer answer = sound(variant);
                    answer.got ^= 1U;
                    return answer;
                };
            }
            checks_.insert(checks_.end(), checks.begin(), checks.end());
        }
        return {};
    }

    static Outcome NoSuchCheck() {
        return {EndCode::kSkip, "options \"-dbg_modid\" and \"-dbg_point\" name no check"};
    }

    Outcome Round() {
        const std::vector<int> processors = OnlineProcessors();
        uint64_t tried = 0;
        bool any = false;
        for (const int processor : processors) {
            run_.SetDone(tried++, processors.size());
            if (!BindTo(processor)) {
                const std::string reason = std::strerror(errno);
                if (left_out_.insert(processor).second) {
                    run_.Note(Format("processor %d is online but not tested: %s", processor,
                                     reason.c_str()));
                }
                continue;
            }
            any = true;
            Outcome outcome = TestProcessor(processor);
            if (outcome.code != EndCode::kOk || run_.Stop()) return outcome;
        }
        ++round_;
        if (!any) return {EndCode::kAbort, "the system lets the test run on no processor"};
        return {};
    }

    Outcome TestProcessor(int processor) {
        for (const Check& check : checks_) {
            Outcome outcome = RunCheck(check, processor);
            if (outcome.code != EndCode::kOk || run_.Stop()) return outcome;
        }
        return {};
    }

    // One check as often as the level asks, on the processor that the program is bound to.
    Outcome RunCheck(const Check& check, int processor) {
        uint64_t variant = (round_ << 40) ^ (static_cast<uint64_t>(processor) << 24);
        for (int i = 0; i < depth_.times && !run_.Stop(); ++i) {
            for (int j = 0; j < check.repeats; ++j) {
                const Answer answer = check.run(++variant);
                if (answer.got != answer.expected) {
                    return {EndCode::kNg, Format("processor %d %s: expected 0x%llx got 0x%llx",
                                                 processor, check.operation.c_str(),
                                                 static_cast<unsigned long long>(answer.expected),
                                                 static_cast<unsigned long long>(answer.got))};
                }
            }
            run_.Pause();
        }
        return {};
    }

    const Options& options_;
    testprog::Run& run_;
    const Depth& depth_;
    std::vector<const Module*> modules_;
    const Module* spoilt_ = nullptr;
    std::vector<Check> checks_;
    std::set<int> left_out_;  // processors that could not be bound to
    uint64_t round_ = 0;
};

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
    return run.Finish(complaint.empty() ? ProcessorTest(options, run).Test()
                                        : Outcome{EndCode::kSkip, complaint});
}
