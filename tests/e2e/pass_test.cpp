// One patrol pass from the status command to the launch of the test programs.

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>

#include "records.h"

namespace patrol_test {
namespace {

constexpr char kNoteRun[] = "echo \"$0\" >> $KVX_data/ran\n";
constexpr char kNoteWords[] =
    "for word in \"$@\"; do printf '%s:' \"$word\"; done > $KVX_data/words\n";

TEST_F(PassTest, TheStatusCommandIsReadyOnALineThatBeginsWithZero) {
    const std::pair<std::string, bool> cases[] = {
        {"[ $# = 1 ] && [ $1 = agent_status ] && echo 0", true},
        {"echo 1; echo busy; echo 0late; exit 7", true},
        {"exit 0", false},
        {"echo ' 0'; echo 10; echo; echo 0 >&2", false},
        {"echo " + std::string(63, 'x') + "0", true},  // the second piece begins with 0
        {"echo " + std::string(62, 'x') + "0", false},
    };
    Stub("cputest", StatusRecord(1), "", kNoteRun);
    const std::string start = "[GetMasterStatus] (", tail = "/get agent_status) OK End.";
    for (const auto& [script, ready] : cases) {
        SCOPED_TRACE(script);
        agent_.Remove("data/ran");
        Plan("ON", "OFF", {});
        const std::string before = agent_.Read(kSchedule);
        agent_.Script("get", script);
        Pass({}, ready ? 0 : 1);
        EXPECT_EQ(Stepped(start + agent_.Path("bin") + tail), ready);
        EXPECT_EQ(Last(Steps()),
                  "[cntl_main] Patrol Diagnosis " + std::string(ready ? "" : "Error ") + "Ended.");
        EXPECT_EQ(agent_.Exists("data/ran"), ready);
        EXPECT_EQ(agent_.Read(kSchedule) != before, ready);
    }
    Plan("OFF", "OFF", {});
    Pass({{{"KVX_bin", "echo 0; : "}}});  // goes to the shell unquoted
    EXPECT_TRUE(Stepped(start + "echo 0; : " + tail));
    Pass({{{"KVX_bin", std::nullopt}}}, 1);
    EXPECT_TRUE(Stepped("[GetMasterStatus] Failed to Get KVX_bin."));
    // A Schedule that is to be remade, and cannot be.
    agent_.Remove(kSchedule);
    agent_.Script("get", "echo 0");
    Pass({}, 1);
    ExpectSteps({"[sched_cntl] Warning:Schedule File Not Found. Schedule File Remade.",
                 "[CreateSchedule] end.( -1 )", "[sched_cntl] Error End.",
                 "[cntl_main] Patrol Diagnosis Error Ended."});
}

TEST_F(PassTest, TestProgramsGetTheseWords) {
    std::string many, first;
    for (int i = 1; i <= 40; ++i) many += (i == 1 ? "" : " ") + std::to_string(i);
    for (int i = 1; i <= 30; ++i) first += std::to_string(i) + ":";
    const std::map<char, std::string> pieces = {
        {'M', many},
        {'F', first},
        {'D', std::string(506, 'D')},
        {'C', "-dev:CPU:-lv:0:-tp:Instruction+Register:-log:512:-gen:4:"},
        {'H', "-dev:/dev/sda:-lv:0:-tp:sector:-log:512:-gen:4:-lba:"},
        {'Z', "0x0000000000000000:-sc:0x40:-retry:0:"}};
    // The program, its parameters, further lines of the disk, and the words.
    const char table[] = R"(cputest|[CPUDIAG_PARAM]\error=OFFLINE\[MEMDIAG_PARAM]\tp=no\||^C
cputest|[CPUDIAG_PARAM]\error=\dbg_modid=m\||^C-dbg_modid:m:-dbg_point:0x2:
cputest|[CPUDIAG_PARAM]\dev=C0\lv=-3\tp=X,Y\||-dev:C0:-lv:-3:-tp:X,Y:-log:512:-gen:4:
cputest|[CPUDIAG_PARAM]\tp=T\log=99999999999\gen=7\||-dev:CPU:-lv:0:-tp:T:-log:2147483647:-gen:7:
cputest|[CPUDIAG_PARAM]\dev=a  b\||-dev:a:
cputest|[CPUDIAG_PARAM]\dev=^M\||-dev:^F
cputest|[CPUDIAG_PARAM]\dev=^DDDDDDDD\||-dev:^D:
memtest|[MEMDIAG_PARAM]\error=ON\tp=NO\||-dev:mem:-lv:0:-tp:BMOVEX:-log:512:-gen:4:
memtest|[MEMDIAG_PARAM]\error=1\tp_error=E\||-dev:mem:-lv:0:-tp:E:-log:512:-gen:4:
hddtest|[HDDDIAG_PARAM]\retry=5\lba=1\sc=2\|hdd_ide=2\sc=0x80\address=0x10\|^H0x10:-sc:0x80:-retry:5:
hddtest|[HDDDIAG_PARAM]\error=ON\param_error=no\||^H^Z-debug2:
hddtest|[HDDDIAG_PARAM]\error=ON\[HDD_DIAGPARAM]\param_error=-x\|hdd_ide=1\|^H^Z/ide:-x:)";
    const auto filled = [&pieces](std::string text) {
        for (const auto& [letter, piece] : pieces) {
            text = Replaced(text, std::string("^") + letter, piece);
        }
        return Unescaped(text);
    };
    for (const Strings& row : Rows(table)) {
        SCOPED_TRACE(row[0] + ": " + row[1] + row[2]);
        agent_.Remove("data/words");
        agent_.Write("data/pat_new_para.ini", filled(row[1]));
        PlanOne(row[0]);
        std::string plan = agent_.Read(kSchedule);  // the last line for a key counts
        agent_.Write(kSchedule, plan.insert(plan.find("[TEST_"), filled(row[2])));
        Stub(row[0], "", "", kNoteWords);
        Pass();
        EXPECT_EQ(agent_.Read("data/words"), filled(row[3]));
    }
}

TEST_F(PassTest, DueUnlessTheFlagBeginsWithOff) {
    for (const char* name : {"cputest", "memtest", "hddtest"}) Stub(name, "", "", kNoteRun);
    for (const Strings& row : Rows("OFFLINE|\nno|\n|due\nOF|due\noff|due")) {
        SCOPED_TRACE(row[0]);
        agent_.Remove("data/ran");
        Plan(row[0], row[0], {row[0]});
        if (row[0] == "no") {
            agent_.Write(kSchedule, Replaced(agent_.Read(kSchedule), "_next_go=", "="));
        }
        Pass();
        EXPECT_EQ(agent_.Lines("data/ran").size(), row[1].empty() ? 0U : 3U);
    }
}

TEST_F(PassTest, NoDiskIsWaitedForWhenTheLastOneCannotBeStarted) {
    Plan("ON", "OFF", Strings(12, "ON"));
    Stub("cputest", StatusRecord(1));
    Stub("hddtest", StatusRecord(1));
    Launch launch;
    launch.in_child = [] {
        const rlimit few = {13, 13};
        setrlimit(RLIMIT_NOFILE, &few);
    };
    Pass(launch);
    ExpectSteps({"[test_exec] Patrol Started(HDD).",
                 "[test_exec] System Call Error (pipe), errno:24",
                 "[test_exec] cause     : Too many open files", "[test_exec] Error End",
                 "[HddTestExec] Exec Error(sched_cnt=11).", "[HddTestExec] End.",
                 "[wait_for_testdata] CPU Patrol End", "[sched_cntl] hdd_exec_tbl Free."});
    EXPECT_EQ(Count("[WaitHddTest]"), 0U);
}

TEST_F(PassTest, AProgramThatCannotBeExecutedEndsInTheChild) {
    Plan("ON", "OFF", {});  // there is no bin/cputest
    Pass();
    const std::string start = "[child_proc] ";
    const std::string path = agent_.Path("bin/cputest");
    EXPECT_TRUE(
        InOrder(agent_.Trace(),
                {start + "[execv(argv):0] " + path, start + "[execv(argv):1] -dev",
                 start + "[execv(path):1] " + path, start + "System Call Error (execv) , errno:2",
                 start + "cause     : No such file or directory"}));
    ExpectSteps({"[wait_for_testdata] read() failed. data_size= 0.", "[WaitCpuTest] Error End."});
    const Strings trace = agent_.Trace();
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "[cntl_main] Patrol Diagnosis Ended."), 1);
    ExpectHistory({});
}

