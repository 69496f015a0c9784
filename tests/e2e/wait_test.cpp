// Time-outs, and programs that outlive their records.

#include <signal.h>

#include "records.h"

namespace patrol_test {
namespace {

TEST_F(PassTest, TheTimeOutIsJudgedWhenThePipeEnds) {
    const struct {
        std::string program, timeout, address, written;  // nothing written: no time-out
    } cases[] = {
        {"hddtest", "1", "0x0000000000001000", "0x00000040"},  // read in base 10
        {"hddtest", "44", "128", "0x000000c0"},
        {"hddtest", "44", "2147483647", "0x8000003f"},
        {"hddtest", "99", "128", ""},
        {"hddtest", "0", "128", ""},
        {"memtest", "44", "128", "128"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.program + " " + c.timeout + " " + c.address);
        Forget();
        const bool disk = c.program == "hddtest", late = !c.written.empty();
        Plan("OFF", disk ? "OFF" : "ON", {"OFF", disk ? "ON" : "OFF"});
        agent_.SetKey("TEST_SCHEDULE", disk ? "hdd_timeout" : "mem_timeout", c.timeout);
        agent_.SetKey("HDD_SCHEDULE 1", "address", c.address);
        agent_.Write("data/hold", "");
        // The real clock where the limit is a second, the program's own account elsewhere. Without
        // its outputs a program still has the pipe itself.
        const bool real = c.timeout == "1";
        Stub(c.program, real ? "" : ProgressRecord(60),
             (real ? "exec >/dev/null 2>&1; sleep 2.1\n" : "") + std::string(kClosePipe) + kHold,
             kListen);
        Pass();
        const std::string device = disk ? "/dev/sdb" : "Memory";
        EXPECT_EQ(agent_.History().size(), late ? 1U : 0U);
        if (late) {
            EXPECT_EQ(agent_.History().at(0).rfind("TIMEOUT " + c.program + " " + device + " [", 0),
                      0U);
            ExpectSteps(
                {"[wait_for_testdata] Time Out Error [Diagnosis End] "
                 "Threshold Time= " +
                     c.timeout + " Sec",
                 "[wait_for_testdata] Error End."});
            EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/stopped"); }));
        } else {
            EXPECT_EQ(Count("[wait_for_testdata] read() failed. data_size= "), 1U);
        }
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "address"), late ? c.written : c.address);
        agent_.Remove("data/hold");
    }
}

TEST_F(PassTest, WithoutATimeOutTheEndOfTheProgramIsAwaited) {
    Plan("ON", "OFF", {});
    agent_.SetKey("TEST_SCHEDULE", "cpu_timeout", "0");
    Stub("cputest", StatusRecord(1), "exec >/dev/null 2>&1; sleep 1.2; echo $$ > $KVX_data/up");
    Pass();
    EXPECT_TRUE(Stepped("[wait_for_testdata] CPU Patrol End"));
    ASSERT_TRUE(agent_.Exists("data/up"));
    EXPECT_EQ(kill(std::stoi(agent_.Read("data/up")), 0), -1) << "not collected";
}

TEST_F(PassTest, AnyChildThatEndsIsTakenForTheAwaitedOne) {
    Plan("ON", "ON", {});
    agent_.SetKey("TEST_SCHEDULE", "cpu_timeout", "1");
    agent_.Write("data/hold", "");
    Stub("cputest", StatusRecord(1), "", kUp);
    Stub("memtest", StatusRecord(1), kHold, kListen);
    Pass();
    const std::string pid = std::to_string(std::stoi(agent_.Read("data/up")));
    ExpectSteps({"[wait_for_testdata] Memory Patrol End", "[WaitCpuTest] Start.",
                 "[ptl_test_terminate] System Call Error kill , errno:3",
                 "[ptl_test_terminate] cause     :No such process",
                 "[ptl_test_terminate] argument[1]: " + pid,
                 "[ptl_test_terminate] argument[2]: SIGINT",
                 "[wait_for_testdata] diagnosis destroy.", "[WaitCpuTest] End."});
    EXPECT_FALSE(agent_.Exists("data/stopped"));
}

TEST_F(PassTest, AGrandchildThatHoldsThePipeIsReadToItsEnd) {
    // One program has reported and one has not; both leave a grandchild behind.
    const std::string leave = "( trap '' INT; " + std::string(kHold) + ") &\n";
    Plan("ON", "ON", {});
    agent_.Write("data/hold", "");
    Stub("memtest", StatusRecord(1), leave);
    Stub("cputest", LogRecord(2, "00000", "x"), leave);
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return Stepped("[check_testdata_log] End."); }));
    EXPECT_TRUE(Stepped("[WaitMemTest] End."));
    EXPECT_FALSE(Stepped("[WaitCpuTest] Error End."));
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 0);
    EXPECT_TRUE(Stepped("[WaitCpuTest] Error End."));
    ExpectHistory({"OK      memtest Memory [#s]"});
}

}  // namespace
}  // namespace patrol_test
