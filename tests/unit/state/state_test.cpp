// What is read from "devconf_cur.xml" and from the progress file.

#include "../support.h"
#include "state/disk_progress.h"
#include "state/machine.h"

namespace patrol_test {
namespace {

class StateTest : public UnitTest {
 protected:
    ~StateTest() override { unsetenv("KVX_SVTYPE"); }
    // Words of Xml, with "@" for the longest value that a model may have, and "^" for a blank.
    void Configure(const std::string& words) const {
        const std::string longest(78, 'v');
        agent_.Write("data/devconf_cur.xml",
                     Replaced(Replaced(Xml(words), "@", longest), "^", " "));
    }
};

TEST_F(StateTest, TheMachineIsWhatTheSystemEntrySays) {
    const char table[] = R"(S/N=AB <dev^type="SYSTEM"> model=CD||CD
<dev^type="SYSTEM"^id="0"> S/N=AB model=C|AB|
<dev^type="SYSTEM"> end S/N=AB <dev> model=CD|AB|
<dev^type="SYSTEM"> S/N2=AB models=CD||
<dev^type="SYSTEM"> model=@||@
<dev^type="SYSTEM"> model=@v||
<dev^type="SYSTEM"> <attr^name="model">no^end <attr^name="S/N">AB</|AB|)";
    MachineIdentity machine;
    for (const Strings& row : Rows(table)) {
        Configure(row[0]);
        EXPECT_EQ(get_serial_model(&machine), 0);
        EXPECT_EQ(machine.serial_number.view(), row[1]) << row[0];
        EXPECT_EQ(machine.model.view(), Replaced(row[2], "@", std::string(78, 'v'))) << row[0];
    }
    setenv("KVX_SVTYPE", "MB", 1);
    EXPECT_EQ(get_serial_model(&machine), -1);
    EXPECT_TRUE(machine.serial_number.empty()) << "the identity before is forgotten";
    agent_.MakeDir("data/MB");
    agent_.Write("data/MB/devconf_cur.xml", "<dev type=\"SYSTEM\">\n" + Xml("S/N=Board"));
    EXPECT_EQ(get_serial_model(&machine), 0);
    EXPECT_EQ(machine.serial_number.view(), "Board");
}

TEST_F(StateTest, PlacesAreTheFirstThatTheConfigurationNames) {
    setenv("KVX_SVTYPE", "MB", 1);  // has no say here
    const char table[] =
        R"(C|<"CPU_summary"> <"CPU_summary"^phypath="/C1"> <"CPU_summary"^phypath="/C2">|/C1
M|<"CPU_summary"^phypath="/C"> <"DIMM_summary"^a="b"^phypath="/D/0"^c="d">|/D/0
D|</dev/sda> <"x"^phypath="/x"> <"x"^phypath="/y^/dev/sdab">|/y /dev/sdab
C|<dev>|/y /dev/sdab
D|<"SOFTWARE"> <"x"^phypath="/y^/dev/sda">|no data
M|<"DIMM_summary"^phypath="@@">|@vvvvvvvvvvvvvvvvvvvvv)";
    for (const Strings& row : Rows(table)) {
        Configure(Replaced(row[1], "<\"", "<dev^type=\""));
        const int kind = row[0] == "C" ? kPathOfCpu : row[0] == "M" ? kPathOfMemory : kPathOfDevice;
        EXPECT_EQ(get_phypath(kind, row[0] == "D" ? "/dev/sda" : nullptr),
                  Replaced(row[2], "@", std::string(78, 'v')))
            << row[1];
    }
    agent_.Remove("data/devconf_cur.xml");
    EXPECT_STREQ(get_phypath(kPathOfCpu, nullptr), "no data");
}

TEST_F(StateTest, ProgressTouchesItsEndsOnlyWhereItIsThere) {
    const uint64_t most = ~uint64_t{0}, word = 0xffffffff;
    const std::tuple<uint64_t, uint64_t, int32_t> cases[] = {
        {0, 100, 0},    {1, most, 1},      {50, 100, 50},        {999, 1000, 99}, {100, 100, 100},
        {101, 100, 99}, {most, most, 100}, {word - 1, word, 99}, {2, 3, 66},      {0, 0, 0},
    };
    for (const auto& [next, maximum, percent] : cases) {
        EXPECT_EQ(ProgressPercent(next, maximum), percent) << next << " of " << maximum;
    }
}

}  // namespace
}  // namespace patrol_test
