// What the kernel counts.

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>

#include "counters/counters.h"
#include "lib/file.h"
#include "lib/options.h"

namespace testprog {

namespace {

namespace fs = std::filesystem;
using Kind = Counter::Kind;

// /proc/interrupts has a column for each processor.
constexpr size_t kMaxInterrupts = size_t{16} << 20;

// The entries of a directory whose names begin so and go on with a digit, in order.
std::vector<fs::path> Numbered(const fs::path& directory, const std::string& start) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        const char next = name.size() > start.size() ? name[start.size()] : ' ';
        if (name.compare(0, start.size(), start) == 0 && next >= '0' && next <= '9') {
            found.push_back(entry->path());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

// Adds the count that a file holds.
bool Add(Counters* counters, Kind kind, const std::string& part, const char* what,
         const fs::path& file) {
    const auto value = ParseNumber(ReadAttribute(file));
    if (value) counters->push_back({kind, part, what, *value});
    return value.has_value();
}

constexpr char kCorrectedMemory[] = "corrected memory errors";
constexpr char kUncorrectedMemory[] = "uncorrected memory errors";

// "DIMM_A1 (mc0/dimm0)", the label being what the file says.
std::string ModuleName(const fs::path& module, const fs::path& label_file) {
    const std::string label = ReadAttribute(label_file);
    const std::string place =
        module.parent_path().filename().string() + "/" + module.filename().string();
    return label.empty() ? place : label + " (" + place + ")";
}

void AddModule(Counters* counters, const fs::path& module) {
    const std::string part = ModuleName(module, module / "dimm_label");
    Add(counters, Kind::kCorrected, part, kCorrectedMemory, module / "dimm_ce_count");
    Add(counters, Kind::kUncorrected, part, kUncorrectedMemory, module / "dimm_ue_count");
}

// Older kernels count by rows of chips: what was corrected by channel, of which each is a module.
void AddRow(Counters* counters, const fs::path& row) {
    for (const fs::path& count : Numbered(row, "ch")) {
        const std::string name = count.filename();
        const size_t channel = name.find("_ce_count");
        if (channel == std::string::npos) continue;
        const std::string label = name.substr(0, channel) + "_dimm_label";
        Add(counters, Kind::kCorrected, ModuleName(row, row / label), kCorrectedMemory, count);
    }
    Add(counters, Kind::kUncorrected, ModuleName(row, row / "ch0_dimm_label"), kUncorrectedMemory,
        row / "ue_count");
}

uint64_t Sum(const Counters& counters, Kind kind) {
    uint64_t sum = 0;
    for (const Counter& counter : counters) sum += counter.kind == kind ? counter.value : 0;
    return sum;
}

// The modules of one memory controller and, as its own, the errors that it counts beyond theirs.
Counters ControllerCounters(const fs::path& controller) {
    // Read before those of the modules, so that an error that comes meanwhile is none of its own.
    Counters all;
    const std::string part = "memory controller " + controller.filename().string();
    Add(&all, Kind::kCorrected, part, kCorrectedMemory, controller / "ce_count");
    Add(&all, Kind::kUncorrected, part, kUncorrectedMemory, controller / "ue_count");
    Counters modules;
    for (const char* kind : {"dimm", "rank"}) {
        for (const fs::path& module : Numbered(controller, kind)) AddModule(&modules, module);
    }
    if (modules.empty()) {
        for (const fs::path& row : Numbered(controller, "csrow")) AddRow(&modules, row);
    }
    for (Counter& own : all) own.value -= std::min(own.value, Sum(modules, own.kind));
    modules.insert(modules.end(), all.begin(), all.end());
    return modules;
}

// One line of /proc/interrupts and what it counts.
struct Row {
    const char* name;
    Kind kind;
    const char* what;
};
constexpr Row kRows[] = {
    {"MCE:", Kind::kUncorrected, "machine checks"},
    {"DFR:", Kind::kUncorrected, "deferred machine checks"},
    {"THR:", Kind::kCorrected, "interrupts for corrected machine checks"},
};

void AddInterrupts(Counters* counters, const std::string& text) {
    std::istringstream lines(text);
    std::string line, word;
    std::getline(lines, line);
    std::vector<std::string> processors;
    for (std::istringstream words(line); words >> word;) {
        processors.push_back("processor " + word.substr(std::min<size_t>(3, word.size())));
    }
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        words >> word;
        const auto* row = std::find_if(std::begin(kRows), std::end(kRows),
                                       [&word](const Row& known) { return word == known.name; });
        if (row == std::end(kRows)) continue;
        for (const std::string& processor : processors) {
            const auto value = words >> word ? ParseNumber(word) : std::nullopt;
            if (!value) break;
            counters->push_back({row->kind, processor, row->what, *value});
        }
    }
}

// "TOTAL_ERR_COR 5" among the lines of a file.
std::optional<uint64_t> Total(const fs::path& file) {
    std::istringstream lines(ReadWhole(file, 4096).value_or(""));
    for (std::string name, value; lines >> name >> value;) {
        if (name.rfind("TOTAL_ERR_", 0) == 0) return ParseNumber(value);
    }
    return std::nullopt;
}

}  // namespace

Counters MemoryCounters(const std::string& root) {
    Counters counters;
    for (const fs::path& controller : Numbered(root + "/sys/devices/system/edac/mc", "mc")) {
        const Counters more = ControllerCounters(controller);
        counters.insert(counters.end(), more.begin(), more.end());
    }
    return counters;
}

Counters ProcessorCounters(const std::string& root) {
    Counters counters;
    AddInterrupts(&counters, ReadWhole(root + "/proc/interrupts", kMaxInterrupts).value_or(""));
    for (const fs::path& cpu : Numbered(root + "/sys/devices/system/cpu", "cpu")) {
        const std::string processor = "processor " + cpu.filename().string().substr(3);
        const fs::path throttle = cpu / "thermal_throttle";
        Add(&counters, Kind::kCorrected, processor, "throttlings for heat",
            throttle / "core_throttle_count");
        Add(&counters, Kind::kCorrected, processor, "throttlings for the heat of its package",
            throttle / "package_throttle_count");
    }
    return counters;
}

Counters DiskCounters(const std::string& root, const std::string& device) {
    Counters counters;
    const fs::path disk = root + "/sys/block/" + device.substr(device.rfind('/') + 1) + "/device";
    Add(&counters, Kind::kCorrected, device, "failed commands", disk / "ioerr_cnt");
    Add(&counters, Kind::kCorrected, device, "timed-out commands", disk / "iotmo_cnt");
    const std::pair<const char*, Kind> links[] = {{"correctable", Kind::kCorrected},
                                                  {"nonfatal", Kind::kUncorrected},
                                                  {"fatal", Kind::kUncorrected}};
    for (const auto& [name, kind] : links) {
        const auto total = Total(disk / "device" / (std::string("aer_dev_") + name));
        const std::string what = std::string(name) + " errors of the PCI link";
        if (total) counters.push_back({kind, device, what, *total});
    }
    return counters;
}

}  // namespace testprog
