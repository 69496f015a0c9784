#include "state/machine.h"

#include "../support.h"

namespace patrol_test {
namespace {

class MachineTest : public UnitTest {
 protected:
    ~MachineTest() override { unsetenv("KVX_SVTYPE"); }
};

TEST_F(MachineTest, TheMachineIsWhatTheSystemEntrySays) {
    const std::string system = "<devconf>\n<dev type=\"SYSTEM\" id=\"0\">\n";
    const std::string serial = "<attr name=\"S/N\">", model = "<attr name=\"model\">";
    const std::string end = "</attr>\n", most(98 - model.size() - 1, 'v');
    const std::tuple<std::string, const char*, std::string> files[] = {
        {serial + "AB" + end + system + model + "CD" + end, "", "CD"},
        {system + serial + "AB" + end + model + "C" + end, "AB", ""},
        {system + "</dev>\n" + serial + "AB" + end + "<dev>\n" + model + "CD" + end, "AB", ""},
        {system + "<attr name=\"S/N2\">AB" + end + "<attr name=\"models\">CD" + end, "", ""},
        {system + model + most + end, "", most},
        {system + model + most + "v" + end, "", ""},
        {system + model + "no end\n" + serial + "AB</", "AB", ""},
    };
    MachineIdentity machine;
    for (const auto& [text, number, name] : files) {
        agent_.Write("data/devconf_cur.xml", text);
        EXPECT_EQ(get_serial_model(&machine), 0);
        EXPECT_EQ(machine.serial_number.view(), number) << text;
        EXPECT_EQ(machine.model.view(), name) << text;
    }
    setenv("KVX_SVTYPE", "MB", 1);
    EXPECT_EQ(get_serial_model(&machine), -1);
    EXPECT_TRUE(machine.serial_number.empty()) << "the identity before is forgotten";
    agent_.MakeDir("data/MB");
    agent_.Write("data/MB/devconf_cur.xml", system + serial + "Board" + end);
    EXPECT_EQ(get_serial_model(&machine), 0);
    EXPECT_EQ(machine.serial_number.view(), "Board");
}

TEST_F(MachineTest, PlacesAreTheFirstThatTheConfigurationNames) {
    const std::string cpu = "<dev type=\"CPU_summary\"", dimm = "<dev type=\"DIMM_summary\"";
    const std::string where = " phypath=\"", software = "<dev type=\"SOFTWARE\">\n";
    const std::string longer(150, 'p');
    const std::tuple<int, std::string, std::string> files[] = {
        {kPathOfCpu, cpu + ">\n" + cpu + where + "/C1\">\n" + cpu + where + "/C2\">\n", "/C1"},
        {kPathOfMemory, cpu + where + "/C\">\n" + dimm + " a=\"b\"" + where + "/D/0\" c=\"d\">\n",
         "/D/0"},
        {kPathOfDevice, "/dev/sda\n<dev" + where + "/x\">\n<dev" + where + "/y /dev/sdab\">\n",
         "/y /dev/sdab"},
        {kPathOfCpu, "<dev>\n", "/y /dev/sdab"},
        {kPathOfDevice, software + "<dev" + where + "/y /dev/sda\">\n", "no data"},
        {kPathOfMemory, dimm + where + longer + "\">\n", longer.substr(0, 99)},
    };
    setenv("KVX_SVTYPE", "MB", 1);  // has no say here
    for (const auto& [kind, text, place] : files) {
        agent_.Write("data/devconf_cur.xml", text);
        EXPECT_EQ(get_phypath(kind, kind == kPathOfDevice ? "/dev/sda" : nullptr), place) << text;
    }
    agent_.Remove("data/devconf_cur.xml");
    EXPECT_STREQ(get_phypath(kPathOfCpu, nullptr), "no data");
}

}  // namespace
}  // namespace patrol_test
