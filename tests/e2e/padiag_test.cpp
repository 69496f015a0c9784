// On-request diagnoses, from the Schedule file to the history.

#include "padiag.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace patrol_test {
namespace {

using Strings = std::vector<std::string>;

class PadiagTest : public PadiagFixture {
 protected:
    // The command lines in the order of launch, without the directory of the programs.
    Strings Commands() const {
        const std::string start = "[test_exec_init] [exec] " + agent_.Path("bin/");
        Strings commands;
        for (const std::string& line : Steps()) {
            if (line.rfind(start, 0) == 0)
                commands.push_back(line.substr(start.size(), line.size() - start.size() - 1));
        }
        return commands;
    }
    void StubAll(const std::string& after = "", const std::string& before = "") const {
        for (const char* name : {"cputest", "memtest", "hddtest"}) {
            Stub(name, Verdict(1, 2, name), after, before);
        }
    }
    // Runs the memory test with this output.
    void Judge(const std::string& output) {
        Forget();
        PlanMemory();
        Stub("memtest", output);
        Diagnose();
    }
    ino_t Inode(const std::string& relative) const {
        struct stat status = {};
        return stat(agent_.Path(relative).c_str(), &status) == 0 ? status.st_ino : 0;
    }
};

constexpr char kAborted[] = "ABORT   memtest Memory [1s] pass=0 memtest aborted.";
constexpr char kCleanUp[] = "[ptl_clean_up] Clean Up Process : ";

TEST_F(PadiagTest, DefaultsOfTheCommandLinesFollowTheLevel) {
    const std::string random = " -tp iorandom -wide 204800 -count 1000 -sc 0x80";
    const std::string serial = " -tp sector -lba 0x0000000000000000 -sc 0x80";
    const std::string debug = " -dbg_modid 0x20000 -dbg_point 0x2";
    const struct {
        std::string cpu, wait, memory, memory_wait, disk;
    } levels[] = {
        {"instruction+register", "10000", "IMOVE", " -waitsec 2", random},
        {"instruction+register", "10000", "WHOLE", " -size 16MB -waitsec 13", random},
        {"instruction+register+cache", "50000", "WHOLE", " -size 16MB -data all -waitsec 7",
         serial},
    };
    StubAll();
    for (int level = 1; level <= 3; ++level) {
        const auto& row = levels[level - 1];
        const std::string lv = " -lv " + std::to_string(level), run = " /runtime 77";
        for (const bool error : {false, true}) {
            SCOPED_TRACE(lv + (error ? " ErrorMode" : ""));
            Forget();
            Plan(level, "ON", "ON", {"ON", "ON"}, "77");
            agent_.SetKey("HDD_SCHEDULE 1", "hdd_ide", "1", kPadiagSchedule);
            agent_.SetKey("HDD_SCHEDULE 0", "hdd_ide", "2", kPadiagSchedule);
            std::string parameters = "[CPUDIAG_PARAM]\nerror=ON\n";  // of no level: no say
            for (const char* kind : {"CPU", "MEM", "HDD"}) {
                parameters += "[" + std::string(kind) + "DIAG_PARAM_LEVEL" + std::to_string(level) +
                              "]\nerror=" + (error ? "on" : "OFFLINE") + "\n";
            }
            agent_.Write(kParameters, parameters);
            Diagnose();
            const std::string cpu = error ? "instruction+register" : row.cpu;
            const std::string tail = error ? " -debug2" : run;
            EXPECT_EQ(Commands(),
                      (Strings{"cputest -dev CPU" + lv + " -tp " + cpu + " -waitusec " + row.wait +
                                   (error ? debug : "") + run,
                               "memtest -dev mem" + lv + " -tp " + (error ? "BMOVEX" : row.memory) +
                                   row.memory_wait + run,
                               "hddtest -dev /dev/sda" + lv + row.disk + tail,
                               "hddtest -dev /dev/sdb" + lv + row.disk + " -ide" + tail}));
            const std::string mode = error ? "ErrorMode" : "NormalMode";
            ExpectSteps({"[PadiagCpuTestExec] CpuTest " + mode + " Exec.",
                         "[PadiagMemTestExec] MemoryTest " + mode + " Exec.",
                         "[PadiagHddTestExec] HddTest " + mode + "(0) Exec.",
                         "[PadiagHddTestExec] HddTest " + mode + "(1) Exec."});
        }
    }
}

TEST_F(PadiagTest, GivenParametersReplaceTheDefaults) {
    StubAll();
    std::string parameters = "[CPUDIAG_PARAM]\ndbg_modid=0x9\ndbg_point=0x8\n";
    for (const char* level : {"1", "2", "3"}) {
        const std::string text =
            "[CPUDIAG_PARAM_LEVEL@]\ndev=c@\ntp=ct@\nlv=9\nwaitusec=1@\ndbg_modid=no\n!"
            "[MEMDIAG_PARAM_LEVEL@]\ndev=m@\ntp=mt@\ntp_error=me@\nwaitsec=2@\nsize=s@\n"
            "data=d@\n![HDDDIAG_PARAM_LEVEL@]\ntp=ht@\nsc=0x@\nwide=3@\ncount=4@\n"
            "param_error=-p@\n!";
        const bool error = *level == '2';
        parameters += std::regex_replace(std::regex_replace(text, std::regex("@"), level),
                                         std::regex("!"), error ? "error=ON\n" : "error=OFF\n");
    }
    agent_.Write(kParameters, parameters);
    const Strings expected[] = {
        {"cputest -dev c1 -lv 1 -tp ct1 -waitusec 11 /runtime 3600",
         "memtest -dev m1 -lv 1 -tp mt1 -waitsec 21 /runtime 3600",
         "hddtest -dev /dev/sda -lv 1 -tp ht1 -wide 31 -count 41 -sc 0x1 /runtime 3600"},
        {"cputest -dev c2 -lv 2 -tp instruction+register -waitusec 12 -dbg_modid 0x9 "
         "-dbg_point 0x8 /runtime 3600",
         "memtest -dev m2 -lv 2 -tp me2 -size s2 -waitsec 22 /runtime 3600",
         "hddtest -dev /dev/sda -lv 2 -tp ht2 -wide 32 -count 42 -sc 0x2 -p2"},
        {"cputest -dev c3 -lv 3 -tp ct3 -waitusec 13 /runtime 3600",
         "memtest -dev m3 -lv 3 -tp mt3 -size s3 -data d3 -waitsec 23 /runtime 3600",
         "hddtest -dev /dev/sda -lv 3 -tp ht3 -lba 0x40 -sc 0x3 /runtime 3600"},
    };
    for (int level = 1; level <= 3; ++level) {
        Forget();
        Plan(level, "ON", "ON", {"ON"});
        agent_.SetKey("HDD_SCHEDULE 0", "address", "0x40", kPadiagSchedule);
        Diagnose();
        EXPECT_EQ(Commands(), expected[level - 1]);
    }
    // A Schedule file without level, time, device and address.
    Forget();
    agent_.Write(kParameters, "");
    agent_.Write(kPadiagSchedule,
                 "[MEM_SCHEDULE]\nmem=1\n[HDD_SCHEDULE 0]\nhdd=1\n[TEST_SCHEDULE]\n"
                 "hdd_all_num=1\n");
    Diagnose();
    EXPECT_EQ(Commands(), (Strings{"memtest -dev mem -lv 1 -tp IMOVE -waitsec 2 /runtime 3600",
                                   "hddtest -dev NO DATA -lv 1 -tp iorandom -wide 204800 "
                                   "-count 1000 -sc 0x80 /runtime 3600"}));
    EXPECT_TRUE(Stepped("[PadiagHddTestExec] Check device_name = [NO DATA]."));
}

TEST_F(PadiagTest, OnlyALeadingOffKeepsATestFromRunning) {
    StubAll("", "echo $2 >> $KVX_data/calls\n");
    Plan(1, "OFFLINE", "", {"off", "OFF", "OFx", "OFF "});
    Diagnose();
    Strings calls = agent_.Lines("data/calls");
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (Strings{"/dev/sda", "/dev/sdc", "mem"}));
    ExpectSteps({"[PadiagCpuTestExec] CpuTest Not Exec.", "[PadiagMemTestExec] Start.",
                 "[PadiagHddTestExec] HddTest(1) Not Exec.",
                 "[PadiagHddTestExec] HddTest(3) Not Exec."});
    Forget();
    agent_.Write(kPadiagSchedule, "[TEST_SCHEDULE]\nhdd_all_num=2\n");
    Diagnose();
    EXPECT_FALSE(agent_.Exists("data/calls")) << "a missing word is OFF";
    ExpectSteps(
        {"[PadiagMemTestExec] MemTest Not Exec.", "[PadiagHddTestExec] HddTest(1) Not Exec."});
}

