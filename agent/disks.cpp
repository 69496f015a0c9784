#include "disks.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>

#include "text.h"

namespace agent {
namespace {

// A block device as sysfs shows it.
struct Device {
    std::string name;
    std::string directory;  // its directory, with all links followed
    std::string hardware;   // the directory of what it is a part of; empty where there is none
    std::string subsystem;  // of the hardware: "scsi", "nvme", "virtio", ...
};

bool Matches(const Device& device, const char* pattern) {
    return fnmatch(pattern, device.name.c_str(), 0) == 0;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

struct Kind {
    const char* word;
    bool (*is)(const Device&);
};

constexpr Kind kKinds[] = {
    {"loop", [](const Device& d) { return Matches(d, "loop[0-9]*"); }},
    {"ram", [](const Device& d) { return Matches(d, "ram[0-9]*"); }},
    {"zram", [](const Device& d) { return Matches(d, "zram[0-9]*"); }},
    {"dm", [](const Device& d) { return Matches(d, "dm-[0-9]*") || Exists(d.directory + "/dm"); }},
    {"md",
     [](const Device& d) {
         return Matches(d, "md[0-9]*") || Matches(d, "md_*") || Exists(d.directory + "/md");
     }},
    {"optical",
     [](const Device& d) {
         return Matches(d, "sr[0-9]*") || ReadWord(d.directory + "/device/type") == "5";
     }},
    {"floppy", [](const Device& d) { return Matches(d, "fd[0-9]*"); }},
    {"removable", [](const Device& d) { return ReadWord(d.directory + "/removable") == "1"; }},
    {"network",
     [](const Device& d) {
         return Matches(d, "nbd[0-9]*") || Matches(d, "rbd[0-9]*") || Matches(d, "drbd[0-9]*");
     }},
};
constexpr char kVirtual[] = "virtual";

bool Contains(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

// The device is of the first kind that fits. Hardware is of none.
std::string KindOf(const Device& device) {
    for (const Kind& kind : kKinds) {
        if (kind.is(device)) return kind.word;
    }
    const bool no_hardware = device.directory.find("/devices/virtual/block/") != std::string::npos;
    return no_hardware ? kVirtual : "";
}

bool Chosen(const Device& device, const DiskChoice& choice) {
    for (const std::string& pattern : choice.without) {
        if (Matches(device, pattern.c_str())) return false;
    }
    if (ReadWord(device.directory + "/size") == "0") return false;  // no medium is in it
    // Paths of one disk behind its common name, and areas beside a card's own.
    if (ReadWord(device.directory + "/hidden") == "1") return false;
    if (Matches(device, "mmcblk*boot*") || Matches(device, "mmcblk*rpmb")) return false;
    const std::string kind = KindOf(device);
    return kind.empty() || Contains(choice.with, kind);
}

// Whether the name can stand in a device line. The kernel gives no other.
bool Writable(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](char c) {
        return c > ' ' && c <= '~' && c != '"' && c != '&' && c != '<' && c != '>';
    });
}

std::string Resolve(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

std::string LastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

Device Look(const std::string& sys, const std::string& name) {
    Device device;
    device.name = name;
    device.directory = Resolve(sys + "/block/" + name);
    device.hardware = Resolve(device.directory + "/device");
    if (!device.hardware.empty()) {
        device.subsystem = LastPart(Resolve(device.hardware + "/subsystem"));
    }
    return device;
}

// The address of the last PCI function on the way to the device, as in "0000:00:1f.2".
std::string PciAddress(const std::string& directory) {
    std::string found;
    for (size_t at = 0; at != std::string::npos; at = directory.find('/', at + 1)) {
        const std::string part = directory.substr(at + 1, directory.find('/', at + 1) - at - 1);
        if (fnmatch("[0-9a-f][0-9a-f][0-9a-f][0-9a-f]*:[0-9a-f][0-9a-f]:[0-9a-f][0-9a-f].[0-7]",
                    part.c_str(), 0) == 0) {
            found = part;
        }
    }
    return found;
}

std::string Location(const Device& device, const UdevProperty& udev) {
    constexpr size_t kLimit = 60;  // leaves room for the device in the 99 that events show
    std::string location = Clean(udev(device.directory, "ID_PATH"), kLimit);
    if (location.empty()) {
        const std::string pci = PciAddress(device.directory);
        const std::string part = device.subsystem == "scsi" ? LastPart(device.hardware) : "";
        location = (pci.empty() ? "" : "pci-" + pci + "-") + (part.empty() ? device.name : part);
    }
    // These have a meaning of their own in a device line.
    std::replace(location.begin(), location.end(), '/', '-');
    std::replace(location.begin(), location.end(), '"', '-');
    return "/" + Clean(location, kLimit);
}

std::string FirstOf(std::initializer_list<std::string> values) {
    for (const std::string& value : values) {
        if (!value.empty()) return value;
    }
    return {};
}

// The name that the disk has in the whole world, where it has one.
std::string Wwid(const Device& device) {
    return FirstOf(
        {ReadWord(device.directory + "/wwid"), ReadWord(device.directory + "/device/wwid")});
}

// Sysfs is asked before udev: its answer is the same before and after udev has seen the disk, and
// the disk's progress is kept by this text.
std::string Serial(const Device& device, const std::string& location, const UdevProperty& udev) {
    constexpr size_t kPageHeader = 4;  // of the SCSI page that holds the number
    std::string serial = FirstOf({ReadWord(device.directory + "/device/vpd_pg80", kPageHeader),
                                  ReadWord(device.directory + "/serial"),
                                  ReadWord(device.directory + "/device/serial"),
                                  Clean(udev(device.directory, "ID_SERIAL_SHORT")), Wwid(device)});
    // The namespaces of a drive share its number.
    const std::string part = ReadWord(device.directory + "/nsid");
    if (!serial.empty() && !part.empty() && part != "1") serial += "_" + part;
    // The bracket ends it, so that no such text is the beginning of another.
    return serial.empty() ? "none (" + location.substr(1) + ")" : serial;
}

std::string Vendor(const Device& device, const UdevProperty& udev) {
    static constexpr const char* kBySubsystem[][2] = {{"nvme", "NVMe"},
                                                      {"nvme-subsystem", "NVMe"},
                                                      {"virtio", "virtio"},
                                                      {"mmc", "MMC"},
                                                      {"xen", "Xen"}};
    std::string vendor = ReadWord(device.directory + "/device/vendor");
    if (vendor.compare(0, 2, "0x") == 0) vendor.clear();  // a number of the bus
    vendor = FirstOf({vendor, Clean(udev(device.directory, "ID_VENDOR"))});
    for (const auto& [subsystem, name] : kBySubsystem) {
        if (vendor.empty() && device.subsystem == subsystem) vendor = name;
    }
    return vendor.empty() ? "unknown" : vendor;
}

std::string Status(const Device& device) {
    const std::string state = ReadWord(device.directory + "/device/state");
    return state.empty() || state == "running" || state == "live" ? "ok" : state;
}

// In sysfs "!" stands for the "/" of a name such as etherd/e0.0.
std::string DevicePath(const std::string& name) {
    std::string path = (name.compare(0, 2, "sd") == 0 ? "/dev/" : "/dev/sdisk/") + name;
    std::replace(path.begin(), path.end(), '!', '/');
    return path;
}

Disk Describe(const Device& device, const UdevProperty& udev) {
    constexpr uint64_t kBlock = 512;  // what sysfs counts in, whatever the disk's sectors
    Disk disk;
    disk.name = device.name;
    disk.device = DevicePath(device.name);
    disk.scsi = device.subsystem == "scsi";
    disk.location = Location(device, udev);
    disk.serial = Serial(device, disk.location, udev);
    disk.wwid = Wwid(device);
    disk.vendor = Vendor(device, udev);
    disk.model = FirstOf({ReadWord(device.directory + "/device/model"),
                          ReadWord(device.directory + "/device/name"),
                          Clean(udev(device.directory, "ID_MODEL")), "disk"});
    disk.status = Status(device);
    disk.bytes = std::strtoull(ReadWord(device.directory + "/size").c_str(), nullptr, 10) * kBlock;
    return disk;
}

// Whether the two are the same disk, as far as sysfs says: some have several ways to it.
bool IsSame(const Disk& a, const Disk& b) { return !a.wwid.empty() && a.wwid == b.wwid; }

// Disks are told apart by their serial numbers, so those that a maker has used twice are followed
// by the place.
void TellApart(std::vector<Disk>* disks) {
    std::map<std::string, std::vector<Disk*>> by_serial;
    for (Disk& disk : *disks) by_serial[disk.serial].push_back(&disk);
    for (const auto& [serial, alike] : by_serial) {
        const bool same = std::all_of(
            alike.begin(), alike.end(),
            [&alike = alike](const Disk* disk) { return IsSame(*disk, *alike.front()); });
        if (alike.size() == 1 || same) continue;
        for (Disk* disk : alike) disk->serial += " (" + disk->location.substr(1) + ")";
    }
}

}  // namespace

const std::vector<std::string>& DiskKinds() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all;
        for (const Kind& kind : kKinds) all.emplace_back(kind.word);
        all.emplace_back(kVirtual);
        return all;
    }();
    return words;
}

bool FindDisks(const std::string& sys, const DiskChoice& choice, const UdevProperty& udev,
               std::vector<Disk>* disks) {
    const std::unique_ptr<DIR, int (*)(DIR*)> block(opendir((sys + "/block").c_str()), closedir);
    if (block == nullptr) return false;
    while (const dirent* entry = readdir(block.get())) {
        if (entry->d_name[0] == '.' || !Writable(entry->d_name)) continue;
        const Device device = Look(sys, entry->d_name);
        // Gone again since, or not to be tested.
        if (device.directory.empty() || !Chosen(device, choice)) continue;
        disks->push_back(Describe(device, udev));
    }
    TellApart(disks);
    std::sort(disks->begin(), disks->end(), [](const Disk& a, const Disk& b) {
        if (a.device.size() != b.device.size()) return a.device.size() < b.device.size();
        return a.device < b.device;
    });
    return true;
}

}  // namespace agent
