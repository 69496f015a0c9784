#include "model/state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <unordered_map>

#include "base/file.h"
#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "model/files.h"
#include "model/passes.h"
#include "state/disk_progress.h"
#include "state/schedule_file.h"

namespace patrolctl {
namespace {

using patrol::Flag;
using patrol::ScheduleFile;

// A text of the schedule; empty where there is none.
std::string Known(std::string_view text) {
    return text == patrol::kNoDevice ? "" : std::string(text);
}

// The number that the whole of a text is; none for another text.
std::optional<uint64_t> WholeNumber(const char* text) {
    char* end = nullptr;
    errno = 0;
    const uint64_t number = std::strtoull(text, &end, 0);
    if (end == text || *end != '\0' || errno != 0) return std::nullopt;
    return number;
}

// The size of a disk as the system has it, in blocks.
std::optional<uint64_t> SystemBlocks(const Places& places, const std::string& device) {
    const std::string name = device.substr(device.rfind('/') + 1);
    if (name.empty() || name[0] == '.') return std::nullopt;
    std::string size = ReadText(places.root + "/sys/class/block/" + name + "/size", 64).text;
    while (!size.empty() && size.back() == '\n') size.pop_back();
    return WholeNumber(size.c_str());
}

// The address of the end of a disk of so many blocks. On one with more blocks than the 32 bits of a
// record can count, the disk test's addresses count the least units of 2^k blocks that fit.
uint64_t EndAddress(uint64_t blocks) {
    uint64_t unit = 1;
    while ((blocks - 1) / unit >= UINT32_MAX) unit *= 2;
    return (blocks - 1) / unit + 1;
}

class ScheduleReader {
 public:
    ScheduleReader(const Places& places, State* state)
        : places_(places),
          state_(state),
          path_(patrol::sche_path.view()),
          schedule_(path_.c_str()),
          progress_(patrol::lba_path.c_str()) {}

    void Read() {
        if (!Usable()) return;
        for (const int kind : {patrol::kKindCpu, patrol::kKindMemory}) ReadSingle(kind);
        const int count = schedule_.DiskCount();
        if (count < 0 || count > patrol::kMaxCount) {
            Complain("hdd_all_num is " + std::to_string(count) + ", which no machine has");
        } else if (schedule_.TestNumber(patrol::kDiskCountKey, -1) < 0) {
            Complain("there is no hdd_all_num in [TEST_SCHEDULE]");
        }
        for (int i = 0; i < patrol::BoundedCount(count); ++i) ReadDisk(i);
        if (strange_ > 0) {
            const std::string others = std::to_string(strange_ - 1);
            Complain(first_strange_ + (strange_ > 1 ? " (and " + others + " like it)" : ""));
        }
        SetTurns(patrol::ReadSelection(schedule_), &state_->components);
    }

 private:
    void Complain(const std::string& what) { state_->problems.push_back(path_ + ": " + what); }

    // Whether there is a schedule; says what is wrong with a damaged one.
    bool Usable() {
        const std::string closed = WhyClosed(places_.data);
        if (!closed.empty()) {
            state_->has_schedule = true;
            state_->problems.push_back(Said(places_.data, closed));
            return false;
        }
        struct stat status = {};
        const bool stands = stat(path_.c_str(), &status) == 0;
        const patrol::Place place = patrol::LookAtSchedule(path_.c_str());
        state_->has_schedule = stands && place != patrol::Place::kMissing;
        state_->schedule_time = stands ? status.st_mtime : 0;
        if (place == patrol::Place::kMissing) {
            if (stands) Complain("has no sections; the controller will make it anew");
        } else if (place == patrol::Place::kTooLarge) {
            Complain("is too large");
        } else if (place == patrol::Place::kUnusable) {
            Complain("is no regular file");
        } else if (!schedule_.loaded()) {
            Complain(std::string("cannot be read: ") + std::strerror(errno));
        } else {
            return true;
        }
        return false;
    }

