// Runs that meet what others have done to the Schedule file: other runs at the same time, or
// damage.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "records.h"

namespace patrol_test {
namespace {

constexpr char kDevices[] = "data/devconf_new.xml";

class OverlapTest : public AgentTest {
 protected:
    OverlapTest() {
        agent_.Write("data/pat_env0.ini", PatrolSettings("ON", "OFF", "ON"));
        agent_.Write("data/padiag.ini", "[cpu]\non\n[hdd]\noff\n[level]\n1\n[time]\n60\n");
        agent_.Write(kDevices, DeviceXml(NumberedDisks(4)));
        agent_.Script("parts", "cp \"$2\" " + agent_.Path("temp/kept"));
        // Tests that wait for a word; disks then report a fault and where to go on.
        const std::string block = ResultBlock("hddtest", "/dev/sdc", "E3829 bad block") + "\n";
        const std::string wait = "echo $$ >>" + agent_.Path("started") + "; while [ ! -e " +
                                 agent_.Path("go") + " ]; do sleep 0.02; done; printf '%s' '";
        agent_.Script("cputest", wait + StatusRecord(1) + "'");
        agent_.Script("hddtest", wait + StatusRecord(4, 6, block, "0x00000800") + "'");
    }

    int Status(const std::string& mode) { return agent_.Run({mode}).status; }

    // Whether the agent was told of trouble with `file`.
    bool Told(EventPipe* pipe, const char* file) const {
        const std::string lines = Join(pipe->Lines());
        const bool told = lines.rfind("E3899:<<", 0) == 0 || lines.find("\nE3899:<<") != lines.npos;
        return told && lines.find("file name = " + agent_.Path(file) + ">>\n") != lines.npos;
    }

    void AwaitStarted(size_t count) const {
        for (int i = 0; i < 3000 && agent_.Lines("started").size() < count; ++i) usleep(20000);
        ASSERT_GE(agent_.Lines("started").size(), count);
    }
};

// A file without a section is as good as none. What is no file is not taken for one.
TEST_F(OverlapTest, AScheduleThatSaysNothingIsMadeAnew) {
    EventPipe pipe(agent_);
    ASSERT_EQ(Status("reload"), 0);
    const std::string patrol = agent_.Read(kSchedule), padiag = agent_.Read(kPadiagSchedule);
    const std::string nothing[] = {"", std::string(500, '\0'), "cpu_exe=ON\nno section\n"};
    for (const std::string& text : nothing) {
        for (const std::string mode : {"start", "reload", "confchg", "pastart"}) {
            SCOPED_TRACE(mode + ": " + text);
            const bool on_request = mode == "pastart";
            agent_.Write(on_request ? kPadiagSchedule : kSchedule, text);
            EXPECT_EQ(Status(mode), 0);
            EXPECT_EQ(agent_.Read(on_request ? kPadiagSchedule : kSchedule),
                      on_request ? padiag : patrol);
        }
        agent_.Write(kSchedule, text);
        EXPECT_EQ(Status("KVXstart"), 0);
        EXPECT_EQ(agent_.Read(kSchedule), text);
    }
    EXPECT_EQ(Join(pipe.Lines()), "");
    for (const std::string what : {"directory", "pipe", "link to itself"}) {
        for (const std::string mode : {"start", "reload", "confchg", "KVXstart", "pastart"}) {
            const char* file = mode == "pastart" ? kPadiagSchedule : kSchedule;
            SCOPED_TRACE(mode + " " + what);
            const std::string path = agent_.Path(file);
            agent_.Remove(file);
            if (what[0] == 'd') agent_.MakeDir(file);
            if (what[0] == 'p') mkfifo(path.c_str(), 0600);
            if (what[0] == 'l') symlink(path.c_str(), path.c_str());
            EXPECT_EQ(Status(mode), 1);
            EXPECT_TRUE(Told(&pipe, file));
            agent_.Remove(file);
            agent_.Write(file, mode == "pastart" ? padiag : patrol);
        }
    }
    // One that is too large to be read is told of, and made anew when the configuration changes.
    const std::string large = patrol + std::string((16U << 20) + 1, 'x');
    agent_.Write(kSchedule, large);
    EXPECT_EQ(Status("start"), 1);
    EXPECT_EQ(Status("reload"), 0);
    EXPECT_EQ(pipe.Lines().size(), 2U);
    EXPECT_EQ(Status("confchg"), 0);
    EXPECT_EQ(agent_.Read(kSchedule), patrol);
}

// The disks 0 and 2, /dev/sda and /dev/sdc, are under test when /dev/sda is taken out of the
// machine: /dev/sdc is disk 1 from then on.
TEST_F(OverlapTest, AConfigurationChangeUnderTestBlamesAndMovesTheRightDisk) {
    ASSERT_EQ(Status("reload"), 0);
    const auto pass = agent_.Start({"start"});
    AwaitStarted(3);
    std::vector<Disk> disks = NumberedDisks(4);
    disks.erase(disks.begin());
    agent_.Write(kDevices, DeviceXml(disks));
    EXPECT_EQ(Status("confchg"), 0);
    agent_.Write("go", "");
    EXPECT_EQ(pass->Wait().status, 0);
    const std::string history = Join(agent_.History());
    for (const char* name : {"/dev/sda", "/dev/sdc"}) {
        EXPECT_NE(history.find(std::string("ERROR   hddtest ") + name), std::string::npos)
            << history;
    }
    EXPECT_EQ(history.find("hddtest /dev/sdb"), std::string::npos) << history;
    EXPECT_TRUE(agent_.Traced("[wait_for_testdata] Patrol Diagnosis Device : /dev/sdc."));
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address"), "0x0000000000000000");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "address"), "0x0000000000000800");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 2", "address"), "0x0000000000000000");
    EXPECT_TRUE(agent_.Traced(
        "[SaveDiskAddress] No section of /dev/sda any more. address=0x0000000000000800 is "
        "dropped."));
}