TEST_F(PadiagTest, AnUnknownLevelRunsNothing) {
    EventPipe pipe(agent_);
    StubAll("", "echo $2 >> $KVX_data/calls\n");
    for (const int level : {4, 0, -1}) {
        Forget();
        Plan(level, "ON", "OFF", {"ON"});
        Diagnose();
        const std::string tail = " Padiag Level Unknown( " + std::to_string(level) + " ).";
        ExpectSteps({"[PadiagCpuTestExec]" + tail, "[PadiagMemTestExec] MemTest Not Exec.",
                     "[PadiagHddTestExec]" + tail, "[PadiagCntlMain] Padiag Diagnosis Ended."});
        EXPECT_EQ(Count("[PadiagMemTestExec] Padiag Level"), 0U);
        EXPECT_FALSE(agent_.Exists("data/calls") || agent_.Exists("log/padiag_cputest_stdout"));
        EXPECT_EQ(pipe.Lines(), Strings{"I1121:Scheduled diagnosis is finished."});
    }
}

TEST_F(PadiagTest, AWholeRunInItsOrder) {
    EventPipe pipe(agent_);
    StubAll();
    Plan(1, "ON", "ON", {"ON"});
    const Result result = Begin().Wait();
    EXPECT_EQ(result.status, 0);
    const std::string get = "[GetMasterStatus] (" + agent_.Path("bin/get agent_status") + ")";
    ExpectSteps(Split(
        "[main] patrol.exe pastart .\n[PadiagCntlMain] Padiag Diagnosis Started.\n" + get +
        " OK End.\n[PadiagSchedCntl] Start.\n[PadiagCpuTestExec] Start.\n[test_exec2] Start.\n"
        "[test_exec2] Padiag Started(CPU).\n[test_exec2] End.\n"
        "[padiag_sdb_event] test = [padiagcpustart].\n[padiag_sdb_event] result = [8].\n"
        "[PadiagCpuTestExec] End.\n[test_exec2] Padiag Started(Memory).\n"
        "[padiag_sdb_event] test = [padiagmemstart].\n[PadiagMemTestExec] End.\n"
        "[PadiagHddTestExec] Check device_name = [/dev/sda].\n[test_exec2] Padiag Started(HDD).\n"
        "[padiag_sdb_event] test = [padiaghddstart].\n[PadiagHddTestExec] End.\n"
        "[PadiagWaitCpuTest] Start.\n[PadiagWaitCpuTest] cputest-> exit_code=0\n"
        "[PadiagWaitCpuTest] Data Research Start(type=2).\n"
        "[padiag_sdb_event] test = [padiagcputest].\n[padiag_sdb_event] result = [2].\n"
        "[PadiagWaitCpuTest] CPU Padiag End\n[PadiagWaitCpuTest] End.\n"
        "[PadiagWaitMemTest] Start.\n[PadiagWaitMemTest] Memory Padiag End\n"
        "[PadiagWaitMemTest] End.\n[PadiagWaitHddTest] Start.\n"
        "[PadiagWaitHddTest] hddtest-> exit_code=0\n[padiag_sdb_event] test = [padiaghddtest].\n"
        "[PadiagWaitHddTest] End.\n[PadiagSchedCntl] hdd_exec_tbl Free.\n"
        "[PadiagCntlMain] Padiag Diagnosis Ended."));
    EXPECT_EQ(History(),
              (Strings{"OK      cputest CPU [1s] pass=0", "OK      memtest Memory [1s] pass=0",
                       "OK      hddtest /dev/sda [1s] pass=0"}));
    EXPECT_EQ(pipe.Lines(), Strings{"I1121:Scheduled diagnosis is finished."});
    EXPECT_FALSE(agent_.Exists(kTrace));
    EXPECT_EQ(agent_.Run({"pastart", "debug"}).status, 0);
    EXPECT_TRUE(agent_.Traced("[PadiagCntlMain] Padiag Diagnosis Ended."));
    EXPECT_EQ(Count("[PadiagCntlMain] Padiag Diagnosis Ended."), 1U);
}

