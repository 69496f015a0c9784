#include "control/selection.h"

#include <utility>

#include "base/kinds.h"
#include "base/number.h"
#include "base/paths.h"
#include "msg/trace.h"
#include "sys/profile.h"

namespace patrol {
namespace {

constexpr int kOddPhase = 1;

// Here a flag is off only when its whole value is "OFF".
bool IsOff(Flag flag) { return flag == Flag::kOff; }

Selection::Component ReadComponent(const ScheduleFile& schedule, int kind, const char* section) {
    const ScheduleKeys& keys = KeysOf(kind);
    return {ReadFlag(schedule.profile(), section, keys.enabled),
            ReadFlag(schedule.profile(), section, keys.due)};
}

// The selection on its way past one pass. Each change goes two ways: into the selection, for passes
// that are only tried, and into the list, for the file.
class Step {
 public:
    explicit Step(Selection* selection) : selection_(*selection) {}

    void AdvanceProcessorsAndMemory() {
        Alternate(kKindCpu, &selection_.cpu, selection_.memory);
        Alternate(kKindMemory, &selection_.memory, selection_.cpu);
    }

    void AdvanceDisks() {
        if (selection_.disks.empty()) return;
        // One disk alone needs no turns: it is in the even group.
        const bool odd = selection_.disks.size() > 1 && selection_.phase == kOddPhase;
        const DisksEnd end = SelectDisks(odd, odd ? selection_.odd_start : selection_.even_start);
        if (end.limited) {
            HandOn(odd, end.next);
            result_.note = "HDD Test Go Max Over. next_cnt=" + std::to_string(end.next);
        } else if (end.any_enabled) {
            HandOn(odd, odd ? 0 : 1);
            result_.note = odd ? "HDD Test Gusu Initialize. next_cnt=0"
                               : "HDD Test Kisu Initialize. next_cnt=1";
        }
    }

    SelectionStep TakeResult() { return std::move(result_); }

 private:
    struct DisksEnd {
        int next = 0;              // the first disk that was not looked at
        bool limited = false;      // whether the limit ended the selection
        bool any_enabled = false;  // among those looked at
    };

    void SetDue(int kind, const char* section, Selection::Component* component, bool due) {
        component->due = due ? Flag::kOn : Flag::kOff;
        result_.changes.push_back({section, KeysOf(kind).due, OnOff(due)});
    }

    // An enabled component that waited is due, one that ran gives way unless the other is disabled.
    void Alternate(int kind, Selection::Component* own, const Selection::Component& other) {
        const char* section = KeysOf(kind).section;
        const bool waited = IsOff(own->due);
        if (waited && !IsOff(own->enabled)) SetDue(kind, section, own, true);
        if (!waited && !IsOff(other.enabled)) SetDue(kind, section, own, false);
    }

    DisksEnd SelectDisks(bool odd, int start) {
        const int count = static_cast<int>(selection_.disks.size());
        DisksEnd end;
        int turned_on = 0;
        int& i = end.next;
        for (; i < count && turned_on != selection_.limit; ++i) {
            Selection::Component& disk = selection_.disks[static_cast<size_t>(i)];
            if (IsOff(disk.enabled)) continue;
            const Text<32> section = DiskSection(i);
            end.any_enabled = true;
            if (count == 1) {
                SetDue(kKindHdd, section.c_str(), &disk, true);
            } else if (!IsOff(disk.due)) {
                SetDue(kKindHdd, section.c_str(), &disk, false);
            } else if ((i % 2 != 0) == odd && i >= start) {
                SetDue(kKindHdd, section.c_str(), &disk, true);
                ++turned_on;
            }
        }
        end.limited = turned_on == selection_.limit;
        return end;
    }

    // Hands the turn to the other group, which is to begin at `start`.
    void HandOn(bool odd, int start) {
        selection_.phase = odd ? 0 : kOddPhase;
        (odd ? selection_.even_start : selection_.odd_start) = start;
        result_.changes.push_back({kTestSection, kPhaseKey, odd ? "0" : "1"});
        result_.changes.push_back(
            {kTestSection, odd ? kEvenStartKey : kOddStartKey, std::to_string(start)});
    }

    Selection& selection_;
    SelectionStep result_;
};

}  // namespace

Selection ReadSelection(const ScheduleFile& schedule) {
    Selection selection;
    selection.cpu = ReadComponent(schedule, kKindCpu, KeysOf(kKindCpu).section);
    selection.memory = ReadComponent(schedule, kKindMemory, KeysOf(kKindMemory).section);
    const int count = BoundedCount(schedule.DiskCount());
    selection.disks.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        selection.disks.push_back(ReadComponent(schedule, kKindHdd, DiskSection(i).c_str()));
    }
    selection.limit = schedule.HddMax();
    selection.phase = schedule.TestNumber(kPhaseKey, 0);
    selection.odd_start = schedule.TestNumber(kOddStartKey, 1);
    selection.even_start = schedule.TestNumber(kEvenStartKey, 1);
    return selection;
}

SelectionStep AdvanceSelection(Selection* selection) {
    Step step(selection);
    step.AdvanceProcessorsAndMemory();
    step.AdvanceDisks();
    return step.TakeResult();
}

void NextTestSchedule() {
    Ptltrprintf("[%s] Start.\n", __func__);
    // First, as nobody else may change what is read.
    ProfileWriter writer(sche_path.c_str());
    Selection selection = ReadSelection(ScheduleFile(sche_path.c_str()));
    const SelectionStep step = AdvanceSelection(&selection);
    for (const ScheduleChange& change : step.changes) {
        writer.Write(change.section.c_str(), change.key, change.value.c_str());
    }
    writer.SaveOrReport(__func__);
    if (!step.note.empty()) Ptltrprintf("[%s] %s\n", __func__, step.note.c_str());
    Ptltrprintf("[%s] End.\n", __func__);
}

}  // namespace patrol
