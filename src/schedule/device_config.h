// Finding the disks in the agent's device configuration, "devconf_new.xml".
//
// The file is read line by line and searched for fixed texts, not parsed: the agent writes one
// element or attribute a line, in a fixed order.
#pragma once

#include <functional>
#include <utility>

#include "base/file.h"
#include "base/text.h"

namespace patrol {

// A disk as the configuration has it.
struct Disk {
    Text<512> device;  // "/dev/sd..." or "NO DATA"
    int ide = 0;       // 1 when the device line names an IDE path
    Text<512> serial_number;
    Text<512> vendor;
    Text<512> model;
};

// The disk being scanned. Only device and IDE mark are set anew for each disk: one without a
// serial, vendor or model line keeps that of the disk before it, also from one scan to the next.
extern Disk scanned_disk;

// The names of its parts.
inline Text<512>& device_name = scanned_disk.device;
inline int& f_ide_device = scanned_disk.ide;
inline Text<512>& serial_number = scanned_disk.serial_number;
inline Text<512>& xml_vendor = scanned_disk.vendor;
inline Text<512>& xml_model = scanned_disk.model;

// Loads the devices that are never diagnosed, from "pat_nontarget.ini". Returns 0, or -1 with an
// empty table when it cannot be allocated (traced).
int HddTblAlloc2();
void FreeNonTargets();

// Returns 0 for no disk device line, 1 for one, 2 for one of a logical drive, judged by what stands
// before the device path. Sets device_name and f_ide_device and cuts the line at the path.
int PhypathCheck(char* line);

// Returns 0 for no type attribute, 1 for one that says HDD, 2 for one that says something else.
int GetAttrData(const char* line);

// Returns 0 for nothing of interest, 1 for an operational status, 2 for another status, and 3, 4 or
// 5 when it took a serial number, a vendor or a model.
int GetAttrDataStatus(const char* line);

// How a scan ended: the configuration was read to its end, there is none, or it may be there but
// cannot be read now, or not to its end.
enum : int { kScanned = 0, kNoConfiguration = -1, kUnread = -2 };

// What a line of the configuration comes to.
enum class ScanLine {
    kOther,
    kSoftware,  // the scan ends here
    kDevice,    // a disk device begins
    kDeviceEnd,
    kIsDisk,        // the device's type is HDD
    kNoDisk,        // it is another one
    kSerialNumber,  // taken, as are the next two
    kVendor,
    kModel,
    kNotOperational,
    kNonTarget,
    kAccepted,  // an operational disk, no non-target
};

// The scan of the configuration, to its end or to its first software device.
class DiskScan {
 public:
    // Loads the non-targets and opens the file. With `device_line_ends` a device line met inside a
    // device ends that device, without being looked at itself. `caller` is the routine to trace
    // under.
    DiskScan(const char* caller, bool device_line_ends);
    ~DiskScan() { FreeNonTargets(); }
    DiskScan(const DiskScan&) = delete;
    DiskScan& operator=(const DiskScan&) = delete;

    bool opened() const { return file_ != nullptr; }

    // Has `watch` called with each line's number from 1 on, its text, and what it comes to.
    using Watch = std::function<void(int number, const char* text, ScanLine what)>;
    void WatchLines(Watch watch) { watch_ = std::move(watch); }

    // Returns the next operational disk that is no non-target, valid until the next call; null at
    // the end.
    const Disk* Next();

    // Returns how the scan ended (traced).
    int End();

 private:
    ScanLine TakeLine(char* line);
    ScanLine TakeStatus(const char* line);

    const char* caller_;
    bool device_line_ends_;
    Stream file_;
    int result_ = kScanned;
    Watch watch_;
    int number_ = 1;        // of the line
    bool inside_ = false;   // the lines belong to a disk device
    bool is_disk_ = false;  // the device said that it is a disk; stays set past the device's end
};

}  // namespace patrol
