// hddtest: diagnosis of one disk. Reads only; nothing here can write to a disk.
//
// "sector" reads on from where the last test left off, "iorandom" reads at random places.
// "-debug2" lets one block fail, so that the way of a failure can be seen on a healthy disk.

#include <algorithm>
#include <chrono>
#include <optional>
#include <random>

#include "hdd/device.h"
#include "hdd/progress.h"
#include "lib/file.h"
#include "lib/run.h"

namespace {

using testprog::Disk;
using testprog::EndCode;
using testprog::Environment;
using testprog::Format;
using testprog::Outcome;
using testprog::ReadResult;

// What a record can say: the next address, up to the end, has 32 bits.
constexpr uint64_t kMaxBlocks = UINT32_MAX;
constexpr uint64_t kMaxStep = 0x8000;
// What a round does by level. The last level reads to the end of the disk.
constexpr struct {
    uint64_t steps;  // of "sector"
    int reads;       // of "iorandom" for each of its places
} kDepths[] = {{2048, 1}, {8192, 2}, {32768, 3}, {UINT64_MAX, 4}};
constexpr uint64_t kLastLevel = 3;
constexpr auto kSaveInterval = std::chrono::seconds(5);

struct Options {
    testprog::CommonOptions common;
    uint64_t lba = 0;        // "-lba", first block
    uint64_t step = 0x40;    // "-sc", blocks of one read
    uint64_t retries = 0;    // "-retry"
    uint64_t wide = 204800;  // "-wide", blocks that "iorandom" ranges over
    uint64_t count = 1000;   // "-count", reads of one round of it
    bool ide = false;        // "-ide": the disk is on an IDE bus
    bool debug = false;      // "-debug2"
};

uint64_t Level(const Options& options) { return std::min(options.common.level, kLastLevel); }

std::string Tell(const char* what, const ReadResult& read) {
    return Format("%s at block 0x%08llx: %s", what, static_cast<unsigned long long>(read.block),
                  read.reason.c_str());
}

// Reads on behalf of a round; nothing when that is to go on, else how it ends: kOk when stopped.
std::optional<Outcome> Read(const Options& options, Disk& disk, testprog::Run& run, uint64_t first,
                            uint64_t count) {
    using End = ReadResult::End;
    const ReadResult read = disk.Read(first, count, options.retries, [&run] { return run.Stop(); });
    if (read.end == End::kStopped) return Outcome{};
    if (read.end == End::kFailed) return Outcome{EndCode::kNg, Tell("read error", read)};
    if (read.end == End::kAgain) run.Note(Tell("read again with success", read));
    return std::nullopt;
}

// Reads on through the disk, over as many rounds as the run has.
class SectorTest {
 public:
    SectorTest(const Options& options, Disk& disk, testprog::Run& run)
        : options_(options),
          disk_(disk),
          run_(run),
          end_(std::min(disk.blocks(), kMaxBlocks)),
          next_(options.lba < end_ ? options.lba : 0) {
        Announce(next_);
        if (disk.blocks() > end_) {
            run.Note(Format("blocks from 0x%08llx on are not read",
                            static_cast<unsigned long long>(end_)));
        }
        if (options.debug) disk.PretendBad(next_ + std::min(options.step, end_ - next_) / 2);
    }

    Outcome Round() {
        const uint64_t steps = kDepths[Level(options_)].steps;
        for (uint64_t i = 0; i < steps; ++i) {
            const uint64_t count = std::min(options_.step, end_ - next_);
            const auto ending = Read(options_, disk_, run_, next_, count);
            if (ending && ending->code == EndCode::kOk) return *ending;
            next_ += count;
            const bool completed = next_ == end_;
            // The last level shows how far it came, up to the whole; the others are ready to
            // begin again. A start at the end begins again too.
            Announce(completed && Level(options_) < kLastLevel ? 0 : next_);
            run_.SetDone(next_, end_);
            if (ending) return *ending;
            if (completed) return {EndCode::kCompleted, {}};
            if (run_.Pause()) break;
        }
        return {};
    }

    // Writes the progress of the last level; now and then while the test runs, and at its end.
    void SaveProgress() {
        const std::string directory = Environment("KVX_data");
        if (Level(options_) < kLastLevel || directory.empty()) return;
        const std::string& device = options_.common.device;
        const std::string complaint = testprog::SaveProgress(directory, device, end_, announced_,
                                                             [this] { return run_.Stop(); });
        last_save_ = std::chrono::steady_clock::now();
        if (complaint.empty() || save_failed_) return;
        save_failed_ = true;
        run_.Note(Format("the progress of %s is not saved: %s", device.c_str(), complaint.c_str()));
    }

 private:
    // Sets what the closing record and the saved progress say.
    void Announce(uint64_t next) {
        announced_ = next;
        run_.SetNextAddress(next);
        if (std::chrono::steady_clock::now() - last_save_ >= kSaveInterval) SaveProgress();
    }

    const Options& options_;
    Disk& disk_;
    testprog::Run& run_;
    const uint64_t end_;
    uint64_t next_;
    uint64_t announced_ = 0;
    std::chrono::steady_clock::time_point last_save_ = std::chrono::steady_clock::now();
    bool save_failed_ = false;
};

// One round of reads at random places within "-wide" blocks from "-lba" on. At the higher levels
// each is followed by others that make long seeks: at the mirrored place, at the first, at the
// last.
Outcome RandomRound(const Options& options, Disk& disk, testprog::Run& run,
                    std::mt19937_64& random) {
    const uint64_t first = options.lba < disk.blocks() ? options.lba : 0;
    const uint64_t range = std::min(options.wide, disk.blocks() - first);
    const uint64_t count = std::min(options.step, range);
    const uint64_t last = range - count;
    std::uniform_int_distribution<uint64_t> place(0, last);
    for (uint64_t i = 0; i < options.count; ++i) {
        const uint64_t at = place(random);
        if (options.debug) disk.PretendBad(first + at + count / 2);
        const uint64_t places[] = {at, last - at, 0, last};
        for (int read = 0; read < kDepths[Level(options)].reads; ++read) {
            const auto ending = Read(options, disk, run, first + places[read], count);
            if (ending) return *ending;
        }
        run.SetDone(i + 1, options.count);
        if (run.Pause()) break;
    }
    return {};
}

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

    if (sector) {
        SectorTest test(options, disk, run);
        Outcome outcome = run.Rounds([&test] { return test.Round(); });
        test.SaveProgress();
        return outcome;
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    std::mt19937_64 random{static_cast<uint64_t>(now)};
    return run.Rounds([&] { return RandomRound(options, disk, run, random); });
}

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
    Options options;
    options.common.pattern = "sector";
    std::vector<testprog::Option> table = testprog::CommonOptionTable(&options.common);
    using testprog::NumberOption;
    table.push_back(NumberOption("lba", &options.lba, 0, UINT64_MAX));
    table.push_back(NumberOption("sc", &options.step, 1, kMaxStep));
    table.push_back(NumberOption("retry", &options.retries, 0, 100));
    table.push_back(NumberOption("wide", &options.wide, 1, UINT64_MAX));
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
