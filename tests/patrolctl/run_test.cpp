// An on-request diagnosis by patrolctl, with the sample test programs.

#include <signal.h>
#include <sys/file.h>

#include "patrolctl.h"

namespace patrol_test {
namespace {

constexpr char kRequest[] = "data/padiag.ini";

class RunTest : public PatrolctlTest {
 protected:
    void SetUp() override {
        for (const char* program : {"cputest", "memtest", "hddtest"}) {
            const std::string path = std::string(TESTPROG_DIR) + "/" + program;
            ASSERT_EQ(symlink(path.c_str(), agent_.Path(std::string("bin/") + program).c_str()), 0);
        }
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(1)));
        agent_.Write(kRequest, "the administrator's\n");
        agent_.Write(kPadiagSchedule, "[the agent's]\n");
        agent_.Write("disk", std::string(1 << 20, 'x'));
        images_.env["HDDTEST_IMAGES"] = "/dev/sda=" + agent_.Path("disk");
    }
    // What is put in place for a run is gone afterwards.
    void TearDown() override {
        EXPECT_EQ(agent_.Read(kRequest), "the administrator's\n");
        EXPECT_EQ(agent_.Read(kPadiagSchedule), "[the agent's]\n");
        EXPECT_FALSE(agent_.Exists("data/padiag.ini.patrolctl"));
        EXPECT_FALSE(agent_.Exists("data/pat_sche2.txt.patrolctl"));
    }

    Launch images_;
};

TEST_F(RunTest, ShowsBarsOnATerminalAndTheResults) {
    Terminal terminal;
    Launch launch = terminal.For(STDOUT_FILENO);
    launch.env.insert(images_.env.begin(), images_.env.end());
    EXPECT_EQ(Ctl({"run", "1", "--time", "2"}, launch).status, 0);
    for (const char* part : {"cputest CPU      [", "hddtest /dev/sda [", "#", "100 % ended",
                             "\x1b[3A", "hddtest  /dev/sda  \x1b[32mOK"}) {
        EXPECT_TRUE(terminal.Shows(part)) << part << " in\n" << terminal.Text();
    }
}

TEST_F(RunTest, PrintsPlainLinesElsewhere) {
    const Result result = Ctl({"run", "--kinds=cpu", "--time=2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.find_first_of("\r\x1b"), std::string::npos);
    EXPECT_EQ(result.out.find("hddtest"), std::string::npos);
    EXPECT_TRUE(InOrder(Split(result.out), {"cputest CPU: waiting", "cputest CPU: ended",
                                            "TEST     DEVICE  RESULT  TOOK", "All tests passed."}))
        << result.out;
    // Nothing that is meant for a closed output lands in a file.
    Launch closed;
    closed.in_child = [] { close(STDOUT_FILENO); };
    EXPECT_NE(Ctl({"run", "--kinds=cpu", "--time=0"}, closed).err.find("could not be written"),
              std::string::npos);
    EXPECT_EQ(agent_.Read("data/run.lock"), "");
}

// Where the history is full, the newest result has a file of its own.
TEST_F(RunTest, FindsTheResultThatAFullHistoryHasNoRoomFor) {
    agent_.Write("log/pastat.txt", std::string(1 << 20, '\n'));
    for (const std::string kinds : {"cpu", "cpu", "cpu,mem"}) {
        const Result result = Ctl({"run", "--kinds=" + kinds, "--time=1"});
        EXPECT_EQ(result.status, kinds == "cpu" ? 0 : 1) << result.out;
        EXPECT_EQ(result.err.find("the history is full") == std::string::npos, kinds == "cpu");
    }
}

// So does the end of whoever read the progress.
TEST_F(RunTest, InterruptCancelsTheTests) {
    for (const int signal : {SIGINT, SIGPIPE}) {
        const auto run = StartCtl({"run", "--kinds=mem", "--time=600"});
        const std::string out = signal == SIGINT ? "ctl0.out" : "ctl1.out";
        ASSERT_TRUE(Eventually(
            [&] { return agent_.Read(out).find("memtest Memory: 0 %") != std::string::npos; }));
        // The request is out of the way as soon as the schedule is made.
        EXPECT_EQ(agent_.Read(kRequest), "the administrator's\n");
        run->Signal(signal);
        const Result result = run->Wait();
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.out.find("CANCEL"), std::string::npos) << result.out;
    }
    const int other = open(agent_.Path("data/run.lock").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(flock(other, LOCK_EX), 0);
    const auto waits = StartCtl({"run"});
    ASSERT_TRUE(
        Eventually([&] { return agent_.Read("ctl2.out").find("waiting") != std::string::npos; }));
    waits->Signal(SIGINT);
    EXPECT_EQ(waits->Wait().err, "patrolctl: cancelled\n");
    close(other);
}

TEST_F(RunTest, StatusShowsWhatATestOfAPassHasReported) {
    agent_.Write("data/pat_env0.ini", PatrolSettings("OFF", "ON", "OFF"));
    ASSERT_EQ(agent_.Run({"start"}).status, 0);  // makes the schedule
    const auto pass = agent_.Start({"start"});
    const std::regex shown("\nmemtest  Memory  \\d+ seconds?  [1-9]\\d? %  +patrol\n");
    EXPECT_TRUE(Eventually([&] { return std::regex_search(Ctl({"status"}).out, shown); }));
    pass->Signal(SIGTERM);
    pass->Wait();
}

TEST_F(RunTest, TellsAFaultFromATestThatDidNotTakePlace) {
    agent_.Write("data/padiag_para.ini", "[MEMDIAG_PARAM_LEVEL1]\nerror=ON\ntp_error=BMOVEX\n");
    EXPECT_EQ(Ctl({"run", "--kinds=mem", "--time=0"}).status, 2);
    agent_.Script("cputest", "exit 0");
    EXPECT_EQ(Ctl({"run", "--kinds=cpu"}).status, 1);
    agent_.Script("get", "echo '1 load: too high'");
    const Result held = Ctl({"run", "--kinds=cpu"});
    EXPECT_EQ(held.status, 1);
    EXPECT_NE(held.err.find("too high"), std::string::npos);
    agent_.Script("get", "echo 0");
    agent_.Remove("data/pat_msge.txt");
    EXPECT_NE(Ctl({"run", "--kinds=cpu"}).err.find("has not made its schedule"), std::string::npos);
}

// A run that was killed leaves the administrator's file aside, and the next one puts it back.
TEST_F(RunTest, PutsBackWhatAKilledRunHasLeftAside) {
    agent_.Script("cputest", kUp + std::string(kHold));
    agent_.Write("data/hold", "");
    const auto run = StartCtl({"run", "--kinds=cpu", "--time=9"});
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    run->Signal(SIGKILL);
    run->Wait();
    EXPECT_TRUE(agent_.Exists("data/pat_sche2.txt.patrolctl"));
    agent_.Remove("data/hold");
    ASSERT_TRUE(Eventually([&] {
        return agent_.Traced("[PadiagCntlMain] Padiag Diagnosis Ended.", "log/padiag_log");
    }));
    agent_.Script("cputest", "exit 0");
    EXPECT_EQ(Ctl({"run", "--kinds=cpu"}).status, 1);
}

}  // namespace
}  // namespace patrol_test
