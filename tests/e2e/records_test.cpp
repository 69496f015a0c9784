// What the records of a test program do: verdicts, addresses, log lines; and records that are
// wrong.

#include "records.h"

#include <sys/resource.h>

namespace patrol_test {
namespace {

TEST_F(PassTest, StatusRecordsDecideVerdictAndHistory) {
    // End code, flag, text, history, verdict, what the wait returns. The message goes from the
    // first mark to the end of its line, 80 characters at most.
    const std::string table = R"(1|0|^|OK      cputest CPU [1s]|End|1
3|0|^|OK      cputest CPU [1s]|End|3
4|0|^|ERROR   cputest CPU [1s]|Error End|4
5|0|^|OK      cputest CPU [1s]|Skipped|5
6|0|^|ABORT   cputest CPU [1s]|Aborted|6
4|2|^|ERROR   cputest CPU [1s] E3820 bad|End|1
4|6|^|ERROR   cputest CPU [1s] E3820 bad|Error End|4
1|4|^|OK      cputest CPU [1s]|Error End|4
1|2|ERROR   :E1 cut~no\ERROR   : no|OK      cputest CPU [1s]E1 cut|End|1
1|2|ERROR   :@yy|OK      cputest CPU [1s]@|End|1
1|2|in ERROR   : middle %d|OK      cputest CPU [1s] middle %d|End|1
1|2|ERROR  : two blanks|OK      cputest CPU [1s]|End|1)";
    agent_.Script("parts", "echo $2 >> $KVX_data/calls");
    const std::string wait = "[wait_for_testdata] ";
    for (Strings row : Rows(Replaced(table, "@", std::string(80, 'x')))) {
        SCOPED_TRACE(row[0] + ", flag " + row[1] + row[2]);
        Forget();
        Plan("ON", "OFF", {});
        const std::string text = Replaced(row[2], "^", "RESULT\\ERROR   : E3820 bad\\");
        Stub("cputest",
             StatusRecord(std::stoi(row[0]), std::stoi(row[1]), Unescaped(text), "0x00000777"));
        Pass();
        ExpectHistory({row[3]});
        ExpectSteps({wait + "diagnosis end. end code=" + row[5], wait + "CPU Patrol " + row[4],
                     wait + "End.",
                     row[5] < "4" ? "[WaitCpuTest] End." : "[WaitCpuTest] Error End."});
        EXPECT_EQ(agent_.Exists("data/calls"), row[5] == "4");
        EXPECT_EQ(agent_.Read(kSchedule).find("777"), std::string::npos) << "only disks resume";
    }
}

TEST_F(PassTest, NextAddressGoesBackIntoTheSectionOfTheDisk) {
    // The flag, what was sent, and what stands in the file, which was 0x5.
    for (const Strings& row :
         Rows("1|0x12345678|0x0000000012345678\n2|0xffffffff|0x00000000ffffffff\n"
              "3|0000000202|0x0000000000000082\n1|-000000002|0x0000000000000000\n0|0x12345678|0x5\n"
              "3|oxxxxxxxxx|0x5\n4|0x12345678|0x5")) {
        Plan("OFF", "OFF", {"OFF", "OFF", "ON"});
        agent_.SetKey("HDD_SCHEDULE 2", "address", "0x5");
        agent_.SetKey("HDD_SCHEDULE 0", "device_name", "/dev/sdc");  // as disk 2 is called
        Stub("hddtest", StatusRecord(1, std::stoi(row[0]), "", row[1]));
        Pass();
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 2", "address"), row[2]) << row[0] << " " << row[1];
        for (const char* other : {"HDD_SCHEDULE 0", "HDD_SCHEDULE 1"}) {
            EXPECT_EQ(agent_.Key(other, "address"), "0x0000000000000000");
        }
    }
}

TEST_F(PassTest, AnAddressIsInPlaceBeforeThePassIsHeldUp) {
    // What holds the pass up behind the first disk: a disk that is to report, one that has reported
    // and goes on, and the system log. The second disk answers before the first.
    const std::string done = StatusRecord(3, 1, "", "0x00000040"), hold(kHold);
    const std::string old = std::string(kSchedule) + ".old";
    agent_.Write("data/a", done);
    agent_.Write("data/b", LogRecord(2, "E0809", "end") + done);
    for (const std::string& second :
         {hold + "cat $KVX_data/a", "cat $KVX_data/a; > $KVX_data/up; " + hold,
          std::string("> $SYSTEM_LOG.busy; cat $KVX_data/b; > $KVX_data/up")}) {
        SCOPED_TRACE(second);
        Forget();
        Plan("OFF", "OFF", {"ON", "ON"});
        // Nothing is enabled, so that nothing is written after the tests.
        agent_.Write(kSchedule, Replaced(agent_.Read(kSchedule), "_exe=ON", "_exe=OFF"));
        agent_.Write("data/hold", "");
        agent_.Script(
            "hddtest",
            "if [ $2 = /dev/sdb ]; then " + second + "\nexit; fi\n" +
                (second[0] == 'n' ? "" : "until [ -e $KVX_data/up ]; do sleep 0.05; done\n") +
                "cat $KVX_data/a");
        Process& process = Begin();
        EXPECT_TRUE(Eventually([&] {
            return agent_.Key("HDD_SCHEDULE 0", "address") == "0x0000000000000040";
        })) << "a kill would lose what the disk has reported";
        EXPECT_FALSE(Stepped("[cntl_main] Patrol Diagnosis Ended."));
        agent_.Remove("data/hold");
        agent_.Remove("system_log.busy");
        EXPECT_EQ(process.Wait().status, 0);
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "address"), "0x0000000000000040");
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address", old), "0x0000000000000040");
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "address", old), "0x0000000000000000");
    }
}

