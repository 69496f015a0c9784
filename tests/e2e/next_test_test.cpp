// What each pass makes due for the next one.

#include "records.h"

namespace patrol_test {
namespace {

class NextTest : public PassTest {
 protected:
    void SetUp() override {
        for (const char* name : {"cputest", "memtest", "hddtest"}) agent_.Script(name, "exit 0");
    }
    // The numbers of the due disks, then "|" and start_kigu, next_gusu, next_kisu.
    std::string Disks(int count) const {
        std::string due;
        for (int i = 0; i < count; ++i) {
            const std::string section = "HDD_SCHEDULE " + std::to_string(i);
            if (agent_.Key(section, "hdd_next_go") == "ON") due += std::to_string(i);
        }
        for (const char* key : {"hdd_start_kigu", "hdd_next_gusu", "hdd_next_kisu"}) {
            due += (key[4] == 's' ? "|" : ",") + agent_.Key("TEST_SCHEDULE", key);
        }
        return due;
    }
};

TEST_F(NextTest, ProcessorsAndMemoryTakeTurns) {
    const struct {
        const char *cpu_exe, *mem_exe, *cpu_go, *mem_go, *next_cpu, *next_mem;
    } cases[] = {
        {"ON", "ON", "ON", "OFF", "OFF", "ON"},  {"ON", "ON", "OFF", "ON", "ON", "OFF"},
        {"ON", "ON", "1", "", "OFF", "OFF"},     {"ON", "ON", "OFFLINE", "OFF", "OFF", "ON"},
        {"ON", "OFF", "ON", "OFF", "ON", "OFF"}, {"ON", "OFF", "OFF", "ON", "ON", "OFF"},
        {"OFF", "ON", "ON", "OFF", "OFF", "ON"}, {"OFF", "OFF", "ON", "ON", "ON", "ON"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.cpu_exe) + " " + c.mem_exe + " " + c.cpu_go + " " + c.mem_go);
        Plan(c.cpu_go, c.mem_go, {});
        agent_.SetKey("CPU_SCHEDULE", "cpu_exe", c.cpu_exe);
        agent_.SetKey("MEM_SCHEDULE", "mem_exe", c.mem_exe);
        Pass();
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_next_go"), c.next_cpu);
        EXPECT_EQ(agent_.Key("MEM_SCHEDULE", "mem_next_go"), c.next_mem);
    }
}

// A case is the passes one after the other: what was due and stored before the first pass, then
// what was after each one. A disk that is due is marked in `due` by its number.
TEST_F(NextTest, DisksTakeTurnsByParityWithinTheLimit) {
    const struct {
        int disks;
        const char* limit;
        Strings states;
    } cases[] = {
        {5, "128", {"024|1,0,1", "13|0,0,1", "024|1,0,1", "13|0,0,1"}},
        {5, "-1", {"024|1,0,1", "13|0,0,1", "024|1,0,1"}},
        {4, "128", {"|0,0,1", "02|1,0,1"}},
        {4, "1", {"0|1,2,1", "1|0,2,1", "2|1,2,3", "3|0,4,3", "|1,4,1", "1|0,2,1"}},
        {4, "2", {"|1,0,1", "13|0,4,1", "|1,4,1", "13|0,4,1"}},
        {6, "0", {"0|1,3,5", "0|0,0,5", "0|1,0,0"}},
        {4, "9", {"|0,2,3", "2|1,2,1"}},
        {1, "128", {"0|1,7,7", "0|1,7,1", "0|1,7,1"}},
        {0, "128", {"|1,5,6", "|1,5,6"}},
    };
    for (const auto& c : cases) {
        const auto& start = c.states.at(0);
        SCOPED_TRACE(std::to_string(c.disks) + " disks, " + c.limit + " a pass, from " + start);
        Strings due(static_cast<size_t>(c.disks), "OFF");
        const size_t bar = start.find('|');
        for (const char disk : start.substr(0, bar)) due.at(static_cast<size_t>(disk - '0')) = "ON";
        Plan("OFF", "OFF", due);
        agent_.SetKey("TEST_SCHEDULE", "hdd_max", c.limit);
        agent_.SetKey("TEST_SCHEDULE", "hdd_start_kigu", start.substr(bar + 1, 1));
        agent_.SetKey("TEST_SCHEDULE", "hdd_next_gusu", start.substr(bar + 3, 1));
        agent_.SetKey("TEST_SCHEDULE", "hdd_next_kisu", start.substr(bar + 5, 1));
        for (size_t pass = 1; pass < c.states.size(); ++pass) {
            Pass();
            EXPECT_EQ(Disks(c.disks), c.states[pass]) << "after pass " << pass;
        }
    }
}

TEST_F(NextTest, DisabledDisksAreLeftOut) {
    Plan("OFF", "OFF", {"ON", "OFF", "OFFLINE", "OFF"});
    agent_.SetKey("HDD_SCHEDULE 0", "hdd_exe", "OFF");
    agent_.SetKey("HDD_SCHEDULE 1", "hdd_exe", "OFF");
    Pass();
    EXPECT_EQ(Disks(4), "03|0,0,1");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 2", "hdd_next_go"), "OFF") << "only OFF itself is OFF";

    // The start of the even disks is 1 where the file has none.
    Plan("OFF", "OFF", {"OFF", "OFF", "OFF"});
    agent_.SetKey("TEST_SCHEDULE", "hdd_start_kigu", "0");
    std::string plan = agent_.Read(kSchedule);
    agent_.Write(kSchedule, plan.erase(plan.find("hdd_next_gusu=0\n"), 16));
    Pass();
    EXPECT_EQ(Disks(3), "2|1,(none),1");
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
