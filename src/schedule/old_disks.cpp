#include "schedule/old_disks.h"

#include "base/file.h"
#include "base/number.h"
#include "base/paths.h"
#include "base/table.h"
#include "msg/trace.h"
#include "state/schedule_file.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

// The disks of the Schedule file before a rebuild; null where there is none under way.
int hdd_type_cnt = 0;
OldDisk* hdd_type_tbl = nullptr;

// Returns whether the file could not be read for a reason of the moment. It must not be replaced
// then; one that will never be read, such as one that is too large, has no addresses to be kept.
bool UnreadNow(const ScheduleFile& schedule) { return IsPassing(schedule.profile().error()); }

void FreeOldDisks() { FreeTable(&hdd_type_tbl, &hdd_type_cnt); }

}  // namespace

int HddTblAlloc() {
    Ptltrprintf("[%s] start.\n", __func__);
    FreeOldDisks();
    const ScheduleFile schedule(sche_path.c_str());
    if (UnreadNow(schedule)) {
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    const int count = schedule.DiskCount();
    hdd_type_tbl = AllocateTable<OldDisk>(count);
    if (hdd_type_tbl == nullptr) {
        Ptltrprintf("[%s] hdd_type Alloc Error.(size= %d byte)\n", __func__,
                    TableBytes<OldDisk>(count));
        Ptltrprintf("[%s] end.( -1 )\n", __func__);
        return -1;
    }
    hdd_type_cnt = BoundedCount(count);
    return 0;
}

bool HddSaveData() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ScheduleFile schedule(sche_path.c_str());
    for (int i = 0; i < hdd_type_cnt; ++i) {
        OldDisk& disk = hdd_type_tbl[i];
        disk.device_name.Assign(schedule.Device<512>(i).view());
        disk.serial_number.Assign(schedule.SerialNumber<512>(i).view());
        disk.address.Assign(schedule.Address<512>(i, kShortFirstAddress).view());
    }
    Ptltrprintf("[%s] End.\n", __func__);
    return !UnreadNow(schedule);
}

const OldDisk* KnownDisk(const char* serial) {
    for (int i = 0; i < hdd_type_cnt; ++i) {
        const Text<512>& known = hdd_type_tbl[i].serial_number;
        if (StartsWith(serial, known.view())) return &hdd_type_tbl[i];
    }
    return nullptr;
}

// The builder has put the addresses in already, so that no end of the run can cost them; they are
// written again for the serial numbers as readers of the file see them, and for "<path>.old".
void HddCompareData() {
    Ptltrprintf("[%s] Start.\n", __func__);
    const ScheduleFile built(sche_path.c_str());
    ProfileWriter schedule(sche_path.c_str());
    const int count = BoundedCount(built.DiskCount());
    for (int i = 0; i < count; ++i) {
        const Text<512> serial(built.SerialNumber<512>(i).view());
        const OldDisk* known = KnownDisk(serial.c_str());
        if (known == nullptr) continue;
        const Text<32> section = DiskSection(i);
        // "<path>.old" holds what was before the last write: there the last disk starts at 0.
        if (!known->address.empty()) schedule.Write(section.c_str(), kAddressKey, kFirstAddress);
        schedule.Write(section.c_str(), kAddressKey, known->address.c_str());
        Ptltrprintf("[%s] HDD(%d) match!!\n", __func__, static_cast<int>(known - hdd_type_tbl));
    }
    schedule.SaveOrReport(__func__);
    FreeOldDisks();
    Ptltrprintf("[%s] End.\n", __func__);
}

}  // namespace patrol
