// The disks that sysfs shows.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace agent {

struct Disk {
    std::string name;      // the kernel's: "sda", "nvme0n1"
    std::string device;    // the controller's: "/dev/sda", "/dev/sdisk/nvme0n1"
    bool scsi = false;     // SCSI and what the kernel drives as SCSI (SATA, SAS, USB)
    std::string location;  // where it is plugged in, for people: "/pci-0000:00:1f.2-ata-1"
    std::string serial;    // never empty: a disk that has none, or shares it with another one, is
                           // known by its location
    std::string wwid;      // empty where the kernel does not say
    std::string vendor;    // never empty
    std::string model;     // never empty
    std::string status;    // "ok" or the kernel's word for what is wrong
    uint64_t bytes = 0;    // 0 where the kernel does not say
};

// Which disks count.
struct DiskChoice {
    std::vector<std::string> with;     // words of DiskKinds that are not to be left out
    std::vector<std::string> without;  // patterns (fnmatch) of kernel names that are
};

// The kinds of block devices that are left out unless asked for: "loop", "ram", "zram", "dm", "md",
// "optical", "floppy", "removable", "network" and "virtual" (whatever else is no hardware).
const std::vector<std::string>& DiskKinds();

// What udev knows of the device at `path` below sysfs; empty for a property that it does not know.
using UdevProperty = std::function<std::string(const std::string& path, const char* property)>;

// The whole disks below `sys`, a directory laid out as /sys, in an order that does not change as
// long as the disks stay the same: a device name that begins another one comes before it, since
// the controller takes the first line that contains the name. False, with errno set, when
// "block" cannot be read.
bool FindDisks(const std::string& sys, const DiskChoice& choice, const UdevProperty& udev,
               std::vector<Disk>* disks);

}  // namespace agent
