// The lines that a diagnosis sends to the system log.

#include <unistd.h>

#include "padiag.h"

namespace patrol_test {
namespace {

class PadiagEventTest : public PadiagFixture {
 protected:
    void SetUp() override {
        agent_.Write("config/common.ini", "[sdb]\nenable=1\nfacility=3\n");
        agent_.Write("data/devconf_cur.xml",
                     R"(<dev type="SYSTEM" phypath="/">
<attr name="S/N">SN %d</attr>
<attr name="model">M%s1</attr>
</dev>
<dev type="CPU_summary" phypath="/CPU%n">
<dev type="DIMM_summary" phypath="/MEM">
<dev phypath="/IOU#0 /dev/sda">
<dev phypath="/IOU#1 /dev/sdb">
<dev phypath="/IOU#2 /dev/sdc">
)");
    }
    // The lines since the last call: "@" stands for the machine, "T" for a time of this offset,
    // "diag" for "diagnostics", "TIMES" for start and end.
    std::string Events(const std::string& offset = "\\+00:00") const {
        char host[257] = "";
        gethostname(host, sizeof host - 1);
        std::string text = Masked(agent_.Read("system_log"),
                                  "\\d{4}(-\\d\\d){2}T\\d\\d(:\\d\\d){2}" + offset, "T");
        agent_.Remove("system_log");
        for (const auto& [what, by] :
             {std::pair<std::string, const char*>{
                  R"(model:"M%s1" serial:"SN %d" hostname:")" + std::string(host) + "\" component:",
                  "@"},
              {R"( start_time:"T" end_time:"T")", " TIMES"},
              {"diagnostics", "diag"},
              {"SDB::ZQWNkvx:", ""},
              {"\n\n", "\n"}}) {
            text = Replaced(text, what, by);
        }
        return text;
    }
};

TEST_F(PadiagEventTest, EveryTestTellsOfItsStartAndItsEnd) {
    Plan(2, "ON", "ON", {"ON"});
    Stub("cputest", ProgressRecord(1, "cputest") + Verdict(1, 2, "cputest"));
    Stub("memtest", Verdict(4, 2, "memtest", "E1 100% bad"));
    Stub("hddtest", Verdict(4, 2, "hddtest"));
    Diagnose({{{"TZ", "WWW3:30"}}});
    const std::string starts = R"(<157>:1043:cpu diag started.(@"/CPU%n" start_time:"T")
<157>:1053:memory diag started.(@"/MEM" start_time:"T")
<157>:1063:disk diag started.(@"/IOU#0 /dev/sda" start_time:"T")
)";
    EXPECT_EQ(Events("-03:30"), starts + R"(<157>:1044:cpu diag completed.(@"/CPU%n" pass:"1" TIMES)
<157>:1055:memory diag failed.(@"/MEM" pass:"0" errmsg:" E1 100% bad" TIMES)
<157>:1065:disk diag failed.(@"/IOU#0 /dev/sda" pass:"0" errmsg:"no data" TIMES)
)");
    // Without a result a test is announced as aborted.
    Stub("cputest", Verdict(1, 0, "cputest"));
    Stub("memtest", Verdict(1, 2));
    Stub("hddtest", ProgressRecord(1));
    Diagnose();
    EXPECT_EQ(
        Events(),
        starts + R"(<157>:1045:cpu diag failed.(@"/CPU%n" pass:"0" errmsg:"cputest aborted." TIMES)
<157>:1054:memory diag completed.(@"/MEM" pass:"0" TIMES)
<157>:1065:disk diag failed.(@"/IOU#0 /dev/sda" pass:"1" errmsg:"hddtest aborted." TIMES)
)");
}

TEST_F(PadiagEventTest, LevelThreeTellsOfTheProgressOfEachDiskAlone) {
    agent_.Write(kProgress, "[HDD_MAX_LBA]\n/dev/sda=0x100\n/dev/sdb=0x200\n");
    Plan(3, "OFF", "OFF", {"ON", "ON", "ON"});
    agent_.SetKey("HDD_SCHEDULE 1", "address", "0x80", kPadiagSchedule);
    agent_.Write("data/a", ProgressRecord(1) + Verdict(1, 2, "hddtest", "", "0x00000080"));
    agent_.Write("data/b", Verdict(2, 3, "hddtest", "", "0x00000200"));
    agent_.Script("hddtest", kHold + std::string("cat $KVX_data/${2#/dev/sd}"));
    agent_.Write("data/hold", "");
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return Count("[PadiagHddTestExec] End.") == 1; }));
    agent_.Write("system_log.busy", "");
    agent_.Remove("data/hold");
    EXPECT_TRUE(Eventually([&] {
        return agent_.Key("HDD_SCHEDULE 0", "address", kPadiagSchedule) == "0x0000000000000080";
    })) << "is not in place while the system log is busy";
    EXPECT_EQ(Count("[PadiagWaitHddTest] End."), 0U);
    agent_.Remove("system_log.busy");
    EXPECT_EQ(process.Wait().status, 0);
    const std::string starts = R"(<157>:1063:disk diag started.(@"/IOU#0 /dev/sda" start_time:"T")
<157>:1063:disk diag started.(@"/IOU#1 /dev/sdb" start_time:"T")
<157>:1063:disk diag started.(@"/IOU#2 /dev/sdc" start_time:"T")
)";
    EXPECT_EQ(
        Replaced(Events(), "\"0x0000000000000", "\"^"),
        starts +
            R"(<157>:1064:disk diag completed.(@"/IOU#0 /dev/sda" pass:"1" progress:"50%" start_lba:"^000" end_lba:"^128" TIMES)
<157>:1064:disk diag completed.(@"/IOU#1 /dev/sdb" pass:"0" progress:"100%" start_lba:"^128" end_lba:"^512" TIMES)
<157>:1065:disk diag failed.(@"/IOU#2 /dev/sdc" pass:"0" progress:"0%" start_lba:"^000" end_lba:"^000" errmsg:"hddtest aborted." TIMES)
)");
}

TEST_F(PadiagEventTest, SettingsAreReadAnewForEachEvent) {
    Plan(3, "OFF", "ON", {});
    agent_.Write("data/hold", "");
    Stub("memtest", Verdict(1, 2), kHold);
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return Count("[PadiagWaitMemTest] ProcessIdMem") > 0; }));
    agent_.Write("config/common.ini", "[sdb]\nenable = -1\nfacility = 9\n");
    agent_.Write("data/devconf_cur.xml", "");
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 0);
    const Strings lines = Split(Events());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], R"(<157>:1053:memory diag started.(@"/MEM" start_time:"T"))");
    EXPECT_EQ(lines[1].rfind(R"(<133>:1054:memory diag completed.(model:"" serial:"" )", 0), 0U);
    agent_.Write("config/common.ini", "[other]\nenable=1\n");
    Diagnose();
    EXPECT_EQ(Events(), "");
    ExpectSteps({"[kvx_sdb_msg] Start.", "[padiag_sdb_event] Warning : disabled by sdb.conf."});
}

}  // namespace
}  // namespace patrol_test
