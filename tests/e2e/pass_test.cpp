// One patrol pass from the status command to the launch of the test programs.

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <regex>

#include "records.h"

namespace patrol_test {
namespace {

constexpr char kNoteRun[] = "echo \"$0\" >> $KVX_data/ran\n";
constexpr char kNoteWords[] =
    "for word in \"$@\"; do printf '%s|' \"$word\"; done > $KVX_data/words\n";

TEST_F(PassTest, TheStatusCommandIsReadyOnALineThatBeginsWithZero) {
    const struct {
        std::string script;
        bool ready;
    } cases[] = {
        {"[ $# = 1 ] && [ $1 = agent_status ] && echo 0", true},
        {"echo 1; echo busy; echo 0late; exit 7", true},
        {"exit 0", false},
        {"echo ' 0'; echo 10; echo; echo 0 >&2", false},
        {"echo " + std::string(63, 'x') + "0", true},  // the second piece begins with 0
        {"echo " + std::string(62, 'x') + "0", false},
    };
    Stub("cputest", StatusRecord(1), "", kNoteRun);
    const std::string command = "[GetMasterStatus] (" + agent_.Path("bin/get") + " agent_status) ";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Forget();
        agent_.Remove("data/ran");
        Plan("ON", "OFF", {});
        const std::string before = agent_.Read(kSchedule);
        agent_.Script("get", c.script);
        Pass({}, c.ready ? 0 : 1);
        ExpectSteps(
            {"[cntl_main] Patrol Diagnosis Started.", command + "Start.",
             command + (c.ready ? "OK End." : "Not OK End."),
             "[cntl_main] Patrol Diagnosis " + std::string(c.ready ? "" : "Error ") + "Ended."});
        EXPECT_EQ(agent_.Exists("data/ran"), c.ready);
        EXPECT_EQ(agent_.Read(kSchedule) != before, c.ready);
    }
    const std::string step = "[GetMasterStatus] ";
    Plan("OFF", "OFF", {});
    Pass({{{"KVX_bin", "echo 0; : "}}});  // goes to the shell unquoted
    EXPECT_TRUE(Stepped(step + "(echo 0; : /get agent_status) OK End."));
    Pass({{{"KVX_bin", std::nullopt}}}, 1);
    ExpectSteps({step + "Failed to Get KVX_bin.", "[cntl_main] Patrol Diagnosis Error Ended."});
    EXPECT_EQ(Count("[sched_cntl]"), 0U);
}

TEST_F(PassTest, APassThatRemakesTheScheduleTestsNothing) {
    for (const char* name : {"cputest", "memtest", "hddtest"}) Stub(name, "", "", kNoteRun);
    agent_.Write("data/pat_env0.ini", PatrolSettings("ON", "ON", "ON"));
    Pass({}, 1);  // no device configuration
    ExpectSteps({"[sched_cntl] Start.",
                 "[sched_cntl] Warning:Schedule File Not Found. Schedule File Remade.",
                 "[CreateSchedule] start.", "[CreateSchedule] end.( -1 )",
                 "[sched_cntl] Error End.", "[cntl_main] Patrol Diagnosis Error Ended."});

    agent_.Remove(kSchedule);
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(3)));
    Pass();
    ExpectSteps({"[sched_cntl] Warning:Schedule File Not Found. Schedule File Remade.",
                 "[CreateSchedule] end.( 0 )", "[sched_cntl] Success in Remark of Schedule File.",
                 "[sched_cntl] Normal End.", "[cntl_main] Patrol Diagnosis Ended."});
    EXPECT_EQ(Count("[CpuTestExec]") + Count("[NextTestSchedule]"), 0U);
    EXPECT_FALSE(agent_.Exists("data/ran"));
    EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_next_go"), "ON");
    EXPECT_EQ(agent_.History().at(0),
              "[Test Start] Target Device: CPU,Memory,/dev/sda,/dev/sdb,/dev/sdc");
}