TEST_F(PassTest, LogRecordsGoWhereTheirLevelSays) {
    EventPipe pipe(agent_);
    const std::string a106(106, 'a');
    Plan("OFF", "OFF", {"ON"});
    // A group of system log lines empties their file, and is marked at its end.
    agent_.Write("log/pat_sys.log", "older\n");
    Stub("hddtest", LogRecord(2, "I0807", "begin") + LogRecord(1, "E3820", "to, both, \r") +
                        LogRecord(2, "E0809", "end") + LogRecord(1, "W2825", "warns %s%n%d") +
                        LogRecord(1, "I0399", "event only") + LogRecord(1, "00000", "trace ,, ") +
                        LogRecord(2, "00000", "no number") + LogRecord(2, "I0400", a106 + "bbb") +
                        LogRecord(1, "W\nEVI", "\x1b[5mone\b\tline\x7f \xc3\xa4\v") +
                        LogRecord(3, "E3820", "wrong level") + StatusRecord(1));
    Pass();
    const std::string clean = "[5mone\tline \xc3\xa4\n";
    EXPECT_EQ(Join(pipe.Lines()),
              "E3820:to, both\nW2825:warns %s%n%d\nI0399:event only\nWEVI:" + clean);
    EXPECT_EQ(agent_.Read("log/pat_sys.log"),
              "I0807: begin\nE3820: to, both\nE0809:ZQWNkvx end\nW2825: warns %s%n%d\n"
              "no number\nI0400: " +
                  a106 + "\nWEVI: " + clean);
    const std::string line = agent_.Read("log/pat_trc0.log");
    EXPECT_EQ(line.substr(line.find(',') + 1), Pad(kStamp, 25) + "," + Pad("/dev/sda", 20) +
                                                   ",L1000," + Pad("hddtest", 16) + ",trace\n");
    EXPECT_EQ(Count("[check_testdata_log] External Interface Error. data= message output"), 1U);
    EXPECT_EQ(Count("[check_testdata_log] End."), 9U);
}

TEST_F(PassTest, AResultTextIsLoggedWholeWithoutCarriageReturns) {
    const std::string line(3000, 'r');
    Plan("ON", "OFF", {});
    Stub("cputest", StatusRecord(1, 2, "one\r\ntwo %s\r\nERROR   :\x1b[5mE1\tx\b\x7f\n" + line));
    Pass();
    const std::string log = agent_.Read("log/pat_trc0.log");
    EXPECT_NE(log.find("L1000,"), std::string::npos);
    EXPECT_NE(log.find(",one\ntwo %s\nERROR   :\x1b[5mE1\tx\b\x7f\n" + line + "\n"),
              std::string::npos)
        << log;
    ExpectHistory({"OK      cputest CPU [1s][5mE1\tx"});
}

TEST_F(PassTest, ProgressSetsTheRunTimeThatTheHistoryShows) {
    Plan("OFF", "ON", {});
    Stub("memtest",
         Framed(Head("0x03") + "no comma here\n") + ProgressRecord(500) + StatusRecord(1));
    Pass();
    EXPECT_EQ(Masked(First(agent_.History()), "5[0-9]{2}s", "5##s"),
              "OK      memtest Memory [5##s]");
}

std::string LengthAs(const std::string& ten_characters) {
    return "ONLPTL," + ten_characters + "," + Head("0x02") + StatusBody(1, 0, "");
}

