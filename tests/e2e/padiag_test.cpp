// On-request diagnoses, from the Schedule file to the history.

#include "padiag.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace patrol_test {
namespace {

class PadiagTest : public PadiagFixture {
 protected:
    // The command lines in the order of launch, without the directory of the programs and with "*"
    // for "-dev ".
    Strings Commands() const {
        const std::string start = "[test_exec_init] [exec] " + agent_.Path("bin/");
        Strings commands;
        for (const std::string& line : Steps()) {
            if (line.rfind(start, 0) == 0)
                commands.push_back(Replaced(
                    line.substr(start.size(), line.size() - start.size() - 1), "-dev ", "*"));
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

TEST_F(PadiagTest, CommandLinesFollowTheLevelAndTheParameters) {
    // "@" stands for the level, "!" for the error switch.
    const std::string defaults =
        "[CPUDIAG_PARAM]\\error=ON\\[CPUDIAG_PARAM_LEVEL@]\\![MEMDIAG_PARAM_LEVEL@]\\!"
        "[HDDDIAG_PARAM_LEVEL@]\\!";
    const std::string given =
        "[CPUDIAG_PARAM]\\dbg_modid=0x9\\dbg_point=0x8\\[CPUDIAG_PARAM_LEVEL@]\\dev=c@\\tp=ct@\\"
        "lv=9\\waitusec=1@\\dbg_modid=no\\![MEMDIAG_PARAM_LEVEL@]\\dev=m@\\tp=mt@\\"
        "tp_error=me@\\waitsec=2@\\size=s@\\data=d@\\![HDDDIAG_PARAM_LEVEL@]\\tp=ht@\\sc=0x@\\"
        "wide=3@\\count=4@\\param_error=-p@\\!";
    // The level, the parameters, the switch, hdd_ide, and the three command lines with "*" for
    // "-dev ".
    const char table[] = R"(2|defaults|OFFLINE|1
cputest *CPU -lv 2 -tp instruction+register -waitusec 10000 /runtime 77
memtest *mem -lv 2 -tp WHOLE -size 16MB -waitsec 13 /runtime 77
hddtest */dev/sda -lv 2 -tp iorandom -wide 204800 -count 1000 -sc 0x80 -ide /runtime 77
3|defaults|on|2
cputest *CPU -lv 3 -tp instruction+register -waitusec 50000 -dbg_modid 0x20000 -dbg_point 0x2 /runtime 77
memtest *mem -lv 3 -tp BMOVEX -size 16MB -data all -waitsec 7 /runtime 77
hddtest */dev/sda -lv 3 -tp sector -lba 0x40 -sc 0x80 -debug2
1|given|OFF|2
cputest *c1 -lv 1 -tp ct1 -waitusec 11 /runtime 77
memtest *m1 -lv 1 -tp mt1 -waitsec 21 /runtime 77
hddtest */dev/sda -lv 1 -tp ht1 -wide 31 -count 41 -sc 0x1 /runtime 77
3|given|ON|2
cputest *c3 -lv 3 -tp instruction+register -waitusec 13 -dbg_modid 0x9 -dbg_point 0x8 /runtime 77
memtest *m3 -lv 3 -tp me3 -size s3 -data d3 -waitsec 23 /runtime 77
hddtest */dev/sda -lv 3 -tp ht3 -lba 0x40 -sc 0x3 -p3)";
    StubAll();
    const std::vector<Strings> rows = Rows(table);
    for (size_t i = 0; i < rows.size(); i += 4) {
        const Strings& row = rows[i];
        SCOPED_TRACE(row[0] + row[1]);
        Forget();
        Plan(std::stoi(row[0]), "ON", "ON", {"ON"}, "77");
        agent_.SetKey("HDD_SCHEDULE 0", "hdd_ide", row[3], kPadiagSchedule);
        agent_.SetKey("HDD_SCHEDULE 0", "address", "0x40", kPadiagSchedule);
        const std::string text = Replaced(row[1] == "given" ? given : defaults, "@", row[0]);
        agent_.Write(kParameters, Unescaped(Replaced(text, "!", "error=" + row[2] + "\\")));
        Diagnose();
        EXPECT_EQ(Commands(), (Strings{rows[i + 1][0], rows[i + 2][0], rows[i + 3][0]}));
        EXPECT_TRUE(Stepped("[PadiagCpuTestExec] CpuTest " +
                            std::string(row[2].size() == 2 ? "ErrorMode" : "NormalMode") +
                            " Exec."));
    }
    // A Schedule file without level, time, device and address.
    Forget();
    agent_.Write(kParameters, "");
    agent_.Write(kPadiagSchedule,
                 "[CPU_SCHEDULE]\ncpu=1\n[MEM_SCHEDULE]\nmem=1\n[HDD_SCHEDULE 0]\nhdd=1\n"
                 "[TEST_SCHEDULE]\nhdd_all_num=1\n");
    Diagnose();
    EXPECT_EQ(Commands(),
              (Strings{"cputest *CPU -lv 1 -tp instruction+register -waitusec 10000 /runtime 3600",
                       "memtest *mem -lv 1 -tp IMOVE -waitsec 2 /runtime 3600",
                       "hddtest *NO DATA -lv 1 -tp iorandom -wide 204800 -count 1000 -sc 0x80 "
                       "/runtime 3600"}));
}

TEST_F(PadiagTest, AnUnknownLevelRunsNothing) {
    StubAll("", "echo $2 >> $KVX_data/calls\n");
    for (const char* level : {"4", "0"}) {
        Plan(std::stoi(level), "ON", "OFF", {"OFF", "ON"});
        Diagnose();
        for (const char* kind : {"Cpu", "Hdd"}) {
            EXPECT_TRUE(Stepped(std::string("[Padiag") + kind + "TestExec] Padiag Level Unknown( " +
                                level + " )."));
        }
        EXPECT_FALSE(agent_.Exists("data/calls"));
    }
}

TEST_F(PadiagTest, OutputGoesToAFileOfItsOwnThatIsNotTruncated) {
    const std::string file = "log/padiag_memtest_stdout";
    PlanMemory();
    agent_.Script("memtest",
                  "echo \"$0 $*\"; echo told >&2; stat -c %a $KVX_log/padiag_* "
                  "> $KVX_data/mode; cp $KVX_log/padiag_memtest_stdout $KVX_data/seen");
    Launch launch;
    launch.in_child = [] { umask(0); };
    EXPECT_EQ(Begin(launch).Wait().err, "told\n") << "the error output is the caller's";
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
    agent_.MakeDir(kProgress);
    agent_.Write(kProgressCopy, "old");
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
    EXPECT_EQ(agent_.Read(kProgressCopy), "old") << "lost, though no newer one could be had";
}

TEST_F(PadiagTest, AnInterruptionCancelsTestsThatWereStartedEndedOrNot) {
    agent_.Write("data/hold", "");
    Plan(1, "ON", "OFF", {"OFF", "ON"});
    Stub("cputest", Verdict(1, 2, "cputest"));
    Stub("hddtest", "", kHold, "trap 'cat $KVX_data/verdict; exit 0' INT\n" + std::string(kUp));
    agent_.Write("data/verdict", Verdict(2, 2, "hddtest"));
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    SignalAt("[PadiagWaitHddTest] ProcessIdHdd =", SIGHUP);
    // More of them during the pause behind the first neither kill nor hang the run.
    SignalAt("[PadiagWaitHddTest] waitpid -> Wait_failed.", SIGINT);
    process.Signal(SIGHUP);
    EXPECT_EQ(process.Wait().status, 0);
    ExpectSteps({"[PadiagWaitCpuTest] End.", "[ptl_clean_up] Clean Up Process : SIGHUP",
                 "[ptl_clean_up] Cputest Cancel -> ProcessId = " + PidOf("Cpu"),
                 "[ptl_test_terminate] System Call Error kill , errno:3",
                 "[ptl_clean_up] Hddtest Cancel -> ProcessId = " + PidOf("Hdd"),
                 "[PadiagWaitHddTest] waitpid -> Wait_failed.",
                 "[PadiagWaitHddTest] hddtest-> exit_code=0", "[PadiagWaitHddTest] End.",
                 "[PadiagCntlMain] Padiag Diagnosis Ended."});
    EXPECT_EQ(Count("[ptl_clean_up] Memtest"), 0U) << "was not started";
    EXPECT_EQ(History(),
              (Strings{"OK      cputest CPU [1s] pass=0", "CANCEL  hddtest /dev/sdb [1s] pass=0"}));
}

TEST_F(PadiagTest, AnInterruptionDuringThePartsCommandCancelsWhatRunsAndNothingElse) {
    agent_.Write("data/hold", "");
    Plan(1, "ON", "ON", {});
    Stub("cputest", Verdict(4, 6, "cputest", "E3829 bad"));
    Stub("memtest", "", kHold,
         "trap 'cat $KVX_data/verdict; echo > $KVX_data/stopped; exit 5' INT\n");
    agent_.Write("data/verdict", Verdict(2, 2));
    agent_.Script("parts", kUp + std::string(kHold) + "echo > $KVX_data/done\n");
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    process.Signal(SIGINT);
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/stopped"); }));
    EXPECT_FALSE(Stepped("[PadiagWaitCpuTest] End."));
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 0);
    EXPECT_TRUE(agent_.Exists("data/done"));
    ExpectSteps({"[for parts], (execute) parts-> exit_code=0", "[PadiagWaitCpuTest] End.",
                 "[PadiagWaitMemTest] memtest-> exit_code=5", "[PadiagWaitMemTest] End."});
    EXPECT_EQ(History(), (Strings{"ERROR   cputest CPU [1s] pass=0  E3829 bad",
                                  "CANCEL  memtest Memory [1s] pass=0"}));
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
        {"two verdicts", Verdict(1, 2) + Verdict(2, 2), end + "|" + end, ok + "|" + cancel},
        {"refused inside", open + Framed(Head("0x05")) + line, refused + "|" + end, ok},
        {"log lines", LogRecord(1, "I0001", "x") + body + line, "Data Research Start(type=1).",
         lost},
        {"other types", HddInfoRecord() + line + ProcessRecord(1) + body + line + Verdict(1, 2),
         none + "|" + none + "|" + research, ok},
        {"progress inside", open + ProgressRecord(0, "memtest") + line, "pass = [1].",
         "ABORT   memtest Memory [1s] pass=1 memtest aborted."},
        {"unfinished", open + "====\n", research, lost},
        {"too short", Framed(head + "0x01\n") + line, end, ok + "|" + lost},
        {"pieces of a line", open + std::string(511, 'x') + "=====\n", end, ok},
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
}

// One disk for each place that is a whole percent, and ends where it began.
TEST_F(PadiagTest, StartEventAndHistoryAgreeHowFarADiskIs) {
    constexpr int kPlaces = 99;
    Plan(3, "OFF", "OFF", Strings(kPlaces, "ON"));
    agent_.Write("data/verdict", Verdict(1, 2, "hddtest", "", "0x77777777"));
    agent_.Script("hddtest", "sed s/0x77777777/$(printf 0x%08x $8)/ $KVX_data/verdict");
    std::string most = "[HDD_MAX_LBA]\n", next = "[HDD_NEXT_LBA]\n";
    Strings events, lines;
    for (int n = 1; n <= kPlaces; ++n) {
        const std::string disk = NumberedDisks(n).back().device, percent = std::to_string(n);
        const std::string place = Hex(static_cast<unsigned>(n), 16);
        agent_.SetKey("HDD_SCHEDULE " + std::to_string(n - 1), "address", place, kPadiagSchedule);
        most += disk + "=100\n";
        next += disk + "=" + place + "\n";
        events.push_back("[check_testdata_status] evtlog_msg.progress = [" + percent + "%].");
        lines.push_back("OK      hddtest " + disk + " [1s] " + percent + "[%] -> " + percent +
                        "[%](pass=0)");
    }
    agent_.Write(kProgress, most + next);
    Diagnose();
    EXPECT_EQ(History(), lines);
    ExpectSteps(events);
}

TEST_F(PadiagTest, AFaultyPartIsReportedAsFoundByThisDiagnosis) {
    agent_.Script("parts",
                  "ls -l /proc/$$/fd > $KVX_data/open\necho \"$2\" >> $KVX_data/calls\n"
                  "cp \"$2\" $KVX_data/report");
    agent_.Write("data/devconf_cur.xml", "<dev type=\"Partition\" path=\"3\">\n");
    for (const Strings& row :
         Rows("cputest|parts_pd_cpu|Partition;3\nmemtest|parts_pd_mem|Partition;3\n"
              "hddtest|parts_pd_hdd.sda|HDD;/SCSI/dev/sdx")) {
        Forget();
        const auto due = [&row](const char* program) { return row[0] == program ? "ON" : "OFF"; };
        Plan(1, due("cputest"), due("memtest"), {due("hddtest")});
        Stub(row[0], Verdict(4, 6, row[0], "E3829 bad"));
        Diagnose();
        EXPECT_EQ(agent_.Read("data/calls"), agent_.Path("temp/" + row[1]) + "\n");
        EXPECT_NE(agent_.Read("data/report")
                      .find("\nFRU1=" + row[2] + "\nFLAG=diag\nSUMMARY=E3829 bad\n"),
                  std::string::npos);
        EXPECT_EQ(agent_.Read("data/open").find("_stdout"), std::string::npos) << "handed on";
        EXPECT_NE(agent_.Read(kPadiagTrace).find(" Padiag Error End\n"), std::string::npos);
        EXPECT_EQ(History().size(), 1U);
    }
    // 4095 characters are kept, and the closing line counts even when it no longer fits.
    Judge(Framed(Head("0x02", "memtest") + "0x01,0x06,0x00000000,[[[[") +
          Repeat("0123456789\n", 900) + std::string(78, '=') + "\n");
    const std::string report = agent_.Read("data/report");
    EXPECT_EQ(report.substr(report.find("DETAIL=") + 7),
              "[[[[" + Repeat("0123456789\n", 370) + "\n");
    agent_.Script("parts", "exit 1");
    Judge(Verdict(4, 6));
    EXPECT_EQ(Count("[PadiagWaitMemTest] parts_proc err !!"), 1U);
}

// The other history, which has room, is not touched.
TEST_F(PadiagTest, AResultThatFindsNoRoomGoesToTheAgedHistoryAlone) {
    const std::string full(1048448, 'h'), aged = "log/patstat3.txt";
    Stub("memtest", Verdict(1, 2));
    for (const bool padiag : {true, false}) {
        Forget();
        const char* history = padiag ? kPadiagHistory : kHistory;
        agent_.Write(history, full);
        agent_.Write(aged, "aged\n");
        padiag ? PlanMemory() : PlanOne("memtest");
        padiag ? Diagnose() : PassTest::Pass();
        EXPECT_EQ(agent_.Read(history), full);
        EXPECT_EQ(Masked(Join(agent_.History(aged)), "\\[\\d+s\\]", "[#s]"),
                  std::string("OK      memtest Memory [#s]") + (padiag ? " pass=0\n" : "\n"));
        EXPECT_FALSE(agent_.Exists(padiag ? kHistory : kPadiagHistory));
    }
}

TEST_F(PadiagTest, WithoutTheAgentOrAScheduleNothingRuns) {
    StubAll("", "echo $2 >> $KVX_data/calls\n");
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(1)));
    agent_.Write("data/padiag.ini", "[cpu]\n1\n[mem]\n1\n[hdd]\n1\n[level]\n2\n[time]\n60\n");
    Diagnose();
    ExpectSteps({"[PadiagSchedCntl] Warning:Schedule File Not Found. Schedule File Remade.",
                 "[PadiagSchedCntl] Success in Remake of Schedule File.",
                 "[PadiagSchedCntl] Normal End.", "[PadiagCntlMain] Padiag Diagnosis Ended."});
    EXPECT_TRUE(agent_.Exists(kPadiagSchedule));
    agent_.Remove(kPadiagSchedule);
    agent_.Remove("data/devconf_new.xml");
    EventPipe pipe(agent_);
    Diagnose({}, 1);
    ExpectSteps({"[PadiagSchedCntl] Error End.", "[PadiagCntlMain] Padiag Diagnosis Error Ended."});
    PlanMemory();
    Forget();
    agent_.Script("get", "echo 1");
    Diagnose({}, 1);
    EXPECT_TRUE(Stepped("[PadiagCntlMain] Padiag Diagnosis Error Ended."));
    EXPECT_EQ(pipe.Lines(), Strings());
    EXPECT_FALSE(agent_.Exists("data/calls"));
}

}  // namespace
}  // namespace patrol_test
