// hddtest: diagnosis of one disk. Reads only; nothing here can write to a disk.
//
// "sector" reads on from where the last test left off, "iorandom" reads at random places.
// "-debug2" lets one block fail, so that the way of a failure can be seen on a healthy disk.

#include <algorithm>
#include <chrono>
#include <optional>
#include <random>

#include "adapter/external.h"
#include "counters/counters.h"
#include "hdd/device.h"
#include "hdd/progress.h"
#include "hdd/reader.h"
#include "lib/file.h"
#include "lib/run.h"

namespace {

using testprog::Disk;
using testprog::EndCode;
using testprog::Environment;
using testprog::Format;
using testprog::kPiece;
using testprog::Outcome;
using testprog::Reader;
using testprog::ReadResult;

constexpr uint64_t kMaxStep = 0x8000;
// What a round does by level. The last level reads to the end of the disk and lists bad blocks.
constexpr struct {
    uint64_t budgets;  // of "-budget" that a round of "sector" takes
    int reads;         // of "iorandom" for each of its places
} kDepths[] = {{1, 1}, {4, 2}, {16, 3}, {0, 4}};
constexpr uint64_t kLastLevel = 3;
constexpr uint64_t kDefaultBudget = 10;
constexpr size_t kMostBad = 16;
constexpr auto kSaveInterval = std::chrono::seconds(5);

struct Options {
    testprog::CommonOptions common;
    uint64_t lba = 0;       // "-lba", where to begin, in the units of the disk's addresses
    uint64_t step = 0x40;   // "-sc", blocks after which to pause
    uint64_t retries = 0;   // "-retry"
    uint64_t wide = 0;      // "-wide", blocks that "iorandom" ranges over; 0 is all of them
    uint64_t count = 1000;  // "-count", reads of one round of it
    bool ide = false;       // "-ide": the disk is on an IDE bus
    bool debug = false;     // "-debug2"
};

uint64_t Level(const Options& options) { return std::min(options.common.level, kLastLevel); }

// The first block of a test.
uint64_t FirstBlock(const Options& options, const Disk& disk) {
    const uint64_t unit = testprog::AddressUnit(disk.blocks());
    return options.lba <= (disk.blocks() - 1) / unit ? options.lba * unit : 0;
}

std::string Block(uint64_t block) {
    return Format("0x%08llx", static_cast<unsigned long long>(block));
}

// Reads on through the disk, over as many rounds as the run has.
class SectorTest {
 public:
    SectorTest(const Options& options, Disk& disk, testprog::Run& run)
        : options_(options),
          disk_(disk),
          run_(run),
          reader_(disk, run, options.retries, true),
          unit_(testprog::AddressUnit(disk.blocks())),
          end_(disk.blocks()),
          step_(std::max(options.step, unit_)),
          next_(FirstBlock(options, disk)),
          ahead_(next_) {
        Announce(next_);
        if (options.debug) disk.PretendBad(next_ + std::min(options.step, end_ - next_) / 2);
    }

    Outcome Round() {
        const uint64_t budget = options_.common.budget.value_or(kDefaultBudget);
        const double over =
            testprog::Now() + static_cast<double>(budget * kDepths[Level(options_)].budgets);
        do {
            const uint64_t count = std::min(step_, end_ - next_);
            if (!ReadUpTo(next_ + count)) break;
            // What lies before a bad block was read; the test goes on behind the step that has it.
            while (Listed() && next_ + count <= bad_.back()) next_ += count;
            next_ = std::min(next_ + count, end_);
            const bool completed = next_ == end_;
            // The last level shows how far it came, up to the whole; the others are ready to
            // begin again. A start at the end begins again too.
            Announce(completed && Level(options_) < kLastLevel ? 0 : next_);
            run_.SetDone(next_, end_);
            if (Listed()) return Failure();
            if (completed) return bad_.empty() ? Outcome{EndCode::kCompleted, {}} : Failure();
            if (run_.Pause()) break;
        } while (Level(options_) == kLastLevel || testprog::Now() < over);
        return {};
    }

