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
    setenv("KVX_data", "", 1);
    Text<40> number;
    EXPECT_EQ(find_partition_num(&number), -1);
    EXPECT_NE(TakeLog().find("warning getenv ret=NULL"), kNone) << "empty is as good as unset";
}

TEST_F(StateTest, ProgressIsExactAndTouchesItsEndsOnlyWhereItIsThere) {
    constexpr uint64_t kMost = ~uint64_t{0}, kWord = 0xffffffff;
    // Next, maximum, and what start, event and history show. The event takes single precision.
    const std::tuple<uint64_t, uint64_t, int32_t, int32_t, int32_t> cases[] = {
        {0, 100, 0, 0, 0},
        {0, 0, 0, 0, 0},
        {1, 0, 1, 0, 1},
        {1, kMost, 1, 1, 1},
        {999, 1000, 99, 99, 99},
        {100, 100, 100, 100, 100},
        {251, 100, 251, 99, 99},
        {kMost, kMost, 100, 100, 100},
        {kMost, 1, INT32_MAX, 99, 99},
        {kWord - 1, kWord, 99, 99, 99},
        {kMost - 1, kMost, 99, 99, 99},
        {kMost / 2, kMost, 49, 50, 49},
        {2, 3, 66, 66, 66},
        {17783849, 1 << 25, 53, 52, 53},
    };
    for (const auto& [next, maximum, start, event, history] : cases) {
        SCOPED_TRACE(std::to_string(next) + " of " + std::to_string(maximum));
        EXPECT_EQ(StartPercent(next, maximum), start);
        EXPECT_EQ(EndPercent(next, maximum), event);
        EXPECT_EQ(ProgressPercent(next, maximum), history);
    }
}

}  // namespace
}  // namespace patrol_test
