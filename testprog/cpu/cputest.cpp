// cputest: diagnosis of the processors.
//
// Binds itself to every online processor in turn, whichever of them it was started on, and lets it
// carry out the checks of the modules that "-tp" names; at the last level all of them at once
// first.
// "-dbg_modid" and "-dbg_point" spoil the answer of one check, whether "-tp" names its module or
// not, so that the way of a failure can be seen on a healthy machine.

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <list>
#include <mutex>
#include <new>
#include <set>
#include <thread>

#include "adapter/external.h"
#include "counters/counters.h"
#include "cpu/check.h"
#include "cpu/processors.h"
#include "lib/run.h"
#include "lib/trap.h"

namespace {

using testprog::Answer;
using testprog::BoundThread;
using testprog::Check;
using testprog::EndCode;
using testprog::Format;
using testprog::Outcome;
using testprog::Trap;
using Stop = std::function<bool()>;

struct Options {
    testprog::CommonOptions common;
    uint64_t module = 0;    // "-dbg_modid": the id of a module below
    uint64_t point = 0;     // "-dbg_point": which of its checks to spoil, from 1 on
    bool affinity = false;  // "-affinity": only the processors that the program was started on
};

// How deep the tests go, by level; higher levels are as the last.
struct Depth {
    int times;     // how often each check's repeats are run
    size_t areas;  // how many sizes are walked over
    bool at_once;  // all processors at once, too
};
constexpr Depth kDepths[] = {{2, 3, false}, {4, 4, false}, {8, 5, false}, {16, 6, true}};
constexpr size_t kAreasAtOnce = 4;  // the largest caches are shared
constexpr size_t kLargestArea = size_t{64} << 20;

// What the checks of a module are made for.
struct Setting {
    std::vector<int> processors;
    size_t areas;
    Stop stop;
};

// Half of each cache, which it holds, and twice as much, which the next one has to take.
std::vector<Check> MakeCacheChecks(const Setting& setting) {
    std::vector<size_t> sizes;
    for (const size_t cache : testprog::CacheSizes(setting.processors.front())) {
        sizes.push_back(std::min(cache / 2, kLargestArea));
        sizes.push_back(std::min(cache * 2, kLargestArea));
    }
    std::sort(sizes.begin(), sizes.end());
    sizes.erase(std::unique(sizes.begin(), sizes.end()), sizes.end());
    if (sizes.size() > setting.areas) sizes.resize(setting.areas);
    const std::shared_ptr<uint64_t> memory(new (std::nothrow)
                                               uint64_t[sizes.back() / sizeof(uint64_t)],
                                           std::default_delete<uint64_t[]>());
    if (!memory) return {};
    return testprog::CacheChecks(memory, sizes, setting.stop);
}

// The checks of vector registers come last, so that the numbers of the others are the same on every
// machine; likewise those of the instructions that two processors share.
std::vector<Check> Joined(std::vector<Check> checks, const std::vector<Check>& more) {
    checks.insert(checks.end(), more.begin(), more.end());
    return checks;
}

struct Module {
    const char* name;
    uint64_t id;
    // Empty when there is no memory for the checks.
    std::vector<Check> (*make)(const Setting& setting);
};
constexpr Module kModules[] = {{"instruction", 0x10000,
                                [](const Setting& setting) {
                                    return Joined(testprog::InstructionChecks(),
                                                  testprog::CoherenceChecks(setting.processors));
                                }},
                               {"register", 0x20000,
                                [](const Setting&) {
                                    return Joined(testprog::RegisterChecks(),
                                                  testprog::VectorRegisterChecks());
                                }},
                               {"cache", 0x40000, MakeCacheChecks}};

// The first module for which `fits` is true, or nullptr.
template <typename Fits>
const Module* FindModule(const Fits& fits) {
    const auto* module = std::find_if(std::begin(kModules), std::end(kModules), fits);
    return module == std::end(kModules) ? nullptr : module;
}

// What a batch of runs of one check ended with.
struct Batch {
    Answer answer = {0, 0};
    uint64_t variant = 0;
    std::optional<Trap> trap;

