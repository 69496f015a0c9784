#include "schedule/device_config.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/number.h"
#include "base/paths.h"
#include "base/table.h"
#include "msg/trace.h"
#include "state/schedule_file.h"
#include "sys/profile.h"

namespace patrol {

Disk scanned_disk;

namespace {

struct NonTarget {
    Text<512> vendor;
    Text<512> model;
};

int hdd_non_cnt = 0;
NonTarget* hdd_non_tbl = nullptr;

constexpr int kLineSize = 4095;  // longer lines count as several

bool Contains(const char* line, const char* part) { return std::strstr(line, part) != nullptr; }

template <size_t N>
bool ContainsAny(const char* line, const char* const (&parts)[N]) {
    for (const char* part : parts) {
        if (Contains(line, part)) return true;
    }
    return false;
}

// A text attribute that is kept from disk to disk.
struct TextAttribute {
    const char* mark;
    const char* name;  // as the traces say it
    Text<512>* value;
    int result;
};

// Searched in this order: a line that has two of the marks counts as the first.
constexpr TextAttribute kTextAttributes[] = {
    {"\"S/N\"", "S/N", &scanned_disk.serial_number, 3},
    {"\"vendor\"", "vendor", &scanned_disk.vendor, 4},
    {"\"model\"", "model", &scanned_disk.model, 5},
};

// Returns the result of the attribute, or 0 (traced) when no text stands between two angle
// brackets; the text of the disk before stays then.
int TakeText(const TextAttribute& attribute, const char* line) {
    // These two lines have always borne the name of the type check.
    constexpr char kTraceName[] = "GetAttrData";
    Ptltrprintf("[%s] %s(%s)\n", kTraceName, attribute.name, line);
    const char* open = std::strchr(line, '>');
    const char* close = open != nullptr ? std::strchr(open, '<') : nullptr;
    if (close == nullptr) {
        Ptltrprintf("[%s] Failed to Get %s(%s)\n", kTraceName, attribute.name, line);
        return 0;
    }
    attribute.value->Assign({open + 1, static_cast<size_t>(close - open - 1)});
    return attribute.result;
}

// A non-target entry matches when both its texts begin with what the configuration says.
bool IsNonTarget(const Disk& disk) {
    for (int i = 0; i < hdd_non_cnt; ++i) {
        if (StartsWith(hdd_non_tbl[i].vendor.view(), disk.vendor.view()) &&
            StartsWith(hdd_non_tbl[i].model.view(), disk.model.view())) {
            return true;
        }
    }
    return false;
}

}  // namespace

int HddTblAlloc2() {
    Ptltrprintf("[%s] start.\n", __func__);
    FreeNonTargets();
    const ProfileReader list(nontarget_path.c_str());
    const int count = list.Int("NON_TARGETLIST", "number", 1);
    hdd_non_tbl = AllocateTable<NonTarget>(count);
    if (hdd_non_tbl == nullptr) {
        Ptltrprintf("[%s] hdd_non Alloc Error.(size= %d byte)\n", __func__,
                    TableBytes<NonTarget>(count));
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    hdd_non_cnt = BoundedCount(count);
    for (int i = 0; i < hdd_non_cnt; ++i) {
        Text<32> section;
        section.Format("LIST%d", i);
        list.Field(section.c_str(), "vendor", "NO_DATA", &hdd_non_tbl[i].vendor);
        list.Field(section.c_str(), "model", "NO_DATA", &hdd_non_tbl[i].model);
    }
    Ptltrprintf("[%s] end.( 0 )\n", __func__);
    return 0;
}

void FreeNonTargets() { FreeTable(&hdd_non_tbl, &hdd_non_cnt); }

int PhypathCheck(char* line) {
    if (line == nullptr) {
        Ptltrprintf("[%s] String is NULL\n", __func__);
        return 0;
    }
    scanned_disk.ide = 0;
    char* path = std::strstr(line, "/dev/sd");
    if (path == nullptr || !Contains(line, "<dev") || !Contains(line, "phypath")) return 0;
    Ptltrprintf("[%s] String is Hit(%s)\n", __func__, line);
    if (Contains(line, "/IDE")) scanned_disk.ide = 1;
    char* quote = std::strchr(path, '"');
    if (quote != nullptr) *quote = '\0';
    scanned_disk.device.Assign(quote != nullptr ? path : kNoDevice);
    // The quote that opens the value goes too.
    *(path > line ? path - 1 : path) = '\0';
    return Contains(line, "LogicalDrive") ? 2 : 1;
}

int GetAttrData(const char* line) {
    static constexpr const char* kTypeNames[] = {"\"scsi_type\"", "\"ide_type\"", "\"type\""};
    if (!Contains(line, "<attr") || !ContainsAny(line, kTypeNames)) return 0;
    if (Contains(line, ">HDD<")) {
        Ptltrprintf("[%s] Type is HDD(%s)\n", __func__, line);
        return 1;
    }
    Ptltrprintf("[%s] Type not HDD(%s)\n", __func__, line);
    return 2;
}

int GetAttrDataStatus(const char* line) {
    static constexpr const char* kGoodStates[] = {">ok<", ">OK<", ">Ok<", ">Operational<",
                                                  ">operational<"};
    if (!Contains(line, "<attr")) return 0;
    if (Contains(line, "\"status\"")) {
        if (ContainsAny(line, kGoodStates)) {
            Ptltrprintf("[%s] status is ok(%s)\n", __func__, line);
            return 1;
        }
        Ptltrprintf("[%s] status not ok(%s)\n", __func__, line);
        return 2;
    }
    for (const TextAttribute& attribute : kTextAttributes) {
        if (Contains(line, attribute.mark)) return TakeText(attribute, line);
    }
    return 0;
}

DiskScan::DiskScan(const char* caller, bool device_line_ends)
    : caller_(caller), device_line_ends_(device_line_ends) {
    HddTblAlloc2();
    file_ = OpenForReading(xml_path.c_str());
    if (file_ != nullptr) return;
    result_ = IsPassing(errno) ? kUnread : kNoConfiguration;
    Ptltrprintf("[%s] Can't Open %s.\n", caller_, xml_path.c_str());
}

const Disk* DiskScan::Next() {
    char line[kLineSize];
    while (file_ != nullptr && std::fgets(line, sizeof line, file_.get()) != nullptr) {
        const std::string text = watch_ ? line : "";
        // A longer line comes in pieces.
        const int number = number_;
        if (Contains(line, "\n")) ++number_;
        const ScanLine what = TakeLine(line);
        if (watch_) watch_(number, text.c_str(), what);
        if (what == ScanLine::kSoftware) return nullptr;
        if (what == ScanLine::kAccepted) return &scanned_disk;
    }
    return nullptr;
}

// A disk shows itself in three steps: a line with its device path, one with a type (a logical drive
// has none), and one with its status, which decides. Serial number, vendor and model come between
// type and status, in whatever order; what comes behind the status is too late.
ScanLine DiskScan::TakeLine(char* line) {
    if (Contains(line, "<dev") && Contains(line, "type") && Contains(line, "SOFTWARE")) {
        Ptltrprintf("[%s] Read Skip because XML Line is %s.\n", caller_, "SOFTWARE");
        return ScanLine::kSoftware;
    }
    if (!inside_) {
        const int hit = PhypathCheck(line);
        inside_ = hit != 0;
        if (hit == 2) is_disk_ = true;  // a logical drive has no type attribute
        return inside_ ? ScanLine::kDevice : ScanLine::kOther;
    }
    if (Contains(line, "</dev>") || (device_line_ends_ && Contains(line, "<dev"))) {
        inside_ = false;
        return ScanLine::kDeviceEnd;
    }
    if (is_disk_) return TakeStatus(line);
    const int type = GetAttrData(line);
    is_disk_ = type == 1;
    if (type == 2) inside_ = false;
    if (type == 0) return ScanLine::kOther;
    return is_disk_ ? ScanLine::kIsDisk : ScanLine::kNoDisk;
}

// Takes a line of a device that is a disk: one of its attributes, or its status, which decides.
ScanLine DiskScan::TakeStatus(const char* line) {
    switch (GetAttrDataStatus(line)) {
        case 1:
            break;
        case 2:
            is_disk_ = false;
            return ScanLine::kNotOperational;
        case 3:
            return ScanLine::kSerialNumber;
        case 4:
            return ScanLine::kVendor;
        case 5:
            return ScanLine::kModel;
        default:
            return ScanLine::kOther;
    }
    if (IsNonTarget(scanned_disk)) {
        Ptltrprintf("[%s] Non Target Match( xml_vendor=%s, xml_model=%s )\n", caller_,
                    scanned_disk.vendor.c_str(), scanned_disk.model.c_str());
        return ScanLine::kNonTarget;
    }
    is_disk_ = false;
    return ScanLine::kAccepted;
}

int DiskScan::End() {
    if (file_ != nullptr && std::ferror(file_.get()) != 0) {
        result_ = kUnread;
        Ptltrprintf("[%s] Can't read %s.\n", caller_, xml_path.c_str());
    }
    Ptltrprintf("[%s] end.( %d )\n", caller_, result_ == kScanned ? 0 : -1);
    return result_;
}

}  // namespace patrol