TEST_F(PadiagTest, OutputGoesToAFileOfItsOwnThatIsNotTruncated) {
    const std::string file = "log/padiag_memtest_stdout";
    PlanMemory();
    agent_.Script("memtest",
                  "echo \"$0 $*\"; echo told >&2; stat -c %a $KVX_log/padiag_* "
                  "> $KVX_data/mode; cp $KVX_log/padiag_memtest_stdout $KVX_data/seen");
    Launch launch;
    launch.in_child = [] { umask(0); };
    const Result result = Begin(launch).Wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "told\n") << "the error output is the caller's";
    EXPECT_EQ(agent_.Read("data/seen"),
              agent_.Path("bin/memtest") + " -dev mem -lv 1 -tp IMOVE -waitsec 2 /runtime 3600\n");
    EXPECT_NE(agent_.Read("data/mode").find("644\n"), std::string::npos);
    EXPECT_FALSE(agent_.Exists(file));
    EXPECT_EQ(Last(History()), kAborted);
    agent_.Write(file, "older text\n" + Verdict(3, 2));
    agent_.Script("memtest", "echo new");
    Diagnose();
    EXPECT_EQ(Last(History()), "OK      memtest Memory [1s] pass=0") << "the old tail stays";
    EXPECT_FALSE(agent_.Exists(file));
}

