#include "control/selection.h"

#include "../support.h"

namespace patrol_test {
namespace {

class SelectionTest : public UnitTest {};

std::string Said(const Selection& selection) {
    std::string said;
    const auto add = [&](const Selection::Component& c) {
        for (const Flag flag : {c.enabled, c.due}) said += flag == Flag::kOff ? "-" : "+";
    };
    add(selection.cpu);
    add(selection.memory);
    for (const auto& disk : selection.disks) add(disk);
    for (const int number : {selection.phase, selection.odd_start, selection.even_start}) {
        said += "," + std::to_string(number);
    }
    return said;
}

TEST_F(SelectionTest, PassesOnACopyAreThoseOfTheFile) {
    for (const int limit : {-1, 0, 1, 2}) {
        for (const int disks : {0, 1, 2, 5}) {
            std::string text =
                "[CPU_SCHEDULE]\ncpu_exe=ON\ncpu_next_go=ON\n[MEM_SCHEDULE]\n"
                "mem_exe=ON\nmem_next_go=OFF\n";
            for (int i = 0; i < disks; ++i) {
                text += "[HDD_SCHEDULE " + std::to_string(i) +
                        "]\nhdd_exe=" + (i == 3 ? "OFF" : "ON") +
                        "\nhdd_next_go=" + (i == 2 ? "ON" : "OFF") + "\n";
            }
            text += "[TEST_SCHEDULE]\nhdd_all_num=" + std::to_string(disks) +
                    "\nhdd_max=" + std::to_string(limit) + "\nhdd_next_gusu=2\nhdd_next_kisu=3\n";
            agent_.Write("data/pat_new_sche.txt", text);
            Selection copy = ReadSelection(ScheduleFile(sche_path.c_str()));
            for (int pass = 1; pass < 7; ++pass) {
                NextTestSchedule();
                AdvanceSelection(&copy);
                EXPECT_EQ(Said(copy), Said(ReadSelection(ScheduleFile(sche_path.c_str()))))
                    << disks << " disks, " << limit << " a pass, pass " << pass;
            }
        }
    }
}

}  // namespace
}  // namespace patrol_test