TEST_F(PassTest, AFullTraceFileKillsNoProgramBeforeItsStart) {
    Plan("ON", "OFF", {});
    Stub("cputest", StatusRecord(1));
    agent_.Write(kTrace, std::string(9000, 'x'));
    agent_.Write(kHistory, "what a full disk has left");
    Launch launch;
    launch.in_child = [] {
        const rlimit size = {8192, 8192};
        setrlimit(RLIMIT_FSIZE, &size);
    };
    Pass(launch);
    ExpectHistory({"what a full disk has left", "OK      cputest CPU [1s]"});
}

TEST_F(PassTest, AHistoryLineThatFindsNoRoomIsToldOfAndSpoilsNoOther) {
    const std::string before = std::string(8179, 'x') + "\n";
    agent_.Write(kHistory, before);
    Stub("cputest", StatusRecord(1));
    EventPipe pipe(agent_);
    for (const bool full : {true, false}) {
        Plan("ON", "OFF", {});
        Launch launch;
        launch.in_child = [full] {
            const rlimit size = {8192, 8192};
            if (full) setrlimit(RLIMIT_FSIZE, &size);
        };
        Pass(launch);
        EXPECT_EQ(Join(pipe.Lines()),
                  full ? "E3899:<<file name = " + agent_.Path(kHistory) + ">>\n" : "");
    }
    const Strings lines = agent_.Lines(kHistory);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[1].size(), 12U);
    EXPECT_EQ(Last(agent_.History()), "OK      cputest CPU [1s]");
}