TEST_F(PadiagTest, AProgramThatCannotBeStartedFailsAlone) {
    StubAll();
    Plan(1, "ON", "ON", {"ON", "ON"});
    agent_.MakeDir("log/padiag_memtest_stdout");
    agent_.MakeDir("log/padiag_hddtest_stdout1");
    agent_.Write(kProgress, "[HDD_MAX_LBA]\n");
    agent_.Write(kProgressCopy, "old");
    agent_.Remove("bin/cputest");
    Diagnose();
    ExpectSteps({"[test_exec2] System Call Error (open), errno:21", "[test_exec2] Error End",
                 "[PadiagMemTestExec] Error End.", "[PadiagHddTestExec] Exec Error(sched_cnt=1).",
                 "[PadiagWaitCpuTest] cputest-> exit_code=4",
                 "[PadiagSchedCntl] hdd_exec_tbl Free."});
    EXPECT_EQ(Count("[PadiagWaitMemTest]") + Count("[PadiagWaitHddTest]"), 0U);
    EXPECT_EQ(History(), Strings{"ABORT   cputest CPU [1s] pass=0 cputest aborted."});
    EXPECT_EQ(agent_.Read(kProgressCopy), "old") << "touched though the last disk failed";
}

TEST_F(PadiagTest, EachWayOutOfATestIsTold) {
    PlanMemory();
    Stub("memtest", Verdict(1, 2), "exit 7");
    Launch closed;
    closed.in_child = [] {
        static_cast<void>(close(0) + close(1) + close(2));
        signal(SIGCHLD, SIG_IGN);
    };
    Diagnose(closed);
    EXPECT_TRUE(Stepped("[PadiagWaitMemTest] memtest-> exit_code=7"));
    Stub("memtest", Verdict(1, 2), "kill -KILL $$; sleep 60");
    Diagnose();
    EXPECT_TRUE(Stepped("[PadiagWaitMemTest] memtest-> killed by signal=9"));
    Stub("memtest", Verdict(1, 2), std::string(kUp) + "kill -STOP $$; exit 5");
    Process& process = Begin();
    const std::string stopped = "[PadiagWaitMemTest] memtest-> stopped by signal=19";
    EXPECT_TRUE(Eventually([&] { return Stepped(stopped); }));
    kill(std::stoi(agent_.Read("data/up")), SIGCONT);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({stopped, "[PadiagWaitMemTest] memtest-> exit_code=5"});
    EXPECT_EQ(History(), Strings(3, "OK      memtest Memory [1s] pass=0"));
}

