// Signals to the controller, at any moment of a pass.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

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
    Launch launch;
    launch.in_child = [] { signal(SIGTERM, SIG_IGN); };
    Process& process = Begin(launch);
    SignalAt("[wait_for_testdata] diagnosis end. end code=1", SIGTERM);  // stays ignored
    process.Signal(SIGHUP);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({kCleanUpHup, "[wait_for_testdata] diagnosis destroy.", "[wait_for_testdata] End.",
                 "[WaitCpuTest] End."});
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/stopped"); }));
    ExpectHistory({"OK      cputest CPU [1s]"});
}

TEST_F(SignalTest, ASignalEndsTheQuestionToTheAgent) {
    Plan("ON", "OFF", {});
    agent_.Script("get", std::string("exec 2>/dev/null\n") + kUp + kHold);
    Process& process = Begin();
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait().status, 1);
    EXPECT_TRUE(Stepped(kCleanUpInt));
    EXPECT_EQ(Count("[sched_cntl]"), 0U);
}

TEST_F(SignalTest, AStatusCommandThatEndsLateIsTakenForNoTest) {
    // Nobody reads its answer any more when the signal comes, and it ends while the test is waited
    // for. The test lives on for as long as it takes to see that it is still waited for.
    agent_.Script("get", "trap '' PIPE\necho 0\nwhile echo; do sleep 0.01; done 2>/dev/null\n" +
                             std::string(kUp) + kHold);
    Plan("ON", "OFF", {});
    Stub("cputest", StatusRecord(1),
         "exec >/dev/null 2>&1\nrm $KVX_data/hold\n"
         "while kill -0 $(cat $KVX_data/up); do sleep 0.01; done\n"
         "sleep 0.3\nkill -0 $PPID && echo >> $KVX_data/calls\n");
    Process& process = Begin();
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait().status, 0);
    EXPECT_TRUE(agent_.Exists("data/calls")) << "the pass went on without the test";
    ExpectHistory({"OK      cputest CPU [1s]"});
}

TEST_F(SignalTest, TerminationStopsEveryTestAndLosesNoAddress) {
    Plan("ON", "OFF", {"ON", "ON"});
    const std::string listen =
        "trap 'echo $2 >> $KVX_data/stopped; exit 0' INT; echo > $KVX_data/up.${2##*/}\n";
    Stub("cputest", "", kHold, listen);
    Stub("hddtest", StatusRecord(3, 1, "", "0x00000040"), "",
         "[ $2 = /dev/sda ] || {\n" + listen + kHold + "exit; }\n");
    Process& process = Begin();
    EXPECT_TRUE(
        Eventually([&] { return agent_.Exists("data/up.sdb") && agent_.Exists("data/up.CPU"); }));
    SignalAt("[wait_for_testdata] Patrol Diagnosis Device : /dev/sdb.", SIGTERM);
    EXPECT_EQ(process.Wait().status, -SIGTERM);
    EXPECT_TRUE(Eventually([&] { return agent_.Lines("data/stopped").size() == 2; }));
    ExpectSteps({"[ptl_clean_up] Clean Up Process : SIGTERM"});
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address"), "0x0000000000000040");
}

TEST_F(SignalTest, AReaderWhoDoesNotReadHoldsNobodyUpBehindASignal) {
    EventPipe pipe(agent_);
    std::string page(4096, 'x');
    const int full = open(agent_.Path("event_pipe").c_str(), O_RDWR | O_NONBLOCK);
    while (write(full, page.data(), page.size()) > 0) continue;
    // Where a page is free, there is room for a part of a long event.
    for (const bool room : {false, true}) {
        const ssize_t freed = room ? read(full, page.data(), page.size()) : 0;
        EXPECT_EQ(freed, room ? 4096 : 0);
        // Without a device configuration and a Schedule the reload has something to tell.
        Process& process = BeginMode("reload", kTrace, {{{"KVX_SVTYPE", std::string(9000, 's')}}});
        SignalAt("[CreateSchedule] end.( -1 )", SIGINT);
        EXPECT_EQ(process.Wait().status, 1);
        EXPECT_EQ(Last(Steps()), "[sched_main] Error:Patrol Schedule Creation Error Ended.");
        EXPECT_TRUE(Stepped(kCleanUpInt));
        agent_.Remove(kSchedule);
    }
    close(full);
}

}  // namespace
}  // namespace patrol_test
