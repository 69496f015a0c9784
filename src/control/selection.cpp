#include "control/selection.h"

#include <string>

#include "base/number.h"
#include "base/paths.h"
#include "msg/trace.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr char kName[] = "NextTestSchedule";
constexpr char kTestSection[] = "TEST_SCHEDULE";
constexpr int kOddPhase = 1;

// Here a flag is off only when its whole value is "OFF".
bool IsOff(const ProfileReader& schedule, const char* section, const char* key) {
    Text<65> value;
    schedule.String(section, key, "OFF", &value);
    return value.view() == "OFF";
}

// Moves a next-go flag on: an enabled component that waited is due, one that ran gives way unless
// the other is disabled.
void Alternate(ProfileWriter* writer, const char* section, const char* key, bool was_off,
               bool own_off, bool other_off) {
    if (was_off && !own_off) writer->Write(section, key, "ON");
    if (!was_off && !other_off) writer->Write(section, key, "OFF");
}

void AdvanceProcessorsAndMemory(const ProfileReader& schedule, ProfileWriter* writer) {
    const bool cpu_off = IsOff(schedule, "CPU_SCHEDULE", "cpu_exe");
    const bool mem_off = IsOff(schedule, "MEM_SCHEDULE", "mem_exe");
    const bool cpu_waited = IsOff(schedule, "CPU_SCHEDULE", "cpu_next_go");
    const bool mem_waited = IsOff(schedule, "MEM_SCHEDULE", "mem_next_go");
    Alternate(writer, "CPU_SCHEDULE", "cpu_next_go", cpu_waited, cpu_off, mem_off);
    Alternate(writer, "MEM_SCHEDULE", "mem_next_go", mem_waited, mem_off, cpu_off);
}

struct DiskSelection {
    int count;
    int limit;  // most disks turned on; below 0: no limit
    int phase;
    int start;  // first disk of the phase to consider
};

struct SelectionEnd {
    int next = 0;           // the first disk that was not looked at
    bool limited = false;   // whether the limit ended the selection
    bool any_seen = false;  // whether a disk is enabled at all
};

// Whether a disk that waited is due in this phase.
bool InGroup(const DiskSelection& selection, int number) {
    const bool odd = number % 2 != 0;
    return odd == (selection.phase == kOddPhase) && number >= selection.start;
}

SelectionEnd SelectDisks(const ProfileReader& schedule, ProfileWriter* writer,
                         const DiskSelection& selection) {
    SelectionEnd end;
    int turned_on = 0;
    int& i = end.next;
    for (; i < selection.count && turned_on != selection.limit; ++i) {
        const std::string name = "HDD_SCHEDULE " + std::to_string(i);
        const char* section = name.c_str();
        if (IsOff(schedule, section, "hdd_exe")) continue;
        end.any_seen = true;
        if (selection.count == 1) {
            writer->Write(section, "hdd_next_go", "ON");
        } else if (!IsOff(schedule, section, "hdd_next_go")) {
            writer->Write(section, "hdd_next_go", "OFF");
        } else if (InGroup(selection, i)) {
            writer->Write(section, "hdd_next_go", "ON");
            ++turned_on;
        }
    }
    end.limited = turned_on == selection.limit;
    return end;
}

// Hands the turn to the other group, which is to begin at `start`.
void FlipPhase(ProfileWriter* writer, int phase, int start) {
    const std::string value = std::to_string(start);
    const bool to_even = phase == kOddPhase;
    writer->Write(kTestSection, "hdd_start_kigu", to_even ? "0" : "1");
    writer->Write(kTestSection, to_even ? "hdd_next_gusu" : "hdd_next_kisu", value.c_str());
}

void AdvanceDisks(const ProfileReader& schedule, ProfileWriter* writer) {
    DiskSelection selection = {};
    selection.count = BoundedCount(schedule.Int(kTestSection, "hdd_all_num", 0));
    selection.limit = schedule.Int(kTestSection, "hdd_max", 128);
    selection.phase = schedule.Int(kTestSection, "hdd_start_kigu", 0);
    selection.start = schedule.Int(
        kTestSection, selection.phase == kOddPhase ? "hdd_next_kisu" : "hdd_next_gusu", 1);
    if (selection.count == 1) selection.phase = selection.start = 0;
    if (selection.count < 1) return;

    const SelectionEnd end = SelectDisks(schedule, writer, selection);
    if (end.limited) {
        FlipPhase(writer, selection.phase, end.next);
        Ptltrprintf("[%s] HDD Test Go Max Over. next_cnt=%d\n", kName, end.next);
    } else if (end.any_seen && selection.phase == kOddPhase) {
        FlipPhase(writer, selection.phase, 0);
        Ptltrprintf("[%s] HDD Test Gusu Initialize. next_cnt=0\n", kName);
    } else if (end.any_seen) {
        FlipPhase(writer, selection.phase, 1);
        Ptltrprintf("[%s] HDD Test Kisu Initialize. next_cnt=1\n", kName);
    }
}

}  // namespace

void NextTestSchedule() {
    Ptltrprintf("[%s] Start.\n", kName);
    const ProfileReader schedule(sche_path.c_str());
    ProfileWriter writer(sche_path.c_str());
    AdvanceProcessorsAndMemory(schedule, &writer);
    AdvanceDisks(schedule, &writer);
    writer.Save();
    Ptltrprintf("[%s] End.\n", kName);
}

}  // namespace patrol
