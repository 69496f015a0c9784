// Faulty-part reports, as the parts command gets them.

#include <sys/stat.h>

#include <filesystem>

#include "records.h"

namespace patrol_test {
namespace {

using Strings = std::vector<std::string>;

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
    void Fail(const std::string& program, const std::string& text, const Launch& launch = {},
              const std::string& device = "/dev/sda") {
        Forget();
        PlanOne(program);
        agent_.SetKey("HDD_SCHEDULE 0", "device_name", device);
        Stub(program, StatusRecord(4, 6, text));
        Pass(launch);
    }
    // The line of the report that begins so.
    std::string Line(const std::string& start) const {
        for (const std::string& line : agent_.Lines("data/report")) {
            if (line.rfind(start, 0) == 0) return line.substr(start.size());
        }
        return "(none)";
    }
    bool Failed() const {
        EXPECT_EQ(Count("[for parts], patrol_parts_proc end"),
                  1 - Count("[for parts], patrol_parts_proc ERROR end"));
        return Count("[for parts], patrol_parts_proc ERROR end") == 1 &&
               Count("[wait_for_testdata] parts_proc err !!") == 1;
    }
};

TEST_F(PartReportTest, ReportSaysWhatFailed) {
    const std::string block = ResultBlock("hddtest", "/dev/sdx", "E3829 medium error");
    for (const Strings& zone : Rows("EEE-5:30|\\+05:30\nSSS0:30|-00:30")) {
        Fail("hddtest", "I0399:<</dev/sdx Error Ended>>\n---\n" + block + "\n",
             {{{"TZ", zone[0]}}});
        const std::string date = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}";
        EXPECT_EQ(Masked(agent_.Read("data/report"), date + "TIME=" + date + zone[1], "DATES"),
                  "TIME=DATES\nLEVEL=1st\nTYPE=error\nMODE=SB\nREFLOG=NONE\nFRU_NUM=1\n"
                  "FRU1=HDD;/SCSI/dev/sdx\nFLAG=patrol\nSUMMARY=E3829 medium error\n"
                  "OPERATION=E3890\nDETAIL=" +
                      block + "\n\n\n");
    }
    EXPECT_EQ(agent_.Read("data/backup"), agent_.Read("data/report"));
    EXPECT_TRUE(Stepped("[for parts], The pointed-out device is HDD.(HDD : /SCSI/dev/sdx )"));
    EXPECT_FALSE(Failed());
    const std::string name(60, 'n'), error(9000, 'e'), detail(60000, 'd');
    Fail("hddtest",
         "\nPROGRAM : hddtest\nDEVICE  : " + name + "\nERROR   : " + error + "\n[[[[" + detail);
    EXPECT_EQ(Line("FRU1="), "HDD;/SCSI" + name.substr(0, 34));
    EXPECT_EQ(Line("SUMMARY="), error.substr(0, 8191));
    EXPECT_EQ(Line("DETAIL="), "[[[[" + detail.substr(0, 49147));
}

TEST_F(PartReportTest, FilesAreNamedAfterTheDeviceAndRemoved) {
    for (const Strings& row : Rows("cputest||parts_pt_cpu|.bak\nmemtest||parts_pt_mem|.bak\n"
                                   "hddtest|/dev/sdb|parts_pt_hdd.sdb|_bak\n"
                                   "hddtest|/dev/hda|parts_io|.bak")) {
        SCOPED_TRACE(row[0] + row[1]);
        Fail(row[0], ResultBlock(row[0], "x", "y"), {}, row[1]);
        EXPECT_EQ(agent_.Lines("data/files"), (Strings{row[2], row[2] + row[3]}));
        EXPECT_EQ(agent_.Read("data/calls"), "2 set " + agent_.Path("temp/" + row[2]) + "\n");
        EXPECT_FALSE(agent_.Exists("temp/" + row[2]) || agent_.Exists("temp/" + row[2] + row[3]));
    }
    agent_.MakeDir("temp/parts_pt_hdd.sd");
    Fail("hddtest", "", {}, "/dev/sd/../../escaped");
    EXPECT_FALSE(agent_.Exists("escaped") || agent_.Exists("escaped_bak"));
    EXPECT_EQ(agent_.Read("data/calls").find("../"), std::string::npos);
}

