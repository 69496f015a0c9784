// The rules of padiag reports that have many inputs.

#include <ctime>
#include <tuple>

#include "../support.h"
#include "base/clocks.h"
#include "base/kinds.h"
#include "base/local_time.h"
#include "base/settings.h"
#include "report/history.h"
#include "report/system_event.h"
#include "report/system_event_settings.h"

namespace patrol_test {
namespace {

class PadiagReportTest : public UnitTest {
 protected:
    ~PadiagReportTest() override {
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
        SystemEventSettings settings;
        EXPECT_EQ(check_config_file(&settings), 0);
        EXPECT_EQ(settings.enable, enable) << text;
        EXPECT_EQ(settings.facility, facility) << text;
    }
    agent_.Remove("config/common.ini");
    SystemEventSettings before = {1, 1};
    EXPECT_EQ(check_config_file(&before), -1);
    EXPECT_EQ(before.enable, 0) << "the settings before are forgotten";
}

TEST_F(PadiagReportTest, HistoryLinesCountWhatTheTestReported) {
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
        RunningTest test;
        test.kind = c.kind;
        test.device_name.Assign(c.device);
        test.run_time = c.seconds;
        test.pass_count = 7;
        test.padiag.progress = 20;
        agent_.Remove("log/pastat.txt");
        EXPECT_EQ(PadiagHistory(c.result, &test, c.message), 0);
        EXPECT_EQ(agent_.History("log/pastat.txt"), Strings{c.line});
    }
    clock_now = [] { return std::time(nullptr); };
}

}  // namespace
}  // namespace patrol_test