    // Of what many disks may have, the first one is said.
    void CountStrange(const std::string& what) {
        if (strange_++ == 0) first_strange_ = what;
    }

    void TakeFlags(const char* section, Component* component) {
        const patrol::ScheduleKeys& keys = patrol::KeysOf(component->kind);
        const auto flag = [&](const char* key) {
            const auto value = schedule_.profile().Value<16>(section, key, "");
            const std::string place = std::string(" in [") + section + "]";
            if (value.empty()) {
                CountStrange(std::string("there is no ") + key + place);
            } else if (value.view() != patrol::OnOff(true) &&
                       value.view() != patrol::OnOff(false)) {
                CountStrange(key + ("=" + std::string(value.view())) + place +
                             " is neither ON nor OFF");
            }
            return patrol::ReadFlag(schedule_.profile(), section, key);
        };
        component->enabled = flag(keys.enabled) != Flag::kOff;
        component->due = flag(keys.due) == Flag::kOn;
    }

    void ReadSingle(int kind) {
        Component component;
        component.kind = kind;
        component.device = patrol::FindKind(kind)->name;
        TakeFlags(patrol::KeysOf(kind).section, &component);
        state_->components.push_back(std::move(component));
    }

    void ReadDisk(int number) {
        const patrol::Text<32> section = patrol::DiskSection(number);
        Component disk;
        disk.kind = patrol::kKindHdd;
        disk.device = Known(schedule_.Device<512>(number).view());
        disk.serial = Known(schedule_.SerialNumber<512>(number).view());
        const std::string place = std::string(" in [") + section.c_str() + "]";
        if (disk.device.empty()) CountStrange(std::string("there is no device_name") + place);
        TakeFlags(section.c_str(), &disk);
        const auto address = schedule_.Address<64>(number);
        const std::optional<uint64_t> start = WholeNumber(address.c_str());
        if (!start) {
            CountStrange("address=" + std::string(address.view()) + place + " is no number");
        }
        disk.address = start.value_or(0);
        TakeSize(&disk);
        state_->components.push_back(std::move(disk));
    }

    void TakeSize(Component* disk) const {
        const uint64_t known = progress_.Maximum(disk->device.c_str());
        disk->blocks = SystemBlocks(places_, disk->device);
        // A larger maximum may be that of a disk whose addresses count units of several blocks.
        constexpr uint64_t kSurelyBlocks = uint64_t{1} << 31;
        if (!disk->blocks && known > 0 && known < kSurelyBlocks) disk->blocks = known;
        const uint64_t blocks = disk->blocks.value_or(0);
        if (blocks == 0 && known == 0) return;
        const uint64_t whole = known > 0 ? known : EndAddress(blocks);
        if (disk->address > whole) return;
        disk->ratio = static_cast<double>(disk->address) / static_cast<double>(whole);
    }

    const Places& places_;
    State* state_;
    std::string path_;
    ScheduleFile schedule_;
    patrol::DiskProgress progress_;
    int strange_ = 0;
    std::string first_strange_;
};

// Enters last results and open faults into the components.
class Linker {
 public:
    explicit Linker(State* state) : state_(state) {
        for (Component& component : state->components) {
            by_name_.emplace(Key(component.kind, component.device), &component);
            if (!component.serial.empty()) by_serial_.emplace(component.serial, &component);
        }
    }

    // `whole`: the schedule has every component.
    void Link(bool whole) const {
        std::map<std::string, const Result*> others;
        for (const Result& result : state_->results.list) {
            Component* component = Find(by_name_, Key(result.kind, result.device));
            (component != nullptr ? component->last : others[result.device]) = &result;
        }
        for (const auto& [device, result] : others) {
            if (!whole) state_->unplaced.push_back(result);
        }
        for (Fault& fault : state_->faults.list) {
            Component* component = ComponentOf(fault);
            fault.known = component != nullptr;
            if (fault.known) component->faults.push_back(&fault);
        }
    }