TEST_F(PartReportTest, ProcessorsAndMemoryAreNamedByThePartition) {
    for (const Strings& row :
         Rows(R"(<dev type="Partition" phypath="/p/9" path="3" status="ok">|Partition;3
<dev type="disk" path="7">|Partition;0
|BB;BB)")) {
        agent_.Write("data/devconf_cur.xml", row[0]);
        Fail("cputest", ResultBlock("cputest", "CPU", "e"));
        EXPECT_EQ(Line("FRU1="), row[1]);
    }
}

TEST_F(PartReportTest, AnswersOfThePartsCommandDecideHowOftenItRuns) {
    for (const Strings& row :
         Rows("0|1|taken\n222220|6|taken\n2222220|6|\n440|2|\n420|2|\n240|3|taken\n"
              "10|1|")) {
        SCOPED_TRACE(row[0]);
        agent_.Write("data/answers", Masked(row[0], ".", "$&\n"));
        Fail("cputest", "text");
        EXPECT_EQ(std::to_string(agent_.Lines("data/calls").size()), row[1]);
        EXPECT_EQ(Failed(), row[2].empty());
        EXPECT_EQ(agent_.Exists("temp/parts_pt_cpu"), row[2].empty());
        EXPECT_EQ(agent_.Exists("temp/parts_pt_cpu.bak"), row[2].empty());
    }
}

TEST_F(PartReportTest, AFailedReportLeavesTheNextOneAFreshStart) {
    agent_.Write("data/answers", "2\n2\n1\n2\n2\n2\n2\n2\n0\n");
    Plan("ON", "ON", {});
    for (const char* name : {"memtest", "cputest"}) Stub(name, StatusRecord(4));
    Pass();
    const std::string set = "2 set " + agent_.Path("temp/parts_pt_");
    EXPECT_EQ(agent_.Read("data/calls"), Repeat(set + "mem\n", 3) + Repeat(set + "cpu\n", 6));
    EXPECT_TRUE(agent_.Exists("temp/parts_pt_mem"));
    EXPECT_FALSE(agent_.Exists("temp/parts_pt_cpu"));
}

TEST_F(PartReportTest, FilesAreForTheirOwnerToWriteAndChildrenGetTheMaskOfTheStart) {
    const std::string note = "umask >> $KVX_data/masks\n";
    agent_.Script("get", note + "echo 0");
    agent_.Script("parts", note + "exit 1");  // so that the report stays
    Plan("ON", "OFF", {});
    Stub("cputest", LogRecord(2, "I0001", "staged") + StatusRecord(4), "", note);
    Launch launch;
    launch.in_child = [] { umask(0); };
    Pass(launch);
    EXPECT_EQ(agent_.Read("data/masks"), Repeat("0000\n", 3));
    agent_.Write("data/devconf_new.xml", DeviceXml({}));
    EXPECT_EQ(agent_.Run({"reload"}, launch).status, 0);
    Strings files = {agent_.Path("data/pat_sche2.txt")};
    for (const char* directory : {"log", "temp"}) {
        for (const auto& entry : std::filesystem::directory_iterator(agent_.Path(directory))) {
            files.push_back(entry.path());
        }
    }
    EXPECT_GT(files.size(), 5U);
    for (const std::string& file : files) {
        struct stat status = {};
        EXPECT_EQ(stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & (S_IWGRP | S_IWOTH), 0U) << file;
    }
}

TEST_F(PartReportTest, WithoutAPlaceOrACommandThePassStillEnds) {
    Fail("cputest", "text", {{{"KVX_temp", agent_.Path("nowhere")}}});
    EXPECT_TRUE(Failed());
    EXPECT_EQ(Count("[for parts], write_parts_data ERROR end"), 1U);
    // An empty directory is none, and not that of the root.
    Fail("cputest", "text", {{{"KVX_temp", ""}}});
    EXPECT_TRUE(Failed());
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
