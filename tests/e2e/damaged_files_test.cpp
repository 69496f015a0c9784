// Files that are missing, empty, directories, binary or full of absurd numbers; a disk that is
// full, a place that cannot be written, and a run that is killed while it rewrites the Schedule.

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "agent_dir.h"

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
    const std::vector<Disk> disks = NumberedDisks(count);
    agent.Write("data/devconf_new.xml", DeviceXml(disks));
    agent.Write(kHistory, "2020/01/01 00:00:00 [Change Setup] Target Diagnosis: cputest\n");
    std::string text =
        "[CPU_SCHEDULE]\ncpu_exe=OFF\ncpu_next_go=OFF\n"
        "[MEM_SCHEDULE]\nmem_exe=OFF\nmem_next_go=OFF\n";
    for (int n = 0; n < count; ++n) {
        const Disk& disk = disks[static_cast<size_t>(n)];
        text += "[HDD_SCHEDULE " + std::to_string(n) + "]\nserial_number=" + disk.serial +
                "\nhdd_exe=OFF\nhdd_next_go=OFF\naddress=0x0000000000000" +
                std::to_string(100 + n) + "\ndevice_name=" + disk.device + "\nhdd_ide=0\n";
    }
    agent.Write(kSchedule, text + "[TEST_SCHEDULE]\nhdd_all_num=" + std::to_string(count) +
                               "\nhdd_timeout=45\nhdd_max=128\nhdd_next_gusu=0\nhdd_next_kisu=1\n"
                               "hdd_start_kigu=1\ncpu_timeout=45\nmem_timeout=45\n");
}

void ExpectOrderlyEnd(const Result& result) {
    EXPECT_TRUE(result.status == 0 || result.status == 1) << result.status;
    EXPECT_EQ(result.out + result.err, "");
}