TEST_F(PadiagTest, AnOutputFileThatIsGoneIsLookedForFiveTimes) {
    Plan(3, "OFF", "OFF", {"ON", "ON"});
    agent_.Write("data/a", Verdict(1, 2, "hddtest", "", "0x00000100"));
    agent_.Script("hddtest",
                  "[ $2 = /dev/sdb ] && { rm $KVX_log/padiag_hddtest_stdout1; exit; }\n"
                  "while [ -e $KVX_log/padiag_hddtest_stdout1 ]; do sleep 0.05; done\n"
                  "cat $KVX_data/a");
    Process& process = Begin();
    const std::string tail = ")Not Open " + agent_.Path("log/padiag_hddtest_stdout1") + ".";
    EXPECT_TRUE(Eventually([&] { return Stepped("[PadiagWaitHddTest] (2" + tail); }));
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address", kPadiagSchedule), "0x0000000000000100")
        << "is not in place while the run pauses";
    EXPECT_EQ(process.Wait().status, 0);
    for (const char* number : {"1", "2", "3", "4", "5"}) {
        EXPECT_TRUE(Stepped(std::string("[PadiagWaitHddTest] (") + number + tail));
    }
    EXPECT_EQ(Count("[PadiagWaitHddTest] ("), 5U);
    EXPECT_EQ(History().size(), 1U) << "more than the disk with an output is entered";
}

TEST_F(PadiagTest, AnInterruptionCancelsEveryTestThatWasStarted) {
    agent_.Write("data/hold", "");
    Plan(1, "ON", "ON", {"OFF", "ON"});
    for (const char* name : {"cputest", "memtest", "hddtest"}) {
        Stub(name, "", kHold,
             "trap 'echo $0 >> $KVX_data/stopped; cat $KVX_data/" + std::string(name) +
                 ".verdict; exit 0' INT\n: > $KVX_data/up." + name + "\n");
        agent_.Write("data/" + std::string(name) + ".verdict", Verdict(2, 2, name));
    }
    Process& process = Begin();
    for (const char* name : {"cputest", "memtest", "hddtest"}) {
        EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/up." + std::string(name)); }));
    }
    SignalAt("[PadiagWaitCpuTest] ProcessIdCpu =", SIGHUP);
    EXPECT_EQ(process.Wait().status, 0);
    EXPECT_TRUE(Eventually([&] { return agent_.Lines("data/stopped").size() == 3; }));
    const std::string cancel = " Cancel -> ProcessId = ";
    ExpectSteps(
        {std::string(kCleanUp) + "SIGHUP", "[ptl_clean_up] Cputest" + cancel + PidOf("Cpu"),
         "[ptl_clean_up] Memtest" + cancel + PidOf("Mem"),
         "[ptl_clean_up] Hddtest" + cancel + PidOf("Hdd"),
         "[PadiagWaitCpuTest] waitpid -> Wait_failed.", "[PadiagWaitCpuTest] cputest-> exit_code=0",
         "[PadiagWaitMemTest] memtest-> exit_code=0", "[PadiagCntlMain] Padiag Diagnosis Ended."});
    EXPECT_EQ(History().size(), 3U);
    EXPECT_EQ(Last(History()), "CANCEL  hddtest /dev/sdb [1s] pass=0");
}

