#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/settings.h"
#include "control/selection.h"
#include "doctor/checks.h"
#include "model/files.h"
#include "model/passes.h"
#include "schedule/device_config.h"
#include "state/schedule_file.h"
#include "sys/profile.h"

namespace patrolctl {
namespace {

using patrol::ScanLine;

struct ListedDisk {
    std::string device;
    std::string serial;
};

bool operator==(const ListedDisk& a, const ListedDisk& b) {
    return a.device == b.device && a.serial == b.serial;
}

using Disks = std::vector<ListedDisk>;

// Follows a scan of the device configuration and says what becomes of each device.
class ScanWatcher {
 public:
    explicit ScanWatcher(Findings* findings) : findings_(findings) {}

    void Take(int number, const char* text, ScanLine what) {
        line_ = number;
        switch (what) {
            case ScanLine::kDevice:
                Begin();
                break;
            case ScanLine::kDeviceEnd:
                End();
                break;
            case ScanLine::kIsDisk:
                is_disk_ = true;
                break;
            case ScanLine::kNoDisk:
                Settle("is not tested: its type is not HDD");
                break;
            case ScanLine::kSerialNumber:
                has_serial_ = true;
                break;
            case ScanLine::kVendor:
                has_vendor_ = true;
                break;
            case ScanLine::kModel:
                has_model_ = true;
                break;
            case ScanLine::kNotOperational:
                Settle("is not tested: its status is not ok");
                break;
            case ScanLine::kNonTarget:
                SettleNonTarget();
                break;
            case ScanLine::kAccepted:
                Accept();
                break;
            case ScanLine::kSoftware:
                software_line_ = number;
                break;
            case ScanLine::kOther:
                TakeOther(number, text);
                break;
        }
    }

    // Looks at what stands behind the line that ended the scan.
    void TakeRest(std::string_view text) {
        if (software_line_ == 0) return;
        ForEachLine(text, [this](std::string_view line, size_t number) {
            const bool disk = line.find("<dev") != std::string_view::npos &&
                              line.find("/dev/sd") != std::string_view::npos;
            if (!disk || static_cast<int>(number) <= software_line_) return;
            findings_->Warn(static_cast<int>(number),
                            "this device is not tested: it stands behind the first software entry");
        });
    }

    const Disks& accepted() const { return accepted_; }

 private:
    static std::string Name() { return std::string(patrol::scanned_disk.device.view()); }

    void Begin() {
        inside_ = true;
        settled_ = is_disk_ = has_serial_ = has_vendor_ = has_model_ = false;
        begin_ = line_;
        if (Name() == patrol::kNoDevice) {
            findings_->Warn(line_, "the device's path has no quote at its end: it has no name");
        }
    }

    void End() {
        inside_ = false;
        if (settled_) return;
        findings_->Warn(begin_,
                        Name() + (is_disk_ ? " is not tested: no status stands behind its type"
                                           : " is not tested: it has no type"));
    }

    void Settle(const std::string& what) {
        settled_ = true;
        findings_->Warn(line_, Name() + " " + what);
    }

    void SettleNonTarget() {
        constexpr char kEvery[] = ", which matches every entry of the disks that never are";
        const bool empty =
            patrol::scanned_disk.vendor.empty() && patrol::scanned_disk.model.empty();
        if (!empty) {
            Settle("is not tested: it is on the list of disks that never are");
        } else if (has_vendor_ || has_model_) {
            Settle(std::string("is not tested: its vendor and model are empty") + kEvery);
        } else {
            Settle(std::string("is not tested: its status line stands before its vendor and model, "
                               "which count as empty") +
                   kEvery);
        }
    }

    void Accept() {
        settled_ = true;
        const patrol::Disk& disk = patrol::scanned_disk;
        accepted_.push_back({Name(), std::string(disk.serial_number.view())});
        findings_->Note(line_, Name() + " may be tested");
        const auto borrowed = [&](bool has, const char* what, const auto& value) {
            if (has) return;
            findings_->Warn(line_, Name() + " has no " + what + " before its status line: \"" +
                                       std::string(value.view()) + "\" of a disk before it counts");
        };
        borrowed(has_serial_, "serial number", disk.serial_number);
        borrowed(has_vendor_, "vendor", disk.vendor);
        borrowed(has_model_, "model", disk.model);
        if (has_vendor_ && disk.vendor.empty()) {
            findings_->Warn(line_, Name() +
                                       " has an empty vendor: one more empty text, its model, "
                                       "and it will not be tested");
        }
    }

