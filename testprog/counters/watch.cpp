// The counters before and after a run.

#include <unistd.h>

#include <algorithm>
#include <map>
#include <new>
#include <sstream>

#include "counters/counters.h"
#include "lib/command.h"
#include "lib/file.h"

namespace testprog {

namespace {

constexpr double kSmartSeconds = 20;
constexpr double kSoon = 1;
constexpr double kLook = 0.2;
constexpr size_t kMaxOutput = size_t{1} << 20;
constexpr size_t kMostParts = 4;

// Where the program is: under the root, or where commands are looked for. On the machine itself, in
// the places that administrators have theirs in, too.
std::string FindSmartctl(const std::string& root) {
    const std::string path = Environment("PATH");
    std::istringstream places(root.empty() ? path + ":/usr/sbin:/usr/local/sbin:/sbin"
                                           : root + "/usr/sbin:" + path);
    for (std::string place; std::getline(places, place, ':');) {
        std::string file = place + "/smartctl";
        if (place[0] == '/' && access(file.c_str(), X_OK) == 0) return file;
    }
    return {};
}

// What a disk says of itself; nothing where it cannot be asked, there is no memory for its answer,
// or it does not answer in time: soon once the run is cancelled.
Counters AskDisk(const std::string& root, const std::string& device, Run* run) try {
    const std::string smartctl = FindSmartctl(root);
    Command command(kMaxOutput);
    if (smartctl.empty() ||
        !command.Start({smartctl, "--json", "-i", "-H", "-A", "-l", "error", device}).empty()) {
        return {};
    }
    std::string output;
    const auto take = [&output](const std::string& line) {
        if (output.size() < kMaxOutput) output += line + "\n";
    };
    double limit = Now() + kSmartSeconds;
    while (command.Listen(kLook, take)) {
        if (run->Cancelled()) limit = std::min(limit, Now() + kSoon);
        if (Now() > limit) return {};
    }
    return SmartCounters(device, output);
} catch (const std::bad_alloc&) {
    return {};
}

void Append(Counters* counters, const Counters& more) {
    counters->insert(counters->end(), more.begin(), more.end());
}

// What the test answers for, and what else may be told of.
struct Reading {
    Counters own, foreign;
};

// `late`: the disk is asked behind the kernel, before the test ahead of it, so that commands that
// it does not know are no errors of the test.
Reading Read(Watched watched, const std::string& root, const std::string& device, bool late,
             Run* run) {
    switch (watched) {
        case Watched::kProcessors:
            return {ProcessorCounters(root), MemoryCounters(root)};
        case Watched::kMemory:
            return {MemoryCounters(root), ProcessorCounters(root)};
        case Watched::kDisk:
            break;
    }
    Counters own;
    if (!late) own = AskDisk(root, device, run);
    Append(&own, DiskCounters(root, device));
    if (late) Append(&own, AskDisk(root, device, run));
    return {own, {}};
}

bool AnyFaulty(const std::vector<Remark>& remarks) {
    return std::any_of(remarks.begin(), remarks.end(), [](const Remark& r) { return r.faulty; });
}

void MakeWarnings(std::vector<Remark>* remarks) {
    for (Remark& remark : *remarks) remark.faulty = false;
}

}  // namespace

std::vector<Remark> Differences(const Counters& before, const Counters& after) {
    std::map<std::pair<std::string, std::string>, uint64_t> known;
    for (const Counter& was : before) known[{was.part, was.what}] = was.value;
    std::vector<Remark> remarks;
    std::map<std::string, size_t> parts;  // that the same is to be said of
    for (const Counter& now : after) {
        const auto was = known.find({now.part, now.what});
        const bool failing = now.kind == Counter::Kind::kFailing;
        if (!failing && was == known.end()) continue;
        const bool anew = failing || now.value < was->second;
        const uint64_t more = anew ? now.value : now.value - was->second;
        if (more == 0 || ++parts[now.what] > kMostParts + 1) continue;
        const std::string text =
            parts[now.what] > kMostParts ? "the same of further parts: new " + now.what
            : failing                    ? now.part + ": " + now.what + " is failing"
                      : Format("%s: new %s: %llu", now.part.c_str(), now.what.c_str(),
                               static_cast<unsigned long long>(more));
        remarks.push_back({now.kind != Counter::Kind::kCorrected, text});
    }
    return remarks;
}

void Watch(Watched watched, const std::string& device, Run* run) {
    const std::string root = Environment("TESTPROG_ROOT");
    const Reading before = Read(watched, root, device, false, run);
    run->AtEnd([watched, root, device, before, run] {
        const Reading after = Read(watched, root, device, true, run);
        std::vector<Remark> remarks = Differences(before.own, after.own);
        std::vector<Remark> others = Differences(before.foreign, after.foreign);
        if (watched == Watched::kProcessors && AnyFaulty(others)) MakeWarnings(&remarks);
        MakeWarnings(&others);
        remarks.insert(remarks.end(), others.begin(), others.end());
        return remarks;
    });
}

}  // namespace testprog