TEST_F(PadiagTest, ACancelNamesTestsThatHaveEndedAndLeavesTheOthersOut) {
    agent_.Write("data/hold", "");
    Plan(1, "ON", "ON", {"OFF"});
    Stub("cputest", Verdict(1, 2, "cputest"));
    Stub("memtest", "", kHold, std::string(kListen) + kUp);
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    SignalAt("[PadiagWaitMemTest] ProcessIdMem =", SIGINT);
    // More of them during the pause behind the first neither kill nor hang the run.
    SignalAt("[PadiagWaitMemTest] waitpid -> Wait_failed.", SIGINT);
    process.Signal(SIGHUP);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({"[PadiagWaitCpuTest] End.", std::string(kCleanUp) + "SIGINT",
                 "[ptl_clean_up] Cputest Cancel -> ProcessId = " + PidOf("Cpu"),
                 "[ptl_test_terminate] System Call Error kill , errno:3",
                 "[ptl_clean_up] Memtest Cancel -> ProcessId = " + PidOf("Mem"),
                 "[PadiagWaitMemTest] waitpid -> Wait_failed.",
                 "[PadiagWaitMemTest] memtest-> exit_code=0", "[PadiagWaitMemTest] End.",
                 "[PadiagCntlMain] Padiag Diagnosis Ended."});
    EXPECT_EQ(Count("[ptl_clean_up] Hddtest"), 0U);
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/stopped"); }));
    EXPECT_EQ(Last(History()), kAborted);
}

TEST_F(PadiagTest, EveryFormOfOutputIsReadAsItStands) {
    const std::string ok = "OK      memtest Memory [1s] pass=0", head = Head("0x02", "memtest");
    const std::string cancel = "CANCEL  memtest Memory [1s] pass=0", error = "ERROR" + ok.substr(5);
    const std::string open = Framed(head + "0x01,0x02,0x00000000,part\n"), lost = kAborted;
    const std::string line = std::string(78, '=') + "\n", end = "Memory Padiag End";
    const std::string refused = "check_testdata_head failed.", none = "No Want Data.";
    const std::string research = "Data Research Start(type=2).", body = "0x01,0x02,0x00000000,x\n";
    const struct {
        const char* name;
        std::string output, steps, history;  // several steps or lines stand between "|"
    } cases[] = {
        {"nothing", "", "pass = [0].", lost},
        {"junk", "\n=====\nxONLPTL\n" + Verdict(1, 2) + "=====\n", research + "|" + end, ok},
        {"skipped", Verdict(5, 2), "Memory Padiag Skipped", ok},
        {"aborted", Verdict(6, 2), "Memory Padiag Aborted", "ABORT" + ok.substr(5)},
        {"cancelled", Verdict(2, 3), end, cancel},
        {"failed", Verdict(4, 2, "memtest", "E1 bad"), end, error + "  E1 bad"},
        {"end code 7", Verdict(7, 2), "check_testdata_status failed.", lost},
        {"no result text", Verdict(1, 0), end + "|pass = [0].", ok + "|" + lost},
        {"two verdicts", Verdict(1, 2) + Verdict(2, 2), end + "|" + end, ok + "|" + cancel},
        {"refused inside", open + Framed(Head("0x05")) + line, refused + "|" + end, ok},
        {"short head inside", open + "ONLPTL\n" + line, refused + "|" + end, ok},
        {"refused", Framed(Head("0x02", "memtest", "0x00")) + body + line, refused, lost},
        {"log lines", LogRecord(1, "I0001", "x") + body + line, "Data Research Start(type=1).",
         lost},
        {"other types", HddInfoRecord() + line + ProcessRecord(1) + body + line + Verdict(1, 2),
         none + "|" + none + "|" + research, ok},
        {"unwanted inside", open + HddInfoRecord() + line, research + "|" + none, lost},
        {"progress inside", open + ProgressRecord(0, "memtest") + line, "pass = [1].",
         "ABORT   memtest Memory [1s] pass=1 memtest aborted."},
        {"progress once", Framed(Head("0x03", "memtest") + "5,Pass=4\n9,Pass=8\n") + Verdict(1, 2),
         end, "OK      memtest Memory [5s] pass=4"},
        {"unfinished", open + "====\n", research, lost},
        {"no final line feed", open + "=====", end, ok},
        {"too short", Framed(head + "0x01\n") + line, end, ok + "|" + lost},
        {"pieces of a line", open + std::string(511, 'x') + "=====\n", end, ok},
        {"one piece", open + std::string(510, 'x') + "=====\n", research, lost},
    };
    agent_.Write(kProgress, "new");
    agent_.Write(kProgressCopy, "old");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Judge(c.output);
        Strings steps = Split(c.steps, '|');
        for (std::string& step : steps) step.insert(0, "[PadiagWaitMemTest] ");
        ExpectSteps(steps);
        EXPECT_EQ(History(), Split(c.history, '|'));
        EXPECT_FALSE(agent_.Exists("log/padiag_memtest_stdout"));
    }
    EXPECT_EQ(agent_.Read(kProgressCopy), "old") << "saved though no disk was tested";
}

