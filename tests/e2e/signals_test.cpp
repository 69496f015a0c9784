// Signals to the controller, at any moment of a pass.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "records.h"

namespace patrol_test {
namespace {

constexpr char kCleanUpInt[] = "[ptl_clean_up] Clean Up Process : SIGINT";
constexpr char kCleanUpHup[] = "[ptl_clean_up] Clean Up Process : SIGHUP";
constexpr char kFailed[] = "[wait_for_testdata] read() failed. data_size= 0.";

class SignalTest : public PassTest {
 protected:
    void SetUp() override { agent_.Write("data/hold", ""); }
};

TEST_F(SignalTest, EachSignalEndsTheWaitUnderWayAndThePassGoesOn) {
    Plan("ON", "ON", {"ON"});
    for (const char* name : {"cputest", "memtest", "hddtest"}) Stub(name, "", kHold, kListen);
    Process& process = Begin();
    const std::string device = "[wait_for_testdata] Patrol Diagnosis Device : ";
    SignalAt(device + "Memory.", SIGINT);
    SignalAt(device + "/dev/sda.", SIGHUP);
    SignalAt(device + "CPU.", SIGINT);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({device + "Memory.", kCleanUpInt, kFailed, "[wait_for_testdata] Error End.",
                 "[WaitMemTest] Error End.", device + "/dev/sda.", kCleanUpHup, kFailed,
                 "[WaitHddTest] Wait Error End(sched_num=0).", device + "CPU.", kCleanUpInt,
                 kFailed, "[WaitCpuTest] Error End.", "[NextTestSchedule] End.",
                 "[cntl_main] Patrol Diagnosis Ended."});
    EXPECT_EQ(Count("[ptl_clean_up]"), 3U) << "a patrol pass cancels none of its tests";
    ExpectHistory({});
}

TEST_F(SignalTest, ASignalDuringTheLastWaitStopsTheProgramAndTheResultStands) {
    Plan("ON", "OFF", {});
    Stub("cputest", StatusRecord(1), kHold, kListen);
    Process& process = Begin();
    SignalAt("[wait_for_testdata] diagnosis end. end code=1", SIGHUP);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({kCleanUpHup, "[wait_for_testdata] diagnosis destroy.", "[wait_for_testdata] End.",
                 "[WaitCpuTest] End."});
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/stopped"); }));
    ExpectHistory({"OK      cputest CPU [1s]"});
}

TEST_F(SignalTest, ASignalBeforeTheWaitIsNotLost) {
    for (unsigned i = 0; i < 12 && !HasFailure(); ++i) {
        Forget();
        agent_.Write("data/hold", "");
        Plan("ON", "ON", {});
        Stub("cputest", StatusRecord(1), "", kUp);
        Stub("memtest", "", kHold);
        Process& process = Begin();
        ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
        usleep(i * 300);  // somewhere between the launch and the wait
        for (int n = 0; n < 3; ++n) process.Signal(i % 2 == 0 ? SIGINT : SIGHUP);
        EXPECT_EQ(process.Wait().status, 0);
        ExpectSteps({i % 2 == 0 ? kCleanUpInt : kCleanUpHup, kFailed, "[WaitMemTest] Error End.",
                     "[NextTestSchedule] End."});
        agent_.Remove("data/hold");
    }
}

TEST_F(SignalTest, AProgramThatNeverPausesKeepsNoSignalOut) {
    Plan("ON", "OFF", {});
    Stub("cputest", Repeat(LogRecord(1, "I0001", std::string(100, 'x')), 1000),
         "cat " + Repeat("$KVX_data/cputest.records ", 300) + "&& echo sent > $KVX_data/up\n");
    Process& process = Begin();
    SignalAt("[check_testdata_log] End.", SIGINT);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({kCleanUpInt, "[wait_for_testdata] Error End.", "[WaitCpuTest] Error End."});
    EXPECT_FALSE(agent_.Exists("data/up")) << "the signal came in only when all was read";
}

TEST_F(SignalTest, ASignalEndsTheQuestionToTheAgent) {
    Plan("ON", "OFF", {});
    agent_.Script("get", std::string("exec 2>/dev/null\n") + kUp + kHold);
    Process& process = Begin();
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    process.Signal(SIGINT);
    EXPECT_TRUE(Eventually([&] { return Stepped(kCleanUpInt); }));
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 1);
    EXPECT_EQ(Count("[GetMasterStatus]"), 2U);
    EXPECT_EQ(Count("[sched_cntl]"), 0U);
}

TEST_F(SignalTest, TerminationDuringThePartsCommandEndsTheCommandAlone) {
    Plan("ON", "OFF", {});
    Stub("cputest", StatusRecord(4));
    agent_.Script("parts",
                  "trap 'echo term > $KVX_data/stopped; exit 9' TERM\n" + std::string(kUp) + kHold);
    Process& process = Begin();
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    process.Signal(SIGTERM);
    EXPECT_EQ(process.Wait().status, 0);
    const std::string parts = "[for parts], ";
    ExpectSteps({parts + "IN interproc()",
                 parts + "Recive SIGTERM.(pid:" + std::to_string(process.pid()) + ")",
                 parts + "NORMAL END interproc()", parts + "INIT execute()",
                 parts + "patrol_parts_proc end", "[WaitCpuTest] Error End.",
                 "[cntl_main] Patrol Diagnosis Ended."});
    EXPECT_EQ(agent_.Read("data/stopped"), "term\n");
    EXPECT_EQ(kill(std::stoi(agent_.Read("data/up")), 0), -1) << "not collected";
}

TEST_F(SignalTest, AnInterruptionWaitsForThePartsCommand) {
    Plan("ON", "ON", {});
    Stub("memtest", StatusRecord(4));
    Stub("cputest", "", "while [ -d $KVX_data ]; do sleep 0.05; done");
    agent_.Script("parts", std::string(kUp) + kHold);
    Process& process = Begin();
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    process.Signal(SIGINT);
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({"[for parts], patrol_parts_proc end", "[WaitMemTest] Error End.", kCleanUpInt,
                 kFailed, "[WaitCpuTest] Error End."});
}

TEST_F(SignalTest, AReaderWhoDoesNotReadHoldsNobodyUpBehindASignalOrHisLeave) {
    for (const bool leaves : {false, true}) {
        Forget();
        for (const char* file : {"event_pipe", kSchedule}) agent_.Remove(file);
        EventPipe pipe(agent_);
        const std::string path = agent_.Path("event_pipe"), page(4096, 'x');
        const int full = open(path.c_str(), O_WRONLY | O_NONBLOCK);
        while (write(full, page.data(), page.size()) > 0) continue;
        close(full);
        // Without a device configuration the reload has something to tell.
        Process& process = BeginMode("reload", kTrace, {});
        const std::string fds = "/proc/" + std::to_string(process.pid()) + "/fd/";
        const auto whole = std::filesystem::canonical(path);
        EXPECT_TRUE(Eventually([&] {
            std::error_code none;
            int fd = Stepped("[CreateSchedule] end.( -1 )") ? 3 : 20;
            while (fd < 20 &&
                   std::filesystem::read_symlink(fds + std::to_string(fd), none) != whole)
                ++fd;
            return fd < 20;
        }));
        leaves ? pipe.Leave() : process.Signal(SIGINT);
        EXPECT_EQ(process.Wait().status, 1);
        EXPECT_EQ(Last(Steps()), "[sched_main] Error:Patrol Schedule Creation Error Ended.");
        EXPECT_EQ(Stepped(kCleanUpInt), !leaves);
    }
}

}  // namespace
}  // namespace patrol_test