TEST_F(PassTest, ChildrenGetTheSignalsOfTheControllerAndOnePipe) {
    // Mask and ignored signals of a stub, as the shell that runs it sees its own, and its outputs.
    const auto inspect = [](const std::string& name) {
        return "while read -r key value; do case $key in SigBlk:|SigIgn:) echo $value;; esac; "
               "done < /proc/$$/status > $KVX_data/" +
               name + ".is\n(exec readlink /proc/$$/fd/1 /proc/$$/fd/2 >> $KVX_data/" + name +
               ".is)\n";
    };
    Plan("ON", "ON", {"ON"});
    for (const std::string name : {"cputest", "memtest", "hddtest"}) {
        Stub(name, name[0] == 'm' ? StatusRecord(4, 4) : StatusRecord(1), "", inspect(name));
    }
    agent_.Script("parts", inspect("parts"));
    Launch launch;
    launch.in_child = [] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGFPE);
        sigaddset(&set, SIGUSR2);
        sigprocmask(SIG_SETMASK, &set, nullptr);
        for (int number : {SIGHUP, SIGINT, SIGPIPE, SIGALRM, SIGCHLD}) signal(number, SIG_DFL);
    };
    Pass(launch);
    for (const std::string name : {"cputest", "memtest", "hddtest", "parts"}) {
        SCOPED_TRACE(name);
        const Strings is = agent_.Lines("data/" + name + ".is");
        ASSERT_EQ(is.size(), 4U);
        // SIGUSR2 is bit 11, SIGFPE bit 7; the processor test must get SIGFPE.
        EXPECT_EQ(is[0], name == "cputest" ? "0000000000000800" : "0000000000000880");
        EXPECT_EQ(std::stoull(is[1], nullptr, 16) & 0x13003U, 0U);
        EXPECT_TRUE(name == "parts" || (is[2] == is[3] && is[2].rfind("pipe:", 0) == 0)) << is[2];
    }
}

}  // namespace
}  // namespace patrol_test