    bool good() const { return !trap && answer.expected == answer.got; }
    std::string result() const {
        return trap ? testprog::TrapName(*trap)
                    : Format("0x%llx", static_cast<unsigned long long>(answer.got));
    }
};

// Runs the check so often, with variants from the one given on; up to the first wrong answer.
Batch RunBatch(const Check& check, uint64_t variant, int count) {
    Batch batch;
    batch.trap = testprog::Trapped([&] {
        for (int i = 0; i < count && batch.answer.expected == batch.answer.got; ++i) {
            batch.variant = variant + static_cast<uint64_t>(i);
            batch.answer = check.run(batch.variant);
        }
    });
    return batch;
}

// A number of 64 bits from two: not 0.
uint64_t Mix(uint64_t seed, uint64_t place) {
    uint64_t mixed = (seed + place * 0x9e3779b97f4a7c15) | (uint64_t{1} << 63);
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    return mixed ^ (mixed >> 31);
}

class ProcessorTest {
 public:
    ProcessorTest(const Options& options, testprog::Run& run)
        : options_(options),
          run_(run),
          depth_(kDepths[std::min<uint64_t>(options.common.level, 3)]),
          allowed_(testprog::AllowedProcessors()),
          seed_(run.Seed()) {}

    Outcome Test() {
        Outcome outcome = ChooseModules();
        const Setting setting{Processors(), depth_.areas, [this] { return run_.Stop(); }};
        if (outcome.code == EndCode::kOk) outcome = MakeChecks(setting, &checks_);
        if (outcome.code != EndCode::kOk) return outcome;
        testprog::Watch(testprog::Watched::kProcessors, {}, &run_);
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

    Outcome MakeChecks(const Setting& setting, std::vector<Check>* checks) const {
        for (const Module* module : modules_) {
            std::vector<Check> made = module->make(setting);
            if (made.empty()) {
                return {EndCode::kAbort, Format("no memory for the test \"%s\"", module->name)};
            }
            if (module == spoilt_) {
                if (options_.point - 1 >= made.size()) return NoSuchCheck();
                Spoil(&made[options_.point - 1]);
            }
            checks->insert(checks->end(), made.begin(), made.end());
        }
        return {};
    }

    void Spoil(Check* check) const {
        check->run = [sound = check->run, trap = options_.common.trap](uint64_t variant) {
            Answer answer = sound(variant);
            if (trap) raise(SIGILL);
            answer.got ^= 1U;
            return answer;
        };
    }

    static Outcome NoSuchCheck() {
        return {EndCode::kSkip, "options \"-dbg_modid\" and \"-dbg_point\" name no check"};
    }

    // In order; at least one.
    std::vector<int> Processors() const {
        return options_.affinity && !allowed_.empty() ? allowed_ : testprog::OnlineProcessors();
    }

    Outcome Round() {
        ++round_;
        std::vector<int> processors = Processors();
        if (depth_.at_once && processors.size() > 1) {
            Outcome outcome = TestAtOnce(processors);
            if (outcome.code != EndCode::kOk) return outcome;
        }
        // Where the time does not last for all of them, the next run has others.
        std::rotate(processors.begin(), processors.begin() + seed_ % processors.size(),
                    processors.end());
        uint64_t tried = 0;
        bool tested = false;
        for (const int processor : processors) {
            if (run_.Stop()) return {};
            run_.SetDone(tried++, processors.size());
            if (!testprog::BindTo(processor)) {
                NoteLeftOut(processor, std::strerror(errno));
                continue;
            }
            tested = true;
            Outcome outcome = TestProcessor(processor);
            if (outcome.code != EndCode::kOk) return outcome;
        }
        return tested ? Outcome{}
                      : Outcome{EndCode::kAbort, "the system lets the test run on no processor"};
    }

    void NoteLeftOut(int processor, const std::string& reason) {
        if (!left_out_.insert(processor).second) return;
        run_.Note(Format("processor %d is online but not tested: %s", processor, reason.c_str()));
    }

    Outcome TestProcessor(int processor) {
        const size_t batches = checks_.size() * static_cast<size_t>(depth_.times);
        for (size_t i = 0; i < batches && !run_.Stop(); ++i) {
            Outcome outcome = RunCheck(checks_[i % checks_.size()], i, processor);
            if (outcome.code != EndCode::kOk) return outcome;
            run_.Pause();
        }
        return {};
    }

    // All at the same time, which heats the machine and loads its supply. Every processor has
    // checks of its own: those of the caches change memory.
    Outcome TestAtOnce(const std::vector<int>& processors) {
        std::atomic<bool> stop = false;
        std::mutex mutex;
        Outcome first;
        const Setting setting{processors, std::min(depth_.areas, kAreasAtOnce),
                              [&stop] { return stop.load(); }};
        const auto test = [&](int processor) {
            std::vector<Check> checks;
            Outcome outcome = MakeChecks(setting, &checks);
            const size_t batches = checks.size() * static_cast<size_t>(depth_.times);
            for (size_t i = 0; i < batches && !stop && outcome.code == EndCode::kOk; ++i) {
                outcome = RunCheck(checks[i % checks.size()], i, processor);
            }
            const std::lock_guard<std::mutex> lock(mutex);
            if (outcome.code != EndCode::kOk) {
                stop = true;
                if (first.code == EndCode::kOk) first = outcome;
            }
        };
        std::list<BoundThread> threads;
        for (const int processor : processors) {
            threads.emplace_back(processor, [&test, processor](bool bound) {
                if (bound) test(processor);
            });
            if (threads.back().started()) continue;
            run_.Note(Format("processor %d is not tested together with the others: no thread",
                             processor));
        }
        const testprog::TrapsElsewhere none_here;
        bool starved = false;
        for (const BoundThread& thread : threads) {
            while (thread.running()) {
                if (starved || run_.Stop()) stop = true;
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            starved = starved || thread.starved();
        }
        if (starved && first.code == EndCode::kOk) throw std::bad_alloc();
        return first;
    }

    // One batch of a check on the processor that the thread is bound to; `number` counts them.
    Outcome RunCheck(const Check& check, size_t number, int processor) {
        const uint64_t place = (((round_ << 16) + number) << 32) + static_cast<uint64_t>(processor);
        const Batch batch = RunBatch(check, Mix(seed_, place), check.repeats);
        if (batch.good()) return {};
        const Batch again = RunBatch(check, batch.variant, 1);
        std::string got = batch.result();
        if (!batch.trap) {
            got = Format("expected 0x%llx got %s",
                         static_cast<unsigned long long>(batch.answer.expected), got.c_str());
        }
        return {EndCode::kNg,
                Format("processor %d %s: %s, again %s", processor, check.operation.c_str(),
                       got.c_str(), again.good() ? "right" : again.result().c_str())};
    }

    const Options& options_;
    testprog::Run& run_;
    const Depth& depth_;
    const std::vector<int> allowed_;  // when the program was started
    const uint64_t seed_;
    std::vector<const Module*> modules_;
    const Module* spoilt_ = nullptr;
    std::vector<Check> checks_;
    std::set<int> left_out_;  // processors that could not be bound to
    uint64_t round_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
    if (testprog::AsksForExternal(argc, argv)) {
        return testprog::RunExternal("cputest", argc, argv);
    }
    Options options;
    options.common.device = "CPU";
    options.common.pattern = "Instruction+Register";
    std::vector<testprog::Option> table = testprog::CommonOptionTable(&options.common);
    table.push_back(testprog::NumberOption("dbg_modid", &options.module, 1, UINT32_MAX));
    table.push_back(testprog::NumberOption("dbg_point", &options.point, 1, UINT32_MAX));
    table.push_back(testprog::SwitchOption("affinity", &options.affinity));
    const std::string complaint = testprog::ParseOptions(argc, argv, table);
    testprog::Run run("cputest", "Processor diagnosis", options.common);
    return run.Finish(complaint.empty() ? ProcessorTest(options, run).Test()
                                        : Outcome{EndCode::kSkip, complaint});
}