TEST_F(PadiagTest, ADiskKeepsItsPlaceInItsOwnSection) {
    Plan(3, "OFF", "OFF", {"OFF", "ON", "ON"});
    agent_.SetKey("HDD_SCHEDULE 2", "address", "0x0000000000000020", kPadiagSchedule);
    agent_.Write(kProgress,
                 "[HDD_MAX_LBA]\n/dev/sdb=0x0000000000000100\n/dev/sdc=0x0000000000000080\n"
                 "[HDD_NEXT_LBA]\n/dev/sdb=0x0000000000000100\n/dev/sdc=0x0000000000000040\n");
    agent_.Write(kProgressCopy, "old");
    agent_.Write("data/b", Verdict(1, 2, "hddtest", "", "0x00000100"));
    agent_.Write("data/c", ProgressRecord(3) + Verdict(4, 3, "hddtest", "E3 bad", "0xfedcba98"));
    agent_.Script("hddtest",
                  "ls $KVX_log | grep stdout > $KVX_data/names$(basename $2)\n"
                  "cat $KVX_data/${2#/dev/sd}");
    Diagnose();
    EXPECT_NE(agent_.Read("data/namessdc").find("padiag_hddtest_stdout2\n"), std::string::npos);
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address", kPadiagSchedule), "0x0000000000000000");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "address", kPadiagSchedule), "0x0000000000000100");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 2", "address", kPadiagSchedule), "0x00000000fedcba98");
    EXPECT_EQ(History(), (Strings{"OK      hddtest /dev/sdb [1s] 0[%] -> 100[%](pass=0)",
                                  "ERROR   hddtest /dev/sdc [3s] 25[%] -> 50[%](pass=1)  E3 bad"}));
    EXPECT_EQ(Inode(kProgressCopy), Inode(kProgress)) << "not a link to the progress file";
    EXPECT_FALSE(agent_.Exists(kSchedule));
    // An address without digits is an error, and nothing is entered.
    Forget();
    Plan(1, "OFF", "OFF", {"OFF", "ON", "OFF"});
    agent_.Write("data/b", Verdict(1, 2, "hddtest", "", "oxxxxxxxxx"));
    agent_.Remove(kProgress);
    Diagnose();
    EXPECT_EQ(Count("[check_testdata_status] External Interface Error. data= next address , "), 1U);
    EXPECT_EQ(History(), Strings{"ABORT   hddtest /dev/sdb [1s] pass=0 hddtest aborted."});
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "address", kPadiagSchedule), "0x0000000000000000");
    EXPECT_FALSE(agent_.Exists(kProgressCopy)) << "the old copy goes even without a new one";
}