class DamagedFileTest : public AgentTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(DamagedFileTest, EndsTheRunInOrderAndLeavesTheInputAlone) {
    const std::string file = GetParam();
    const char* inputs[] = {"data/pat_env0.ini",        "data/padiag.ini",
                            "data/pat_msge.txt",        "data/devconf_new.xml",
                            "data/lba_outfile_bup.ini", "data/pat_nontarget.ini"};
    Fill(agent_, 3);
    const std::string good = agent_.Read(file), catalogue = agent_.Read("data/pat_msge.txt");
    std::string bytes(1, '\0');
    for (int i = 0; i < 5000; ++i) bytes += static_cast<char>(i * 7 + i / 256);
    const std::regex number("=[0-9]+|\n[0-9]+"), line_end("\n");
    const std::pair<const char*, std::string> damages[] = {
        {"missing", ""},
        {"directory", ""},
        {"empty", ""},
        {"one byte", "["},
        {"binary", bytes},
        {"zeros", std::string(10000, '\0')},
        {"long lines", std::string(100000, 'A') + "\n[" + std::string(9000, 'B') + "\n" + good},
        {"half", good.substr(0, good.size() / 2)},
        {"carriage returns", std::regex_replace(good, line_end, "\r\n")},
        {"huge numbers", std::regex_replace(good, number, "$&99999999999999999999")},
        {"negative numbers", std::regex_replace(good, number, "=-2147483648")},
    };
    for (const auto& [name, text] : damages) {
        for (const char* mode : {"reload", "confchg", "KVXstart"}) {
            SCOPED_TRACE(file + " " + name + ", " + mode);
            for (const std::string& old : {file, std::string(kTrace)}) agent_.Remove(old);
            agent_.Write("data/pat_msge.txt", catalogue);
            Fill(agent_, 3);
            agent_.Remove(file);
            const bool directory = std::string(name) == "directory";
            if (directory) {
                agent_.MakeDir(file);
                agent_.Write(file + "/inside", "kept");
            } else if (std::string(name) != "missing") {
                agent_.Write(file, text);
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
            EXPECT_EQ(agent_.Read(file + "/inside"), directory ? "kept" : "");
            EXPECT_FALSE(agent_.Exists(file + ".new"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedFileTest,
                         ::testing::Values("data/pat_env0.ini", "data/padiag.ini",
                                           "data/pat_new_para.ini", "data/pat_nontarget.ini",
                                           "data/devconf_new.xml", "data/pat_new_sche.txt",
                                           "data/pat_sche2.txt", "data/lba_outfile_bup.ini",
                                           "data/pat_msge.txt", "log/patstat0.txt"),
                         [](const ::testing::TestParamInfo<const char*>& tested) {
                             return std::regex_replace(std::string(tested.param),
                                                       std::regex("[^a-z0-9]"), "_");
                         });

class FullDiskTest : public AgentTest {
 protected:
    void SetUp() override {
        Fill(agent_, 6);
        old_ = agent_.Read(kSchedule);
    }
    // A run in which no file may grow beyond `size` bytes.
    void RunLimited(const char* mode, size_t size) {
        Launch launch;
        launch.in_child = [size] {
            const rlimit limit = {size, size};
            setrlimit(RLIMIT_FSIZE, &limit);
        };
        ExpectOrderlyEnd(agent_.Run({mode}, launch));
    }
    std::string old_;
};

TEST_F(FullDiskTest, AnUpdateKeepsTheSchedule) {
    for (const size_t room : {0, 1, 400, 900}) {
        RunLimited("reload", room);
        EXPECT_EQ(agent_.Read(kSchedule), old_) << room;
        EXPECT_FALSE(agent_.Exists(kNew)) << room;
    }
    EXPECT_EQ(agent_.Run({"reload"}).status, 0);
    EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_exe"), "ON");
}

TEST_F(FullDiskTest, ARebuildLeavesTheOldContentUnderOneOfItsNames) {
    for (const char* mode : {"confchg", "KVXstart"}) {
        for (const size_t room : {0, 1, 400, 900}) {
            agent_.Remove(kOld);
            agent_.Write(kSchedule, old_);
            RunLimited(mode, room);
            EXPECT_TRUE(agent_.Read(kSchedule) == old_ || agent_.Read(kOld) == old_)
                << mode << " with room for " << room;
        }
    }
}

TEST_F(FullDiskTest, AnUpdateThatCannotMakeItsCopyKeepsTheSchedule) {
    agent_.MakeDir(kNew);
    EXPECT_EQ(agent_.Run({"reload"}).status, 0);
    EXPECT_EQ(agent_.Read(kSchedule), old_);
}

TEST_F(FullDiskTest, ADirectoryWithoutWritePermissionCostsNothing) {
    chmod(agent_.Path("data").c_str(), 0500);
    Launch launch;
    launch.in_child = [] {
        // Root goes by the permissions, too, once it has lost the right to pass over them.
        if (geteuid() == 0 && prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) != 0) _exit(125);
    };
    for (const char* mode : {"reload", "confchg", "KVXstart"}) {
        const Result result = agent_.Run({mode}, launch);
        if (result.status == 125) GTEST_SKIP() << "root writes everywhere here";
        ExpectOrderlyEnd(result);
        if (std::string(mode) == "reload") {
            EXPECT_EQ(agent_.Read(kSchedule), old_);
        }
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 5", "address"), "0x0000000000000105") << mode;
    }
}

TEST(UnreadableFileTest, DisksThatCannotBeReadAreNotForgotten) {
    AgentDir agent;
    Fill(agent, 3);
    const std::string schedule = agent.Read(kSchedule);
    agent.Remove("data/devconf_new.xml");
    // A regular file that opens and fails to be read.
    ASSERT_EQ(symlink("/proc/self/mem", agent.Path("data/devconf_new.xml").c_str()), 0);
    EXPECT_EQ(agent.Run({"confchg"}).status, 1);
    EXPECT_EQ(agent.Read(kSchedule), schedule);
}

TEST(UnreadableFileTest, DevicesAndPipesInPlaceOfFilesHoldNobodyUp) {
    for (const char* file : {"data/pat_env0.ini", "data/padiag.ini", "data/devconf_new.xml",
                             "data/pat_msge.txt", "data/pat_new_sche.txt"}) {
        AgentDir agent;
        Fill(agent, 1);
        agent.Remove(file);
        ASSERT_EQ(symlink("/dev/zero", agent.Path(file).c_str()), 0);
        ExpectOrderlyEnd(agent.Run({"reload"}));
    }
    for (const char* file : {kHistory, kTrace, kNew, kOld}) {
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

TEST(KilledRunTest, AnUpdatedScheduleIsWholeAtEveryInstant) {
    AgentDir agent;
    Fill(agent, 40);
    const size_t lines = agent.Lines(kSchedule).size();
    for (int turn = 0; turn < 15; ++turn) {
        const auto process = agent.Start({"reload"});
        const auto stop = std::chrono::steady_clock::now() + std::chrono::milliseconds(3 * turn);
        do {
            const std::vector<std::string> now = agent.Lines(kSchedule);
            ASSERT_EQ(now.size(), lines);
            ASSERT_EQ(Last(now), "mem_timeout=45");
        } while (std::chrono::steady_clock::now() < stop);
        process->Signal(SIGKILL);
        process->Wait();
        ASSERT_EQ(agent.Lines(kSchedule).size(), lines);
        agent.Write("data/pat_env0.ini", turn % 2 == 0 ? "#\n" : PatrolSettings("ON", "ON", "ON"));
    }
    // What a killed run left behind does not stop the next one.
    agent.Write("data/pat_env0.ini", PatrolSettings("ON", "ON", "ON"));
    EXPECT_EQ(agent.Run({"reload"}).status, 0);
    EXPECT_EQ(agent.Key("HDD_SCHEDULE 38", "hdd_next_go"), "ON");
    EXPECT_EQ(agent.Key("HDD_SCHEDULE 39", "address"), "0x0000000000000139");
    EXPECT_FALSE(agent.Exists(kNew));
}

TEST(KilledRunTest, ARebuildKeepsTheProgressOfTheDisksUnderOneOfItsNames) {
    AgentDir agent;
    const std::string kept = "address=0x0000000000000159\n";
    for (int turn = 0; turn < 12; ++turn) {
        const char* steps[] = {"[ReadEnvIni] End.", "[HddScheduleMk] end.( 0 )",
                               "[CreateSchedule] end.( 0 )", "[HddCompareData] HDD(10) match!!"};
        for (const char* file : {kOld, kTrace}) agent.Remove(file);
        Fill(agent, 60);
        const auto process = agent.Start({"confchg"});
        EXPECT_TRUE(Eventually([&] { return agent.Traced(steps[turn % 4]); }));
        process->Signal(SIGKILL);
        process->Wait();
        const std::string left = agent.Read(kSchedule) + agent.Read(kOld);
        EXPECT_NE(left.find(kept), std::string::npos) << steps[turn % 4];
    }
}

}  // namespace
}  // namespace patrol_test