    // How the test ended: a run that was stopped does not hide the bad blocks that it has met.
    Outcome Verdict(const Outcome& outcome) const {
        return bad_.empty() || outcome.code == EndCode::kNg ? outcome : Failure();
    }

    // Writes the progress of the last level; now and then while the test runs, and at its end.
    void SaveProgress() {
        const std::string directory = Environment("KVX_data");
        if (Level(options_) < kLastLevel || directory.empty()) return;
        const std::string& device = options_.common.device;
        const std::string complaint = testprog::SaveProgress(
            directory, device, Address(end_), Address(announced_), [this] { return run_.Stop(); });
        last_save_ = std::chrono::steady_clock::now();
        if (complaint.empty() || save_failed_) return;
        save_failed_ = true;
        run_.Note(Format("the progress of %s is not saved: %s", device.c_str(), complaint.c_str()));
    }

 private:
    // Whether there are as many bad blocks as the test looks for.
    bool Listed() const {
        const bool first_ends = Level(options_) < kLastLevel || options_.debug;
        return bad_.size() >= (first_ends ? 1 : kMostBad);
    }

    // A block as an address: the end takes a whole unit, a place within one its beginning.
    uint64_t Address(uint64_t block) const {
        return block == end_ ? (end_ - 1) / unit_ + 1 : block / unit_;
    }

    // Sees to it that everything before `block` is read, in pieces that go beyond it. Returns false
    // when the run stopped first. Ends early when enough bad blocks are listed.
    bool ReadUpTo(uint64_t block) {
        using End = ReadResult::End;
        while (ahead_ < block && !Listed()) {
            const uint64_t count = std::min(kPiece, end_ - ahead_);
            const ReadResult read = reader_.Read(ahead_, count);
            if (read.end == End::kStopped) return false;
            if (read.end != End::kFailed) {
                ahead_ += count;
                continue;
            }
            if (bad_.empty()) reason_ = read.reason;
            bad_.push_back(read.block);
            run_.Note(Format("bad block %s: %s", Block(read.block).c_str(), read.reason.c_str()));
            ahead_ = std::min((read.block / disk_.sector() + 1) * disk_.sector(), end_);
        }
        return true;
    }

    Outcome Failure() const {
        static_cast<void>(run_.Seed());  // chooses nothing here, but error lines have it
        std::string error = Format("sector read error at block %s: %s", Block(bad_.front()).c_str(),
                                   reason_.c_str());
        if (bad_.size() > 1) error += ", also bad:";
        for (size_t i = 1; i < bad_.size(); ++i) error += " " + Block(bad_[i]);
        return {EndCode::kNg, error};
    }

    // Sets what the closing record and the saved progress say.
    void Announce(uint64_t next) {
        announced_ = next;
        run_.SetNextAddress(Address(next));
        if (std::chrono::steady_clock::now() - last_save_ >= kSaveInterval) SaveProgress();
    }

    const Options& options_;
    Disk& disk_;
    testprog::Run& run_;
    Reader reader_;
    const uint64_t unit_;
    const uint64_t end_;
    const uint64_t step_;
    uint64_t next_;
    uint64_t ahead_;  // where reading goes on; never before next_
    uint64_t announced_ = 0;
    std::vector<uint64_t> bad_;
    std::string reason_;  // of the first
    std::chrono::steady_clock::time_point last_save_ = std::chrono::steady_clock::now();
    bool save_failed_ = false;
};

// Reads at random places within "-wide" blocks from "-lba" on. At the higher levels each is
// followed by others that make long seeks: at the mirrored place, at the first, at the last.
class RandomTest {
 public:
    RandomTest(const Options& options, Disk& disk, testprog::Run& run)
        : options_(options),
          disk_(disk),
          run_(run),
          reader_(disk, run, options.retries, false),
          first_(FirstBlock(options, disk)),
          random_(run.Seed()) {}

