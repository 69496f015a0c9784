// What each pass makes due for the next one.

#include <sys/resource.h>

#include "records.h"

namespace patrol_test {
namespace {

class NextTest : public PassTest {
 protected:
    void SetUp() override {
        for (const char* name : {"cputest", "memtest", "hddtest"}) agent_.Script(name, "exit 0");
    }
    // The numbers of the due disks, then start_kigu, next_gusu, next_kisu.
    std::string Disks(int count) const {
        std::string due;
        for (int i = 0; i < count; ++i) {
            const std::string section = "HDD_SCHEDULE " + std::to_string(i);
            if (agent_.Key(section, "hdd_next_go") == "ON") due += std::to_string(i);
        }
        for (const char* key : {"hdd_start_kigu", "hdd_next_gusu", "hdd_next_kisu"}) {
            due += (key[4] == 's' ? " " : ",") + agent_.Key("TEST_SCHEDULE", key);
        }
        return due;
    }
};

TEST_F(NextTest, ProcessorsAndMemoryTakeTurns) {
    // Both switches, what is due, and what is due next.
    for (const Strings& row : Rows("ON|ON|ON|OFF|OFF|ON\nON|ON|OFF|ON|ON|OFF\nON|ON|1||OFF|OFF\n"
                                   "ON|ON|OFFLINE|OFF|OFF|ON\nON|OFF|ON|OFF|ON|OFF\n"
                                   "ON|OFF|OFF|ON|ON|OFF\nOFF|ON|ON|OFF|OFF|ON\n"
                                   "OFF|OFF|ON|ON|ON|ON")) {
        SCOPED_TRACE(Join(row, " "));
        Plan(row[2], row[3], {});
        agent_.SetKey("CPU_SCHEDULE", "cpu_exe", row[0]);
        agent_.SetKey("MEM_SCHEDULE", "mem_exe", row[1]);
        Pass();
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_next_go"), row[4]);
        EXPECT_EQ(agent_.Key("MEM_SCHEDULE", "mem_next_go"), row[5]);
    }
    // More disks than there is memory for keep nobody from the turn.
    Plan("ON", "OFF", {});
    agent_.SetKey("TEST_SCHEDULE", "hdd_all_num", "2147483647");
    Launch launch;
    launch.in_child = [] {
        const rlimit memory = {rlim_t{1} << 30, rlim_t{1} << 30};
        if (!kSanitized) setrlimit(RLIMIT_AS, &memory);
    };
    Pass(launch);
    EXPECT_EQ(agent_.Key("MEM_SCHEDULE", "mem_next_go"), "ON");
}

TEST_F(NextTest, DisksTakeTurnsByParityWithinTheLimit) {
    // How many disks, the limit, and the states: what was due and stored before the first pass,
    // then what was after each one. A disk that is due is named by its number.
    const char table[] = R"(5|128|024 1,0,1|13 0,0,1|024 1,0,1|13 0,0,1
5|-1|024 1,0,1|13 0,0,1|024 1,0,1
4|128| 0,0,1|02 1,0,1
4|1|0 1,2,1|1 0,2,1|2 1,2,3|3 0,4,3| 1,4,1|1 0,2,1
4|2| 1,0,1|13 0,4,1| 1,4,1|13 0,4,1
6|0|0 1,3,5|0 0,0,5|0 1,0,0
4|9| 0,2,3|2 1,2,1
1|128|0 1,7,7|0 1,7,1|0 1,7,1
0|128| 1,5,6| 1,5,6)";
    for (const Strings& row : Rows(table)) {
        SCOPED_TRACE(row[0] + " disks, " + row[1] + " a pass, from " + row[2]);
        Strings due(std::stoul(row[0]), "OFF");
        const size_t blank = row[2].find(' ');
        for (const char disk : row[2].substr(0, blank))
            due.at(static_cast<size_t>(disk - '0')) = "ON";
        Plan("OFF", "OFF", due);
        agent_.SetKey("TEST_SCHEDULE", "hdd_max", row[1]);
        agent_.SetKey("TEST_SCHEDULE", "hdd_start_kigu", row[2].substr(blank + 1, 1));
        agent_.SetKey("TEST_SCHEDULE", "hdd_next_gusu", row[2].substr(blank + 3, 1));
        agent_.SetKey("TEST_SCHEDULE", "hdd_next_kisu", row[2].substr(blank + 5, 1));
        for (size_t pass = 3; !row[pass].empty(); ++pass) {
            Pass();
            EXPECT_EQ(Disks(std::stoi(row[0])), row[pass]) << "after pass " << pass - 2;
        }
    }
}

TEST_F(NextTest, DisabledDisksAreLeftOut) {
    Plan("OFF", "OFF", {"ON", "OFF", "OFFLINE", "OFF"});
    agent_.SetKey("HDD_SCHEDULE 0", "hdd_exe", "OFF");
    agent_.SetKey("HDD_SCHEDULE 1", "hdd_exe", "OFF");
    Pass();
    EXPECT_EQ(Disks(4), "03 0,0,1");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 2", "hdd_next_go"), "OFF") << "only OFF itself is OFF";

    // The start of the even disks is 1 where the file has none.
    Plan("OFF", "OFF", {"OFF", "OFF", "OFF"});
    agent_.SetKey("TEST_SCHEDULE", "hdd_start_kigu", "0");
    std::string plan = agent_.Read(kSchedule);
    agent_.Write(kSchedule, plan.erase(plan.find("hdd_next_gusu=0\n"), 16));
    Pass();
    EXPECT_EQ(Disks(3), "2 1,(none),1");
}

TEST_F(NextTest, WithNothingEnabledTheFileStaysUntouched) {
    Plan("OFF", "OFF", {"OFF", "OFF"});
    agent_.SetKey("CPU_SCHEDULE", "cpu_exe", "OFF");
    agent_.SetKey("MEM_SCHEDULE", "mem_exe", "OFF");
    for (const char* disk : {"HDD_SCHEDULE 0", "HDD_SCHEDULE 1"}) {
        agent_.SetKey(disk, "hdd_exe", "OFF");
    }
    agent_.Remove(std::string(kSchedule) + ".old");
    Pass();
    EXPECT_FALSE(agent_.Exists(std::string(kSchedule) + ".old")) << "nothing was to be written";
    EXPECT_EQ(Count("[NextTestSchedule] "), 2U);
}

}  // namespace
}  // namespace patrol_test
