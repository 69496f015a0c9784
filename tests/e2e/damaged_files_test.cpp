// Files that are missing, empty, directories, binary or full of absurd numbers.

#include <sys/stat.h>
#include <unistd.h>

#include "records.h"

namespace patrol_test {
namespace {

constexpr char kNew[] = "data/pat_new_sche.txt.new";
constexpr char kOld[] = "data/pat_new_sche.txt.old";

// Puts every file of the schedule creation in place, in order, with everything switched on; the
// Schedule file has everything switched off.
void Fill(const AgentDir& agent, int count) {
    agent.Write("data/pat_env0.ini", PatrolSettings("ON", "ON", "ON"));
    agent.Write("data/padiag.ini", "[cpu]\non\n[mem]\non\n[hdd]\non\n[level]\n3\n[time]\n60\n");
    agent.Write("data/pat_new_para.ini",
                "[CPUDIAG_PARAM]\n[MEMDIAG_PARAM]\n[HDDDIAG_PARAM]\nmax=2\n");
    agent.Write("data/pat_nontarget.ini",
                "[NON_TARGETLIST]\nnumber=1\n[LIST0]\nvendor=V\nmodel=M\n");
    agent.Write("data/lba_outfile_bup.ini", "[HDD_NEXT_LBA]\n/dev/sda=0x0000000000000800\n");
    agent.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(count)));
    agent.Write(kHistory, "2020/01/01 00:00:00 [Change Setup] Target Diagnosis: cputest\n");
    Strings kept;
    for (int n = 0; n < count; ++n) {
        kept.push_back("hdd_exe=OFF\nhdd_next_go=OFF\naddress=" + Hex(0x100U + n, 16));
    }
    agent.Write(kSchedule,
                ScheduleText("cpu_exe=OFF\ncpu_next_go=OFF", "mem_exe=OFF\nmem_next_go=OFF", kept));
}

void ExpectOrderlyEnd(const Result& result) {
    EXPECT_TRUE(result.status == 0 || result.status == 1) << result.status;
    EXPECT_EQ(result.out + result.err, "");
}

class DamagedFileTest : public AgentTest, public ::testing::WithParamInterface<const char*> {};

// Damages that a fuzz target cannot do; those of the bytes are theirs.
TEST_P(DamagedFileTest, EndsTheRunInOrderAndLeavesTheInputAlone) {
    const std::string file = GetParam();
    const char* inputs[] = {"data/pat_env0.ini",        "data/padiag.ini",
                            "data/pat_msge.txt",        "data/devconf_new.xml",
                            "data/lba_outfile_bup.ini", "data/pat_nontarget.ini"};
    const std::string catalogue = agent_.Read("data/pat_msge.txt");
    for (const std::string damage : {"missing", "directory", "long lines"}) {
        for (const char* mode : {"reload", "confchg", "KVXstart", "start"}) {
            SCOPED_TRACE(file + " " + damage + ", " + mode);
            for (const std::string& old : {file, std::string(kTrace)}) agent_.Remove(old);
            agent_.Write("data/pat_msge.txt", catalogue);
            Fill(agent_, 3);
            const std::string good = agent_.Read(file);
            agent_.Remove(file);
            if (damage == "directory") {
                agent_.MakeDir(file);
                agent_.Write(file + "/inside", "kept");
            } else if (damage == "long lines") {
                agent_.Write(
                    file, std::string(100000, 'A') + "\n[" + std::string(9000, 'B') + "\n" + good);
            }
            std::map<std::string, std::string> before;
            for (const char* input : inputs) before[input] = agent_.Read(input);
            ExpectOrderlyEnd(agent_.Run({mode}));
            EXPECT_EQ(First(agent_.Trace()), std::string("[main] patrol.exe ") + mode + " .");
            for (const char* input : inputs) EXPECT_EQ(agent_.Read(input), before[input]) << input;
            // Only a file that names the disks can cost a disk its progress.
            if (file != kSchedule && file != "data/devconf_new.xml") {
                EXPECT_EQ(agent_.Key("HDD_SCHEDULE 2", "address"), "0x0000000000000102");
            }
            EXPECT_EQ(agent_.Read(file + "/inside"), damage == "directory" ? "kept" : "");
            EXPECT_FALSE(agent_.LeftUnfinished());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedFileTest,
                         ::testing::Values("data/pat_env0.ini", "data/padiag.ini",
                                           "data/pat_new_para.ini", "data/pat_nontarget.ini",
                                           "data/devconf_new.xml", "data/pat_new_sche.txt",
                                           "data/pat_sche2.txt", "data/lba_outfile_bup.ini",
                                           "data/pat_msge.txt", "log/patstat0.txt"),
                         [](const auto& tested) { return Masked(tested.param, "[^a-z0-9]", "_"); });

TEST(UnreadableFileTest, DevicesAndPipesInPlaceOfFilesHoldNobodyUp) {
    for (const char* file : {"data/pat_env0.ini", "data/padiag.ini", "data/devconf_new.xml",
                             "data/pat_msge.txt", "data/pat_new_sche.txt"}) {
        AgentDir agent;
        Fill(agent, 1);
        agent.Remove(file);
        ASSERT_EQ(symlink("/dev/zero", agent.Path(file).c_str()), 0);
        ExpectOrderlyEnd(agent.Run({"reload"}));
    }
    for (const char* file : {"data/pat_env0.ini", kHistory, kTrace, kNew, kOld}) {
        AgentDir agent;
        Fill(agent, 1);
        agent.Remove(file);
        ASSERT_EQ(mkfifo(agent.Path(file).c_str(), 0600), 0);
        ExpectOrderlyEnd(agent.Run({"reload"}));
    }
}

TEST(UnreadableFileTest, SectionsWithoutKeysAreFilledInReasonableTime) {
    AgentDir agent;
    Fill(agent, 0);
    std::string text = "[TEST_SCHEDULE]\nhdd_all_num=60000\n";
    for (int n = 0; n < 60000; ++n) text += "[HDD_SCHEDULE " + std::to_string(n) + "]\n";
    agent.Write(kSchedule, text);
    EXPECT_EQ(agent.Run({"reload"}).status, 0);
    EXPECT_EQ(agent.Key("HDD_SCHEDULE 59999", "hdd_exe"), "ON");
}

}  // namespace
}  // namespace patrol_test