    Outcome Round() {
        const uint64_t left = disk_.blocks() - first_;
        const uint64_t range = options_.wide == 0 ? left : std::min(options_.wide, left);
        const uint64_t count = std::min(options_.step, range);
        const uint64_t last = range - count;
        std::uniform_int_distribution<uint64_t> place(0, last);
        for (uint64_t i = 0; i < options_.count; ++i) {
            const uint64_t at = place(random_);
            if (options_.debug) disk_.PretendBad(first_ + at + count / 2);
            const uint64_t places[] = {at, last - at, 0, last};
            for (int n = 0; n < kDepths[Level(options_)].reads; ++n) {
                const ReadResult read = reader_.Read(first_ + places[n], count);
                if (read.end == ReadResult::End::kStopped) return {};
                if (read.end == ReadResult::End::kFailed) {
                    return {EndCode::kNg, Format("iorandom read error at block %s: %s",
                                                 Block(read.block).c_str(), read.reason.c_str())};
                }
            }
            run_.SetDone(i + 1, options_.count);
            if (run_.Pause()) break;
        }
        return {};
    }

 private:
    const Options& options_;
    Disk& disk_;
    testprog::Run& run_;
    Reader reader_;
    const uint64_t first_;
    std::mt19937_64 random_;
};

Outcome TestDisk(const Options& options, testprog::Run& run) {
    const std::vector<std::string> tests = testprog::SplitList(options.common.pattern);
    const bool sector = tests == std::vector<std::string>{"sector"};
    if (!sector && tests != std::vector<std::string>{"iorandom"}) {
        return {EndCode::kSkip, Format("option \"-tp\" with an unknown test \"%s\"",
                                       options.common.pattern.c_str())};
    }
    if (options.common.device.empty()) return {EndCode::kSkip, "option \"-dev\" is missing"};
    Disk disk;
    Outcome opened = disk.Open(options.common.device);
    if (opened.code != EndCode::kOk) return opened;
    run.writer().SendDiskInfo(disk.Info(options.ide));
    // An image has no counters, but there may be some to try the program with.
    if (!disk.image() || !Environment("TESTPROG_ROOT").empty()) {
        testprog::Watch(testprog::Watched::kDisk, options.common.device, &run);
    }

    if (sector) {
        SectorTest test(options, disk, run);
        const Outcome outcome = run.Rounds([&test] { return test.Round(); });
        test.SaveProgress();
        return test.Verdict(outcome);
    }
    RandomTest test(options, disk, run);
    return run.Rounds([&test] { return test.Round(); });
}

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
    if (testprog::AsksForExternal(argc, argv)) {
        return testprog::RunExternal("hddtest", argc, argv);
    }
    Options options;
    options.common.pattern = "sector";
    std::vector<testprog::Option> table = testprog::CommonOptionTable(&options.common);
    using testprog::NumberOption;
    table.push_back(NumberOption("lba", &options.lba, 0, UINT64_MAX));
    table.push_back(NumberOption("sc", &options.step, 1, kMaxStep));
    table.push_back(NumberOption("retry", &options.retries, 0, 100));
    table.push_back(NumberOption("wide", &options.wide, 0, UINT64_MAX));
    table.push_back(NumberOption("count", &options.count, 1, UINT32_MAX));
    table.push_back(testprog::SwitchOption("ide", &options.ide));
    table.push_back(testprog::SwitchOption("debug2", &options.debug));
    const std::string complaint = testprog::ParseOptions(argc, argv, table);
    testprog::Run run("hddtest", "Disk diagnosis", options.common, true);
    // The schedule keeps its place even where the test is skipped.
    run.SetNextAddress(options.lba);
    return run.Finish(complaint.empty() ? TestDisk(options, run)
                                        : Outcome{EndCode::kSkip, complaint});
}