TEST_F(PassTest, StepsComeInTheirOrder) {
    Plan("ON", "ON", {"ON", "OFF"});
    agent_.SetKey("HDD_SCHEDULE 0", "address", "0x1");
    for (const char* name : {"cputest", "memtest", "hddtest"}) Stub(name, StatusRecord(1));
    Pass();
    const std::string exec = "[test_exec_init] [exec] " + agent_.Path("bin/");
    ExpectSteps(Split(
        "[cntl_main] Patrol Diagnosis Started.\n[sched_cntl] Start.\n[CpuTestExec] Start.\n"
        "[CpuTestExec] CpuTest NormalMode Exec.\n[test_exec] Start.\n" +
        exec +
        "cputest -dev CPU -lv 0 -tp Instruction+Register -log 512 -gen 4.\n"
        "[test_exec] Patrol Started(CPU).\n[test_exec] End.\n[CpuTestExec] End.\n"
        "[MemTestExec] Start.\n[MemTestExec] MemoryTest NormalMode Exec.\n" +
        exec +
        "memtest -dev mem -lv 0 -tp BMOVE -log 512 -gen 4.\n"
        "[test_exec] Patrol Started(Memory).\n[MemTestExec] End.\n[HddTestExec] Start.\n"
        "[HddTestExec] HddTest NormalMode(0) Exec.\n" +
        exec +
        "hddtest -dev /dev/sda -lv 0 -tp sector -log 512 -gen 4 -lba 0x1 -sc 0x40 -retry 0.\n"
        "[test_exec] Patrol Started(HDD).\n[HddTestExec] HddTest(1) Not Exec.\n"
        "[HddTestExec] End.\n[WaitMemTest] Start.\n[wait_for_testdata] Start.\n"
        "[wait_for_testdata] Patrol Diagnosis Device : Memory.\n"
        "[check_testdata_head] transmit type= 2(0x02).\n"
        "[wait_for_testdata] Data Research Start(type=2).\n"
        "[check_testdata_status] Test End Code= 1(0x01).\n[check_testdata_status] Flag= 0(0x00).\n"
        "[wait_for_testdata] diagnosis end. end code=1\n[wait_for_testdata] Memory Patrol End\n"
        "[wait_for_testdata] End.\n[WaitMemTest] End.\n"
        "[wait_for_testdata] Patrol Diagnosis Device : /dev/sda.\n"
        "[WaitHddTest] Wait Normal End(sched_num=0).\n[WaitHddTest] End.\n[WaitCpuTest] Start.\n"
        "[wait_for_testdata] CPU Patrol End\n[WaitCpuTest] End.\n"
        "[sched_cntl] hdd_exec_tbl Free.\n[NextTestSchedule] Start.\n[NextTestSchedule] HDD Test "
        "Gusu Initialize. next_cnt=0\n[NextTestSchedule] End.\n"
        "[cntl_main] Patrol Diagnosis Ended."));
    EXPECT_EQ(Count("[wait_for_testdata] Start."), 3U);
    ExpectHistory({"OK      memtest Memory [#s]", "OK      hddtest /dev/sda [#s]",
                   "OK      cputest CPU [1s]"});
}

