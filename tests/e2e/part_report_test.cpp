// Faulty-part reports, as the parts command gets them.

#include <regex>

#include "records.h"

namespace patrol_test {
namespace {

class PartReportTest : public PassTest {
 protected:
    // The parts command keeps what it was given and answers with the next line of data/answers.
    void SetUp() override {
        agent_.Script("parts",
                      "echo \"$# $1 $2\" >> $KVX_data/calls\ncp \"$2\" $KVX_data/report\n"
                      "ls $KVX_temp > $KVX_data/files\ncat \"$2\".bak \"$2\"_bak "
                      "> $KVX_data/backup 2>/dev/null\n"
                      "exit $(sed -n $(wc -l < $KVX_data/calls)p $KVX_data/answers)");
        agent_.Write("data/answers", Repeat("0\n", 9));
    }
    // One pass in which `program` fails; `text` is all that follows the address.
    void Fail(const std::string& program, const std::string& text, int flag = 4,
              const Launch& launch = {}, const std::string& device = "/dev/sda") {
        Forget();
        const auto due = [&](const char* name) { return program == name ? "ON" : "OFF"; };
        Plan(due("cputest"), due("memtest"), {due("hddtest")});
        agent_.SetKey("HDD_SCHEDULE 0", "device_name", device);
        Stub(program, StatusRecord(4, flag, text));
        Pass(launch);
    }
    std::string Unit() const {
        for (const std::string& line : agent_.Lines("data/report")) {
            if (line.rfind("FRU1=", 0) == 0) return line.substr(5);
        }
        return "(none)";
    }
    bool Failed() const {
        EXPECT_EQ(Count("[for parts], patrol_parts_proc end"),
                  1 - Count("[for parts], patrol_parts_proc ERROR end"));
        return Count("[for parts], patrol_parts_proc ERROR end") == 1 &&
               agent_.Read(kTrace).find("[wait_for_testdata] parts_proc err !!") !=
                   std::string::npos;
    }
};

TEST_F(PartReportTest, ReportSaysWhatFailed) {
    const std::string block = ResultBlock("hddtest", "/dev/sdx", "E3829 medium error");
    for (const auto& [zone, offset] :
         {std::pair<std::string, std::string>{"EEE-5:30", "\\+05:30"}, {"WWW3:30", "-03:30"}}) {
        Launch launch;
        launch.env["TZ"] = zone;
        Fail("hddtest", "I0399:<</dev/sdx Error Ended>>\n---\n" + block + "\n", 6, launch);
        const std::string report = agent_.Read("data/report");
        const size_t first = report.find('\n');
        const std::string stamp = "TIME=[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}";
        EXPECT_TRUE(std::regex_match(report.substr(0, first), std::regex(stamp + stamp + offset)))
            << report;
        EXPECT_EQ(report.substr(first + 1),
                  "LEVEL=1st\nTYPE=error\nMODE=SB\nREFLOG=NONE\nFRU_NUM=1\nFRU1=HDD;/SCSI/dev/sdx\n"
                  "FLAG=patrol\nSUMMARY=E3829 medium error\nOPERATION=E3890\nDETAIL=" +
                      block + "\n\n\n");
    }
    EXPECT_EQ(agent_.Read("data/backup"), agent_.Read("data/report"));
    EXPECT_EQ(agent_.Read("data/calls"), "2 set " + agent_.Path("temp/parts_pt_hdd.sda") + "\n");
    EXPECT_TRUE(Stepped("[for parts], The pointed-out device is HDD.(HDD : /SCSI/dev/sdx )"));
    ExpectHistory({"ERROR   hddtest /dev/sda [#s] E3829 medium error"});
    EXPECT_FALSE(Failed());
}

TEST_F(PartReportTest, FilesAreNamedAfterTheDeviceAndRemoved) {
    const struct {
        std::string program, device, report, backup;
    } cases[] = {
        {"cputest", "", "parts_pt_cpu", "parts_pt_cpu.bak"},
        {"memtest", "", "parts_pt_mem", "parts_pt_mem.bak"},
        {"hddtest", "/dev/sdb", "parts_pt_hdd.sdb", "parts_pt_hdd.sdb_bak"},
        {"hddtest", "/dev/hda", "parts_io", "parts_io.bak"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.program + c.device);
        Fail(c.program, ResultBlock(c.program, "x", "y"), 4, {}, c.device);
        EXPECT_EQ(agent_.Read("data/files"), c.report + "\n" + c.backup + "\n");
        EXPECT_EQ(agent_.Read("data/calls"), "2 set " + agent_.Path("temp/" + c.report) + "\n");
        EXPECT_FALSE(agent_.Exists("temp/" + c.report) || agent_.Exists("temp/" + c.backup));
    }
    agent_.MakeDir("temp/parts_pt_hdd.sd");
    Fail("hddtest", "", 4, {}, "/dev/sd/../../escaped");
    EXPECT_FALSE(agent_.Exists("escaped") || agent_.Exists("escaped_bak"));
    EXPECT_EQ(agent_.Read("data/calls").find("../"), std::string::npos);
}

TEST_F(PartReportTest, ProcessorsAndMemoryAreNamedByThePartition) {
    const std::string line = "<dev type=\"Partition\" phypath=\"/p/9\" path=\"3\" status=\"ok\">\n";
    const std::pair<std::string, std::string> cases[] = {
        {"<devconf>\n" + line + "</devconf>\n", "Partition;3"},
        {"<dev type=\"disk\" path=\"7\">\n", "Partition;0"},
        {"", "BB;BB"},
    };
    for (const auto& [text, unit] : cases) {
        SCOPED_TRACE(text);
        agent_.Write("data/devconf_cur.xml", text);
        Fail("cputest", ResultBlock("cputest", "CPU", "e"));
        EXPECT_EQ(Unit(), unit);
    }
}

TEST_F(PartReportTest, TextsAreCutAtTheirFields) {
    const std::string name(60, 'n'), error(9000, 'e'), detail(60000, 'd');
    Fail("hddtest",
         "\nPROGRAM : hddtest\nDEVICE  : " + name + "\nERROR   : " + error + "\n[[[[" + detail);
    const std::string report = agent_.Read("data/report");
    EXPECT_EQ(Unit(), "HDD;/SCSI" + name.substr(0, 34));
    EXPECT_NE(report.find("\nSUMMARY=" + error.substr(0, 8191) + "\n"), std::string::npos);
    EXPECT_EQ(report.substr(report.find("\nDETAIL=") + 8), "[[[[" + detail.substr(0, 49147) + "\n");
}

TEST_F(PartReportTest, AnswersOfThePartsCommandDecideHowOftenItRuns) {
    const struct {
        std::string answers;
        size_t runs;
        bool good;
    } cases[] = {
        {"0\n", 1, true},
        {"2\n2\n2\n2\n2\n0\n", 6, true},
        {"2\n2\n2\n2\n2\n2\n0\n", 6, false},
        {"4\n4\n0\n", 2, false},
        {"4\n2\n0\n", 2, false},
        {"2\n4\n0\n", 3, true},
        {"1\n0\n", 1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answers);
        agent_.Write("data/answers", c.answers);
        Fail("cputest", "text");
        EXPECT_EQ(agent_.Lines("data/calls").size(), c.runs);
        EXPECT_EQ(Failed(), !c.good);
        EXPECT_EQ(agent_.Exists("temp/parts_pt_cpu"), !c.good);
        EXPECT_EQ(agent_.Exists("temp/parts_pt_cpu.bak"), !c.good);
    }
}

TEST_F(PartReportTest, AFailedReportLeavesTheNextOneAFreshStart) {
    agent_.Write("data/answers", "2\n2\n1\n2\n2\n2\n2\n2\n0\n");
    Forget();
    Plan("ON", "ON", {});
    Stub("memtest", StatusRecord(4));
    Stub("cputest", StatusRecord(4));
    Pass();
    const std::string mem = "2 set " + agent_.Path("temp/parts_pt_mem");
    const std::string cpu = "2 set " + agent_.Path("temp/parts_pt_cpu");
    EXPECT_EQ(agent_.Lines("data/calls"), (Strings{mem, mem, mem, cpu, cpu, cpu, cpu, cpu, cpu}));
    EXPECT_TRUE(agent_.Exists("temp/parts_pt_mem"));
    EXPECT_FALSE(agent_.Exists("temp/parts_pt_cpu"));
}

TEST_F(PartReportTest, WithoutAPlaceOrACommandThePassStillEnds) {
    Launch launch;
    launch.env["KVX_temp"] = agent_.Path("nowhere");
    Fail("cputest", "text", 4, launch);
    EXPECT_TRUE(Failed());
    EXPECT_EQ(Count("[for parts], write_parts_data ERROR end"), 1U);
    EXPECT_FALSE(agent_.Exists("data/calls"));
    agent_.Remove("bin/parts");
    Fail("cputest", "text");
    EXPECT_TRUE(Failed());
    // The child that could not become the command does not go on with the pass.
    const std::string trace = agent_.Read(kTrace), end = "Patrol Diagnosis Ended.";
    EXPECT_EQ(trace.find(end), trace.rfind(end));
    EXPECT_EQ(agent_.History().size(), 1U);
}

}  // namespace
}  // namespace patrol_test