    // A device that the controller does not see at all.
    void TakeOther(int number, const char* text) {
        if (inside_ || std::strstr(text, "<dev") == nullptr) return;
        const char* path = std::strstr(text, "/dev/");
        if (path == nullptr) return;
        const std::string name(path, std::strcspn(path, "\"\r\n"));
        findings_->Warn(number, BeginsWith(name, "/dev/sd")
                                    ? name + " is not tested: its line has no phypath"
                                    : name +
                                          " is not tested: its name does not begin with "
                                          "/dev/sd");
    }

    Findings* findings_;
    int line_ = 0;
    int begin_ = 0;  // the line of the device
    bool inside_ = false;
    bool settled_ = false;  // what becomes of the device has been said
    bool is_disk_ = false;
    bool has_serial_ = false;
    bool has_vendor_ = false;
    bool has_model_ = false;
    int software_line_ = 0;
    Disks accepted_;
};

// Scans the configuration as the builder of one schedule does. None when it cannot be opened.
std::optional<Disks> Scan(bool device_line_ends, Findings* findings) {
    constexpr size_t kMaxConfiguration = 64 << 20;
    patrol::scanned_disk = patrol::Disk();
    patrol::DiskScan scan(__func__, device_line_ends);
    if (!scan.opened()) return std::nullopt;
    ScanWatcher watcher(findings);
    scan.WatchLines(
        [&](int number, const char* text, ScanLine what) { watcher.Take(number, text, what); });
    while (scan.Next() != nullptr) {
    }
    watcher.TakeRest(ReadText(patrol::xml_path.c_str(), kMaxConfiguration).text);
    return watcher.accepted();
}

Disks ScheduledDisks(const patrol::ScheduleFile& schedule) {
    Disks disks;
    for (int i = 0; i < patrol::BoundedCount(schedule.DiskCount()); ++i) {
        disks.push_back({std::string(schedule.Device<512>(i).view()),
                         std::string(schedule.SerialNumber<512>(i).view())});
    }
    return disks;
}

bool IsEnabled(const patrol::ScheduleFile& schedule, const char* section, int kind) {
    return patrol::ReadFlag(schedule.profile(), section, patrol::KeysOf(kind).enabled) !=
           patrol::Flag::kOff;
}

// Whether the schedule tests the kinds that the settings do, which "reload" sees to.
bool FitsKinds(const patrol::ScheduleFile& schedule, const PassSettings& settings) {
    const auto fits = [&](const char* section, int kind, const PassSettings::OfKind& wanted) {
        return IsEnabled(schedule, section, kind) == wanted.enabled;
    };
    const auto single_fits = [&](int kind, const PassSettings::OfKind& wanted) {
        return fits(patrol::KeysOf(kind).section, kind, wanted);
    };
    if (!single_fits(patrol::kKindCpu, settings.cpu)) return false;
    if (!single_fits(patrol::kKindMemory, settings.memory)) return false;
    for (int i = 0; i < patrol::BoundedCount(schedule.DiskCount()); ++i) {
        const patrol::Text<32> section = patrol::DiskSection(i);
        if (!fits(section.c_str(), patrol::kKindHdd, settings.disks)) return false;
    }
    return true;
}

// Whether the schedule has the limits of the settings, which it gets when it is made anew.
bool FitsLimits(const patrol::ScheduleFile& schedule, const PassSettings& settings) {
    const auto fits = [&](int kind, const PassSettings::OfKind& wanted) {
        return wanted.timeout == 0 || schedule.Timeout(kind) == wanted.timeout;
    };
    const patrol::ProfileReader parameters(patrol::para_path.c_str());
    const int most = parameters.Int("HDDDIAG_PARAM", "max", patrol::kDefaultHddMax);
    return most == schedule.HddMax() && fits(patrol::kKindCpu, settings.cpu) &&
           fits(patrol::kKindMemory, settings.memory) && fits(patrol::kKindHdd, settings.disks);
}

// Where a pass takes no more disks than a turn has, the other turn begins where this one was cut
// short.
void CheckTurns(const patrol::ScheduleFile& schedule, Findings* findings) {
    const patrol::Selection selection = patrol::ReadSelection(schedule);
    const std::vector<size_t> left_out = LeftOut(selection);
    if (left_out.empty()) return;
    const size_t count = selection.disks.size();
    const auto device = schedule.Device<512>(static_cast<int>(left_out.front()));
    const std::string disks = std::to_string(left_out.size()) + " of " + std::to_string(count);
    findings->Warn(0, disks + " disks are left out once the first turns are over, such as " +
                          std::string(device.view()) + ": a pass takes no more than " +
                          std::to_string(selection.limit) + ", and \"max\" has to be more than " +
                          std::to_string((count + 1) / 2));
}

void CheckSchedule(const Disks& disks, const PassSettings& settings, Findings* findings) {
    findings->About(patrol::sche_path.c_str());
    const patrol::Place place = patrol::LookAtSchedule(patrol::sche_path.c_str());
    if (place == patrol::Place::kMissing) {
        findings->Warn(0, "there is no schedule: run \"patrol.exe reload\"");
        return;
    }
    const patrol::ScheduleFile schedule(patrol::sche_path.c_str());
    if (place != patrol::Place::kThere || !schedule.loaded()) {
        findings->Fail(0, place == patrol::Place::kTooLarge
                              ? "the schedule is too large: run \"patrol.exe confchg\""
                              : "the schedule cannot be read: no pass will run");
        return;
    }
    if (!(ScheduledDisks(schedule) == disks)) {
        findings->Warn(0,
                       "the schedule does not fit the device configuration any more: run "
                       "\"patrol.exe confchg\"");
    }
    if (!FitsKinds(schedule, settings)) {
        findings->Warn(0,
                       "the schedule does not fit the settings any more: run "
                       "\"patrol.exe reload\"");
    }
    if (!FitsLimits(schedule, settings)) {
        findings->Warn(0,
                       "the schedule has other time limits, or another \"max\", than the "
                       "settings: run \"patrol.exe confchg\"");
    }
    CheckTurns(schedule, findings);
}

// The first line of each section, by "[NAME]", and of each key.
std::map<std::string, int> LinesOf(const char* path) {
    constexpr size_t kMaxList = 16 << 20;
    std::map<std::string, int> lines;
    ForEachLine(ReadText(path, kMaxList).text, [&](std::string_view line, size_t number) {
        const size_t end = BeginsWith(line, "[") ? line.find(']') + 1 : line.find('=');
        lines.emplace(line.substr(0, end), static_cast<int>(number));
    });
    return lines;
}

// Says what becomes of each entry of the list, of which the first `count` are read.
void SayEntries(const patrol::ProfileReader& list, int count, std::map<std::string, int> lines,
                Findings* findings) {
    std::vector<std::string> empty;
    for (int i = 0; i < patrol::BoundedCount(count) + 1; ++i) {
        const std::string name = "LIST" + std::to_string(i), section = "[" + name + "]";
        const auto vendor = list.Value<512>(name.c_str(), "vendor", "");
        const auto model = list.Value<512>(name.c_str(), "model", "");
        if (vendor.empty()) {
            if (i < count) empty.push_back(section);
        } else if (i < count) {
            findings->Note(lines[section], section + " disks of vendor \"" +
                                               std::string(vendor.view()) + "\" and model \"" +
                                               std::string(model.view()) + "\" are never tested");
        } else {
            findings->Warn(lines[section],
                           section + " is not read: number=" + std::to_string(count));
        }
    }
    if (empty.empty()) return;
    const std::string others = " (and " + std::to_string(empty.size() - 1) + " like it)";
    findings->Warn(lines[empty[0]], empty[0] + " has no vendor" + (empty.size() > 1 ? others : ""));
}

void CheckNonTargets(Findings* findings) {
    findings->About(patrol::nontarget_path.c_str());
    if (!patrol::FileExists(patrol::nontarget_path.c_str())) {
        findings->Note(0, "is missing: only disks without vendor and model are never tested");
        return;
    }
    const patrol::ProfileReader list(patrol::nontarget_path.c_str());
    if (!list.loaded()) {
        findings->Warn(0, "cannot be read");
        return;
    }
    std::map<std::string, int> lines = LinesOf(patrol::nontarget_path.c_str());
    const int count = list.Int("NON_TARGETLIST", "number", 1);
    if (count < 0) {
        findings->Warn(lines["number"], "number=" + std::to_string(count) + " counts as none");
    }
    SayEntries(list, count, std::move(lines), findings);
}

}  // namespace

void CheckDisks(const Places&, const PassSettings& settings, Findings* findings) {
    CheckNonTargets(findings);
    findings->About(patrol::xml_path.c_str());
    const std::optional<Disks> disks = Scan(false, findings);
    if (!disks) {
        findings->Absent(Grade::kError, "no disk is tested, and no schedule can be made anew");
        return;
    }
    Findings ignored;
    const std::optional<Disks> requested = Scan(true, &ignored);
    if (requested && !(*requested == *disks)) {
        findings->Warn(0,
                       "on-request runs see other disks than passes do: a device has no end "
                       "line \"</dev>\"");
    }
    CheckSchedule(*disks, settings, findings);
}

}  // namespace patrolctl