TEST_F(PassTest, WrongAndRightRecordsAreToldApart) {
    const std::string wait = "[wait_for_testdata] ";
    const std::string foreign = wait + "Received data does not begin with ONLPTL. tp=CPU";
    const std::string ok = StatusRecord(1), good = wait + "CPU Patrol End";
    const std::string failed = wait + "read() failed. data_size= ", error = wait + "Error End.";
    const std::string head = "[check_testdata_head] External Interface Error. data= transmit ";
    const std::string bad_type = head + "type , error value= 0x0 buff=";
    const size_t size = ok.size() - 18;
    const struct {
        std::string what, records;
        Strings steps;
        char fate;  // 's' the program was stopped, 'l' it was left alone, ' ' it ended well
    } cases[] = {
        {"nothing", "", {failed + "0.", error}, 'l'},
        {"body cut", ok.substr(0, ok.size() - 1), {failed + "66.", error}, 'l'},
        {"cut after a record",
         LogRecord(2, "I0001", std::string(40, 'x')) + "ONLPTL",
         {wait + "data_size=123", "[check_testdata_log] End.", failed + "123.", error},
         'l'},
        {"out of step", "1234567" + ok, {foreign, foreign, error}, 'l'},
        {"binary", std::string(90, '\0') + ok, {foreign, foreign, foreign, foreign, good}, ' '},
        {"decimal length", LengthAs("        " + std::to_string(size)), {good}, ' '},
        {"zero length", "ONLPTL,0x00000000,", {bad_type + "."}, 's'},
        {"length below a header", Framed("0x02,0x01"), {error}, 's'},
        {"negative length", LengthAs("-000000067"), {failed + "0.", error}, 'l'},
        {"length too large", LengthAs("0xffffffff"), {error}, 'l'},
        {"length beyond the memory", "ONLPTL,0x3fffffff,abc", {failed + "3.", error}, 'l'},
        {"body beyond the memory",
         "ONLPTL,0x20000000," + std::string(33 << 20, 'x'),
         {wait + "System Call Error (malloc), errno:12", wait + " size      : 536870913 byte(s)",
          error},
         'l'},
        {"long body", StatusRecord(1, 0, std::string(2 << 20, 'x')), {good}, ' '},
        {"type 5", Framed(Head("0x05") + "body\n"), {bad_type + "0x05.", error}, 's'},
        {"no lines",
         Framed(Head("0x02", "cputest", "0x00")),
         {head + "lines , error value= 0x0.", error},
         's'},
        {"end code 7", StatusRecord(7), {error}, 's'},
        {"no flag", Framed(Head("0x02") + "0x01"), {good}, ' '},
        {"disk information is dropped",
         HddInfoRecord() + ok,
         {"[check_testdata_head] transmit type= 4(0x04).",
          "[check_testdata_head] transmit type= 2(0x02).", good},
         ' '},
        {"process records",
         ProcessRecord(1) + ProcessRecord(2) + ProcessRecord(3) + ok,
         {wait + "Data Research Start(type=8).",
          wait + "Change-of-generation of log is executed in diagnosis parts.", good},
         ' '},
        {"after the status record", ok + "rubbish", {good}, ' '},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Launch launch;
        // What the heap hands out is full of "4", which would make a flag and a faulty part.
        launch.env["GLIBC_TUNABLES"] =
            "glibc.malloc.tcache_count=0:glibc.malloc.perturb=" + std::to_string(0xff - '4');
        if (c.what.find("beyond") != std::string::npos) {
            if (kSanitized) continue;
            launch.in_child = [] {
                const rlimit memory = {48 << 20, 48 << 20};
                setrlimit(RLIMIT_AS, &memory);
            };
        }
        Forget();
        Plan("ON", "OFF", {});
        if (c.fate != ' ') agent_.Write("data/hold", "");
        Stub(
            "cputest", c.records,
            c.fate == 's' ? kHold : std::string(kClosePipe) + kHold + "echo lived > $KVX_data/up\n",
            c.fate == ' ' ? "" : kListen);
        Pass(launch);
        ExpectSteps(c.steps);
        if (c.fate == 's') {
            ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/stopped"); }));
        }
        agent_.Remove("data/hold");
        if (c.fate == 'l') {
            ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); })) << "was stopped";
        }
        EXPECT_EQ(agent_.History().size(), c.fate == ' ' ? 1U : 0U);
        EXPECT_EQ(Count("[WaitCpuTest] Error End."), c.fate == ' ' ? 0U : 1U);
        EXPECT_FALSE(Stepped("[wait_for_testdata] Data Research Start(type=4)."));
        EXPECT_TRUE(Stepped("[cntl_main] Patrol Diagnosis Ended."));
    }
}

TEST_F(PassTest, AStreamLargerThanAPipeComesWholeAndInOrder) {
    std::string records, lines;
    for (unsigned i = 0; records.size() < 2U * 65536U; ++i) {
        const std::string text = Hex(i, 8) + std::string(90, '.');
        records += LogRecord(2, "00000", text);
        lines += text + "\n";
    }
    Plan("OFF", "ON", {"ON"});
    agent_.Write("data/hold", "");
    Stub("memtest", StatusRecord(1), "", kHold);  // meanwhile the disk's pipe fills up
    Stub("hddtest", records + StatusRecord(1));
    Process& process = Begin();
    EXPECT_TRUE(Eventually([&] { return Stepped("[WaitMemTest] Start."); }));
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 0);
    EXPECT_EQ(agent_.Read("log/pat_sys.log"), lines);
    ExpectHistory({"OK      memtest Memory [#s]", "OK      hddtest /dev/sda [#s]"});
}

}  // namespace
}  // namespace patrol_test
