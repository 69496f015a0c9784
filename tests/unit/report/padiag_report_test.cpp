// The rules of padiag reports that have many inputs.

#include <ctime>
#include <tuple>

#include "../support.h"
#include "base/clocks.h"
#include "base/kinds.h"
#include "base/settings.h"
#include "control/physical_path.h"
#include "report/history.h"
#include "report/system_event.h"
#include "report/system_event_settings.h"

namespace patrol_test {
namespace {

class PadiagReportTest : public UnitTest {
 protected:
    ~PadiagReportTest() override {
        unsetenv("KVX_SVTYPE");
        setenv("TZ", "UTC0", 1);
        tzset();
    }
};

TEST_F(PadiagReportTest, TimesCarryTheOffsetOfTheirZone) {
    const std::tuple<const char*, int, const char*> zones[] = {
        {"JJJ-9", -540, "2026-01-01T09:30:00+09:00"},
        {"NNN3:30", 210, "2025-12-31T21:00:00-03:30"},
        {"SSS0:30", 30, "2026-01-01T00:00:00-00:30"},
    };
    for (const auto& [zone, offset, text] : zones) {
        setenv("TZ", zone, 1);
        tzset();
        EXPECT_EQ(get_timezone_offset(), offset) << zone;
        IsoTime time;
        date2iso8601(1767227400, &time);
        EXPECT_EQ(time.view(), text);
    }
}

TEST_F(PadiagReportTest, SwitchAndFacilityAreReadInTheirSectionAlone) {
    const std::tuple<std::string, int, int> files[] = {
        {"[sdb]\nenable = 1\nfacility = 3", 1, 3},
        {"enable=1\n[other]\nenable=1\n[sdb2]\nfacility=2\n", 0, 0},
        {"[sdb] x\nenable=-7\n[a]\nenable=0\n[sdb]\nfacility=5\n", -7, 5},
        {"[sdb]\n enable=1\nEnable=1\nenabled=1\nfacility=x\n", 0, 0},
        {"[sdb]\nenable=99999999999999999999\nfacility=1x\n", 2147483647, 1},
    };
    for (const auto& [text, enable, facility] : files) {
        agent_.Write("config/common.ini", text);
        EXPECT_EQ(check_config_file(), 0);
        EXPECT_EQ(event_settings.enable, enable) << text;
        EXPECT_EQ(event_settings.facility, facility) << text;
    }
    agent_.Write("config/common.ini", "[sdb]\nenable=1\n");
    check_config_file();
    agent_.Remove("config/common.ini");
    EXPECT_EQ(check_config_file(), -1);
    EXPECT_EQ(event_settings.enable, 0) << "the settings before are forgotten";
}

TEST_F(PadiagReportTest, TheMachineIsWhatTheSystemEntrySays) {
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
    for (const auto& [text, number, name] : files) {
        agent_.Write("data/devconf_cur.xml", text);
        EXPECT_EQ(get_serial_model(), 0);
        EXPECT_EQ(machine_identity.serial_number.view(), number) << text;
        EXPECT_EQ(machine_identity.model.view(), name) << text;
    }
    setenv("KVX_SVTYPE", "MB", 1);
    EXPECT_EQ(get_serial_model(), -1);
    EXPECT_TRUE(machine_identity.serial_number.empty()) << "the identity before is forgotten";
    agent_.MakeDir("data/MB");
    agent_.Write("data/MB/devconf_cur.xml", system + serial + "Board" + end);
    EXPECT_EQ(get_serial_model(), 0);
    EXPECT_EQ(machine_identity.serial_number.view(), "Board");
}

TEST_F(PadiagReportTest, ProgressTouchesItsEndsOnlyWhereItIsThere) {
    const uint64_t most = ~uint64_t{0}, word = 0xffffffff;
    const std::tuple<uint64_t, uint64_t, int32_t> cases[] = {
        {0, 100, 0},    {1, most, 1},      {50, 100, 50},        {999, 1000, 99}, {100, 100, 100},
        {101, 100, 99}, {most, most, 100}, {word - 1, word, 99}, {2, 3, 66},      {0, 0, 0},
    };
    for (const auto& [next, maximum, percent] : cases) {
        EXPECT_EQ(ProgressPercent(next, maximum), percent) << next << " of " << maximum;
    }
}

TEST_F(PadiagReportTest, HistoryLinesCountWhatTheTestReported) {
    ASSERT_TRUE(AllocateDiskTable(1));
    hdd_exec_use = 1;
    agent_.Write("data/lba_outfile.ini",
                 "[HDD_MAX_LBA]\nd1=0x64\nd2=100\nd3=0x64\n[HDD_NEXT_LBA]\nd1=0x32\nd2=0x63\n"
                 "d3=0x64\nd5=1\n");
    const struct {
        int result, kind;
        const char* device;
        const char* message;
        int level, limit;
        uint32_t seconds;
        const char* line;
    } cases[] = {
        {0, kKindCpu, "CPU", nullptr, 1, 100, 0, "OK      cputest CPU [1s] pass=7"},
        {1, kKindCpu, "CPU", " bad", 3, 100, 99, "ERROR   cputest CPU [99s] pass=7  bad"},
        {4, kKindMemory, "Memory", "", 3, 100, 101, "CANCEL  memtest Memory [100s] pass=7 "},
        {3, kKindHdd, "d1", nullptr, 2, 100, 2, "TIMEOUT hddtest d1 [2s] pass=7"},
        {0, kKindHdd, "d1", nullptr, 3, 100, 1, "OK      hddtest d1 [1s] 20[%] -> 50[%](pass=7)"},
        {1, kKindHdd, "d2", "e", 4, 9, 100, "ERROR   hddtest d2 [9s] 20[%] -> 99[%](pass=7) e"},
        {2, kKindHdd, "d3", nullptr, 3, 9, 5, "ABORT   hddtest d3 [5s] pass=7"},
        {0, kKindCpu, "CPU", nullptr, 1, 0, 1, "OK      cputest CPU [0s] pass=7"},
        {9, 8, "x", nullptr, 3, 9, 5, "        unknow x [0s] "},
    };
    clock_now = [] { return std::time_t{1'000'000}; };
    for (const auto& c : cases) {
        padiag_level = c.level;
        padiag_time = c.limit;
        HddExec& disk = hdd_exec_tbl[0];
        cpu_run_time = mem_run_time = disk.run_time = c.seconds;
        cpu_pass_num = mem_pass_num = disk.pass_count = 7;
        disk.padiag.progress = 20;
        agent_.Remove("log/pastat.txt");
        EXPECT_EQ(PadiagHistory(c.result, c.kind, c.device, c.message, 0), 0);
        EXPECT_EQ(agent_.History("log/pastat.txt"), Strings{c.line});
    }
    clock_now = [] { return std::time(nullptr); };
}

TEST_F(PadiagReportTest, PlacesAreTheFirstThatTheConfigurationNames) {
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