TEST_F(PassTest, TestProgramsGetTheseWords) {
    std::string many, first;
    for (int i = 1; i <= 40; ++i) many += (i == 1 ? "" : " ") + std::to_string(i);
    for (int i = 1; i <= 30; ++i) first += std::to_string(i) + "|";
    const std::string d600(600, 'D'), d506(506, 'D');
    const std::string cpu = "-dev|CPU|-lv|0|-tp|Instruction+Register|-log|512|-gen|4|";
    const std::string disk = "-dev|/dev/sda|-lv|0|-tp|sector|-log|512|-gen|4|-lba|";
    const std::string zero = "0x0000000000000000|-sc|0x40|-retry|0|";
    const struct {
        std::string program, parameters, disk_lines, words;
    } cases[] = {
        {"cputest", "[CPUDIAG_PARAM]\nerror=OFFLINE\n[MEMDIAG_PARAM]\ntp=other\n", "", cpu},
        {"cputest", "[CPUDIAG_PARAM]\nerror=\ndbg_modid=m\n", "",
         cpu + "-dbg_modid|m|-dbg_point|0x2|"},
        {"cputest", "[CPUDIAG_PARAM]\ndev=C0\nlv=-3\ntp=X,Y\nlog=99999999999\ngen=7\n", "",
         "-dev|C0|-lv|-3|-tp|X,Y|-log|2147483647|-gen|7|"},
        {"cputest", "[CPUDIAG_PARAM]\ndev=a  b\n", "", "-dev|a|"},
        {"cputest", "[CPUDIAG_PARAM]\ndev=" + many + "\n", "", "-dev|" + first},
        {"cputest", "[CPUDIAG_PARAM]\ndev=" + d600 + "\n", "", "-dev|" + d506 + "|"},
        {"memtest", "[MEMDIAG_PARAM]\nerror=ON\ntp=NO\n", "",
         "-dev|mem|-lv|0|-tp|BMOVEX|-log|512|-gen|4|"},
        {"memtest", "[MEMDIAG_PARAM]\nerror=1\ntp_error=E\n", "",
         "-dev|mem|-lv|0|-tp|E|-log|512|-gen|4|"},
        {"hddtest", "[HDDDIAG_PARAM]\nretry=5\nlba=1\nsc=2\n", "hdd_ide=2\nsc=0x80\naddress=0x10\n",
         disk + "0x10|-sc|0x80|-retry|5|"},
        {"hddtest", "[HDDDIAG_PARAM]\nerror=ON\nparam_error=no\n", "", disk + zero + "-debug2|"},
        {"hddtest", "[HDDDIAG_PARAM]\nerror=ON\n[HDD_DIAGPARAM]\nparam_error=-x\n", "hdd_ide=1\n",
         disk + zero + "/ide|-x|"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.program + ": " + c.parameters + c.disk_lines);
        agent_.Remove("data/words");
        agent_.Write("data/pat_new_para.ini", c.parameters);
        const auto due = [&](const char* name) { return c.program == name ? "ON" : "OFF"; };
        Plan(due("cputest"), due("memtest"), {due("hddtest")});
        std::string plan = agent_.Read(kSchedule);  // the last line for a key counts
        agent_.Write(kSchedule, plan.insert(plan.find("[TEST_"), c.disk_lines));
        Stub(c.program, "", "", kNoteWords);
        Pass();
        EXPECT_EQ(agent_.Read("data/words"), c.words);
    }
}

TEST_F(PassTest, DueUnlessTheFlagBeginsWithOff) {
    const std::pair<const char*, bool> flags[] = {
        {"OFFLINE", false}, {nullptr, false}, {"", true}, {"OF", true}, {"off", true}};
    for (const char* name : {"cputest", "memtest", "hddtest"}) Stub(name, "", "", kNoteRun);
    for (const auto& [flag, due] : flags) {
        SCOPED_TRACE(flag == nullptr ? "no flag" : flag);
        Forget();
        agent_.Remove("data/ran");
        Plan(flag ? flag : "", flag ? flag : "", {flag ? flag : ""});
        std::string plan = agent_.Read(kSchedule);
        if (!flag) agent_.Write(kSchedule, std::regex_replace(plan, std::regex("_next_go="), "="));
        Pass();
        EXPECT_EQ(agent_.Lines("data/ran").size(), due ? 3U : 0U);
        EXPECT_EQ(Count("[CpuTestExec] CpuTest Not Exec.") +
                      Count("[MemTestExec] MemTest Not Exec.") +
                      Count("[HddTestExec] HddTest(0) Not Exec."),
                  due ? 0U : 3U);
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
                 "[WaitCpuTest] Start.", "[wait_for_testdata] CPU Patrol End",
                 "[sched_cntl] hdd_exec_tbl Free.", "[cntl_main] Patrol Diagnosis Ended."});
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
    ExpectSteps({"[wait_for_testdata] read() failed. data_size= 0.",
                 "[wait_for_testdata] Error End.", "[WaitCpuTest] Error End.",
                 "[cntl_main] Patrol Diagnosis Ended."});
    const Strings trace = agent_.Trace();
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "[cntl_main] Patrol Diagnosis Ended."), 1);
    ExpectHistory({});
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
    Stub("cputest", StatusRecord(1), "", inspect("cputest"));
    Stub("memtest", StatusRecord(4, 4), "", inspect("memtest"));
    Stub("hddtest", StatusRecord(1), "", inspect("hddtest"));
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