// A second pass beside a pass, or a second on-request diagnosis beside one, does nothing; one of
// each get on well.
TEST_F(OverlapTest, ASecondRunOfAKindDoesNothing) {
    ASSERT_EQ(Status("reload"), 0);
    EventPipe pipe(agent_);
    size_t started = 0;
    for (const std::string mode : {"start", "pastart"}) {
        SCOPED_TRACE(mode);
        const std::string trace = mode == "start" ? kTrace : "log/padiag_log";
        const char* caller = mode == "start" ? "cntl_main" : "PadiagCntlMain";
        const auto first = agent_.Start({mode});
        const auto other = agent_.Start({mode == "start" ? "pastart" : "start"});
        AwaitStarted(started += 4);
        EXPECT_EQ(Status(mode), 1);
        EXPECT_EQ(agent_.Lines("started").size(), started);
        EXPECT_EQ(Join(pipe.Lines()),
                  "E3899:<<another " + mode + " is running on " + agent_.Path("data") + ">>\n");
        EXPECT_TRUE(agent_.Traced("[" + std::string(caller) + "] Warning:Another " + mode +
                                      " is running. Nothing is done.",
                                  trace));
        EXPECT_EQ(Status("reload"), 0);
        EXPECT_EQ(Status("confchg"), 0);
        agent_.Write("go", "");
        EXPECT_EQ(first->Wait().status + other->Wait().status, 0);
        agent_.Remove("go");
        pipe.Lines();
    }
}

// Who holds the lock for too long makes changes fail, all together after ten seconds; a child that
// lives on holds nothing.
TEST_F(OverlapTest, AChangeWaitsForTheLockButNotForEver) {
    ASSERT_EQ(Status("reload"), 0);
    const std::string before = agent_.Read(kSchedule);
    const int held = open(agent_.Path("data").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A shared lock: a change needs the directory to itself.
    ASSERT_EQ(flock(held, LOCK_SH), 0);
    agent_.Write("data/pat_env0.ini", PatrolSettings("OFF", "OFF", "OFF"));
    EventPipe pipe(agent_);
    EXPECT_EQ(Status("reload"), 1);
    EXPECT_EQ(agent_.Read(kSchedule), before);
    EXPECT_TRUE(Told(&pipe, kSchedule));
    const auto waiting = agent_.Start({"reload"});
    usleep(200000);
    close(held);
    EXPECT_EQ(waiting->Wait().status, 0);
    EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_exe"), "OFF");
}

}  // namespace
}  // namespace patrol_test