 private:
    using Index = std::unordered_map<std::string, Component*>;

    static std::string Key(int kind, const std::string& device) {
        return std::to_string(kind) + device;
    }
    static Component* Find(const Index& index, const std::string& key) {
        const auto found = index.find(key);
        return found != index.end() ? found->second : nullptr;
    }
    // A disk is known by its serial number, whatever name it has now.
    Component* ComponentOf(const Fault& fault) const {
        Component* known = Find(by_serial_, fault.serial);
        if (known != nullptr) return known;
        for (const patrol::Kind& kind : patrol::kKinds) {
            if (fault.kind != kind.name) continue;
            const bool disk = kind.code == patrol::kKindHdd;
            return Find(by_name_, Key(kind.code, disk ? fault.device : kind.name));
        }
        return nullptr;
    }

    State* state_;
    Index by_name_;
    Index by_serial_;
};

// The last line of a trace that tells how a pass has ended, and the line before it.
PassEnd ReadPassEnd(const std::string& path) {
    constexpr size_t kEnough = 1 << 18;
    constexpr std::string_view kEnd = ":[cntl_main] Patrol Diagnosis ";
    constexpr std::string_view kKeptAwayEnd = ") Not OK End.";
    const patrol::Stream file = patrol::OpenForReading(path.c_str());
    if (file == nullptr) return PassEnd::kUnknown;
    struct stat status = {};
    fstat(fileno(file.get()), &status);
    const std::string text = ReadTail(fileno(file.get()), status.st_size, kEnough);
    PassEnd end = PassEnd::kUnknown;
    std::string_view before;
    ForEachLine(text, [&](std::string_view line, size_t) {
        const size_t at = line.find(kEnd);
        if (at != std::string_view::npos) {
            const std::string_view word = line.substr(at + kEnd.size());
            if (word == "Ended.") end = PassEnd::kDone;
            if (word == "Error Ended.") {
                end = EndsWith(before, kKeptAwayEnd) ? PassEnd::kKeptAway : PassEnd::kFailed;
            }
        }
        before = line;
    });
    return end;
}

PassEnd ReadLastPass(const Places& places) {
    for (const char* name : {"/pat_trc_log", "/pat_trc_log.0"}) {
        const PassEnd end = ReadPassEnd(places.log + name);
        if (end != PassEnd::kUnknown) return end;
    }
    return PassEnd::kUnknown;
}

// Says which files are there in vain that are read where nothing is said of a missing one, be it
// for a directory that is closed.
void CheckReadable(State* state) {
    const Places& places = state->places;
    const std::pair<const std::string&, const char*> files[] = {{places.data, "lba_outfile.ini"},
                                                                {places.log, "pat_trc_log"},
                                                                {places.log, "pat_trc_log.0"}};
    for (const auto& [directory, name] : files) {
        if (!WhyClosed(directory).empty()) continue;
        const std::string path = PathIn(directory, name);
        const std::string fault = WhyUnreadable(path);
        if (!fault.empty()) state->problems.push_back(Said(path, fault));
    }
}

}  // namespace

void ReadSchedule(const Places& places, State* state) {
    state->places = places;
    state->now = std::time(nullptr);
    ScheduleReader(places, state).Read();
}

void ReadState(const Places& places, State* state) {
    ReadSchedule(places, state);
    const bool whole = state->has_schedule && state->problems.empty();
    CheckReadable(state);
    state->results = ReadResults(places);
    state->faults = ReadFaults(places);
    state->last_pass = ReadLastPass(places);
    std::vector<std::string>& problems = state->problems;
    for (const auto* faults : {&state->results.faults, &state->faults.faults}) {
        for (const std::string& fault : *faults) {
            const bool said = std::find(problems.begin(), problems.end(), fault) != problems.end();
            if (!said) problems.push_back(fault);
        }
    }
    Linker(state).Link(whole);
}

}  // namespace patrolctl