TEST_F(PadiagTest, AFaultyPartIsReportedAsFoundByThisDiagnosis) {
    agent_.Script("parts", "echo \"$2\" >> $KVX_data/calls\ncp \"$2\" $KVX_data/report");
    agent_.Write("data/devconf_cur.xml", "<dev type=\"Partition\" path=\"3\">\n");
    const std::pair<std::string, std::string> cases[] = {
        {"cputest", "parts_pd_cpu"}, {"memtest", "parts_pd_mem"}, {"hddtest", "parts_pd_hdd.sda"}};
    for (const auto& [program, file] : cases) {
        SCOPED_TRACE(program);
        Forget();
        const auto due = [&, name = program](const char* other) {
            return name == other ? "ON" : "OFF";
        };
        Plan(1, due("cputest"), due("memtest"), {due("hddtest")});
        Stub(program, Verdict(4, 6, program, "E3829 bad"));
        Diagnose();
        EXPECT_EQ(agent_.Read("data/calls"), agent_.Path("temp/" + file) + "\n");
        const std::string report = agent_.Read("data/report");
        const std::string unit = program == "hddtest" ? "HDD;/SCSI/dev/sdx" : "Partition;3";
        EXPECT_EQ(report.substr(report.find('\n') + 1),
                  "LEVEL=1st\nTYPE=error\nMODE=SB\nREFLOG=NONE\nFRU_NUM=1\nFRU1=" + unit +
                      "\nFLAG=diag\nSUMMARY=E3829 bad\nOPERATION=E3890\nDETAIL=I0399:<<Ended>>\n" +
                      ResultBlock(program, "/dev/sdx", "E3829 bad") + "\n\n");
        EXPECT_EQ(History().size(), 1U);
    }
    // 4095 characters are kept, and the closing line counts even when it no longer fits.
    Judge(Framed(Head("0x02", "memtest") + "0x01,0x06,0x00000000,[[[[") +
          Repeat("0123456789\n", 900) + std::string(78, '=') + "\n");
    const std::string report = agent_.Read("data/report");
    EXPECT_EQ(report.substr(report.find("DETAIL=") + 7),
              "[[[[" + Repeat("0123456789\n", 370) + "\n");
    agent_.Script("parts", "exit 1");
    Judge(Verdict(1, 4));
    EXPECT_TRUE(Stepped("[PadiagWaitMemTest] Memory Padiag Error End"));
    EXPECT_NE(agent_.Read(kPadiagTrace).find("[PadiagWaitMemTest] parts_proc err !!"),
              std::string::npos);
}

TEST_F(PadiagTest, AMissingScheduleFileIsRemadeAndNothingRuns) {
    EventPipe pipe(agent_);
    StubAll("", "echo $2 >> $KVX_data/calls\n");
    Diagnose({}, 1);
    ExpectSteps({"[PadiagSchedCntl] Warning:Schedule File Not Found. Schedule File Remade.",
                 "[PadiagSchedCntl] Error End.", "[PadiagCntlMain] Padiag Diagnosis Error Ended."});
    agent_.Remove(kPadiagSchedule);
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(1)));
    agent_.Write("data/padiag.ini", "[cpu]\n1\n[mem]\n1\n[hdd]\n1\n[level]\n2\n[time]\n60\n");
    static_cast<void>(pipe.Lines());
    Forget();
    Diagnose();
    ExpectSteps({"[PadiagSchedCntl] Warning:Schedule File Not Found. Schedule File Remade.",
                 "[PadiagSchedCntl] Success in Remake of Schedule File.",
                 "[PadiagSchedCntl] Normal End.", "[PadiagCntlMain] Padiag Diagnosis Ended."});
    EXPECT_TRUE(agent_.Exists(kPadiagSchedule));
    EXPECT_FALSE(agent_.Exists("data/calls"));
    EXPECT_EQ(pipe.Lines(), Strings());
}

TEST_F(PadiagTest, WithoutTheAgentNothingRuns) {
    EventPipe pipe(agent_);
    PlanMemory();
    agent_.Script("get", "echo 1");
    Diagnose({}, 1);
    EXPECT_TRUE(Stepped("[PadiagCntlMain] Padiag Diagnosis Error Ended."));
    EXPECT_EQ(Count("[PadiagSchedCntl]"), 0U);
    EXPECT_EQ(pipe.Lines(), Strings());
}

}  // namespace
}  // namespace patrol_test
