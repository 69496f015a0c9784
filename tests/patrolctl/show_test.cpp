// What patrolctl shows of an agent directory that the controller has made.

#include <sys/stat.h>

#include <filesystem>

#include "patrolctl.h"

namespace patrol_test {
namespace {

constexpr char kReport[] =
    "TIME=2026-01-02T03:04:05TIME=2026-01-02T03:04:05+00:00\nFRU1=HDD;/SCSI/dev/sda\nFLAG=patrol\n"
    "SUMMARY=block 0x20 is bad\nOPERATION=E3890\nDETAIL=[[[[\n";

// Three disks and a schedule.
class ShowTest : public PatrolctlTest {
 protected:
    void SetUp() override {
        agent_.Write("data/pat_env0.ini", PatrolSettings("ON", "ON", "ON"));
        agent_.Write("data/padiag.ini",
                     "[cpu]\non\n[mem]\noff\n[hdd]\noff\n[level]\n1\n[time]\n9\n");
        agent_.Write("data/pat_new_para.ini",
                     "[CPUDIAG_PARAM]\n[MEMDIAG_PARAM]\n[HDDDIAG_PARAM]\n");
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(3)));
        ASSERT_EQ(agent_.Run({"reload"}).status, 0);
    }
};

// Results of all five kinds, a fault that was reported, and an on-request history that has aged,
// all by the controller.
class LivedTest : public ShowTest {
 protected:
    void SetUp() override {
        ShowTest::SetUp();
        agent_.Script("parts", "exit 3");
        const auto end = [](int code, int flags, const std::string& device, const char* error) {
            return StatusRecord(code, flags, ResultBlock("hddtest", device, error), "0x00000800");
        };
        agent_.Write("data/sda.records", end(4, 6, "/dev/sda", "block 0x20 is bad"));
        agent_.Write("data/sdb.records", end(2, 2, "/dev/sdb", ""));
        agent_.Write("data/sdc.records", end(6, 2, "/dev/sdc", "no such device"));
        agent_.Script("hddtest",
                      "while [ $1 != -dev ]; do shift; done\ncat $KVX_data/${2#/dev/}.records");
        Stub("cputest", StatusRecord(1, 2, "[[[[\n====="));
        Stub("memtest", "", "sleep 2");
        agent_.SetKey("TEST_SCHEDULE", "mem_timeout", "1");
        // Large enough to age, and from before the results to come.
        agent_.Write(
            "log/pastat.txt",
            Repeat("2020/02/03 04:05:06 OK      memtest Memory [7s] pass=2\n", 20000) +
                "2020/02/03 04:05:07 ERROR   hddtest /dev/sdb [8s] 3[%] -> 5[%](pass=0) x\n");
        for (const char* mode : {"start", "start", "pastart"}) {
            ASSERT_EQ(agent_.Run({mode}).status, 0);
        }
        EXPECT_EQ(agent_.Lines("log/patstat3.txt").size(), 1U);
        // What the address of the third counts is not known.
        agent_.Write("data/lba_outfile.ini",
                     "[HDD_MAX_LBA]\n/dev/sda=0x0000000000002000\n/dev/sdc=0x00000000c0000000\n");
        // 18 TB, whose addresses count 16 blocks each.
        std::filesystem::create_directories(agent_.Path("root/sys/class/block/sdb"));
        agent_.Write("root/sys/class/block/sdb/size", "35156250007\n");
        agent_.SetKey("HDD_SCHEDULE 1", "address", "0x0000000041000000");
    }
};

TEST_F(LivedTest, ShowsComponentsResultsFaultsAndTurns) {
    ExpectGolden("status.txt", Shown({"status"}));
    ExpectGolden("status.json", Shown({"status", "--json"}));
    ExpectGolden("check.txt", Shown({"check", kNoAge}, 2));
    ExpectGolden("check.json", Shown({"check", kNoAge, "--json"}, 2));
    ExpectGolden("metrics.txt", Shown({"metrics"}));
    ExpectGolden("faults.txt", Shown({"faults"}));
    ExpectGolden("faults.json", Shown({"faults", "--json"}));
    ExpectGolden("history.txt", Shown({"history", "--since", "1h"}));
    ExpectGolden("history.json",
                 Shown({"history", "--failed", "--component", "/dev/sdb", "--json"}));
    for (const std::string time : {"2020-02-03T05:05:07+01:00", "20200203T050507.9+0100"}) {
        EXPECT_EQ(Split(Shown({"history", "--since=" + time, "--component=hdd"})).size(), 5U);
    }
    Shown({"history", "--since", "T00:00"});
    EXPECT_EQ(Shown({"--json", "history", "--since=2020-02-03", "--component=mem"}),
              Shown({"history", "--component=memtest", "--json"}));
    EXPECT_EQ(Shown({"check", "--npd"}, 1).find("fault "), 0U);

    const std::string promtool = "promtool check metrics < " + agent_.Path("metrics");
    agent_.Write("metrics", Shown({"metrics"}));
    if (system("command -v promtool > /dev/null") != 0) {
        GTEST_SKIP() << "promtool (package prometheus) is not there to judge the metrics";
    }
    EXPECT_EQ(system((promtool + " > " + agent_.Path("promtool") + " 2>&1").c_str()), 0)
        << agent_.Read("promtool");
}

TEST_F(ShowTest, ClearsAFaultThatIsGone) {
    agent_.Write("temp/parts_pt_hdd.sda", kReport);
    agent_.Write("temp/parts_pt_hdd.sda_bak", kReport);
    EXPECT_NE(Ctl({"faults", "clear", "parts_pt_cpu"}).err.find("no fault"), std::string::npos);
    EXPECT_NE(Shown({"status"}).find("Fault parts_pt_hdd.sda of /dev/sda is open: block 0x20"),
              std::string::npos);
    EXPECT_EQ(Shown({"faults", "clear", "parts_pt_hdd.sda"}), "Cleared parts_pt_hdd.sda.\n");
    EXPECT_EQ(Shown({"faults"}), "No fault is open.\n");
    EXPECT_FALSE(agent_.Exists("temp/parts_pt_hdd.sda_bak"));
    agent_.MakeDir("data/faults");
    const std::string stored =
        "{\"version\":1,\"id\":\"cpu\",\"kind\":\"CPU\",\"fru\":\"Partition;0\",\"count\":2,"
        "\"first\":\"2026-01-01T00:00:00+00:00\",\"last\":\"2026-01-02T00:00:00+00:00\"}";
    agent_.Write("data/faults/cpu.json", stored);
    EXPECT_NE(Shown({"status"}).find("Fault cpu of CPU is open"), std::string::npos);
    EXPECT_EQ(Shown({"faults", "clear", "cpu", "--json"}), "{\n  \"cleared\": \"cpu\"\n}\n");
    EXPECT_FALSE(agent_.Exists("data/faults/cpu.json"));
    agent_.Write("data/faults/cpu.json", stored);
    Shown({"faults", "clear", "cpu"});
    // None takes the place of the other, whatever second it is.
    EXPECT_EQ(system(("test $(cat " + agent_.Path("data/faults/cleared") +
                      "/cpu.*.json | grep -o CPU | wc -l) = 2")
                         .c_str()),
              0);
    agent_.Remove("data/faults/cleared");
    agent_.Write("data/faults/cpu.json", "damaged");
    Shown({"faults", "clear", "cpu"});
    EXPECT_NE(Ctl({"faults", "clear", "../pat_env0"}).err.find("no fault"), std::string::npos);
    agent_.Remove("data/faults/cleared");
    agent_.Write("data/faults/cpu.json", stored);
    ASSERT_EQ(symlink(agent_.Path("log").c_str(), agent_.Path("data/faults/cleared").c_str()), 0);
    EXPECT_NE(Ctl({"faults", "clear", "cpu"}).err.find("cannot be moved aside"), std::string::npos);
    EXPECT_TRUE(agent_.Exists("data/faults/cpu.json"));
}

// Asking changes nothing, not even the time of a file.
TEST_F(LivedTest, LeavesEveryFileAlone) {
    const auto files = [&] {
        EXPECT_EQ(system(("cd " + agent_.Path() +
                          " && find data log temp bin -printf '%p %s %T@ %i\n' "
                          "| sort > files")
                             .c_str()),
                  0);
        return agent_.Read("files");
    };
    const std::string before = files();
    for (const char* command :
         {"status", "next", "history", "faults", "check", "metrics", "doctor"}) {
        Ctl({command});
    }
    Shown({"report", "-o", "-"});
    EXPECT_EQ(files(), before);
}

// What files say reaches neither the terminal, nor JSON, a page or a label, as anything but text.
TEST_F(ShowTest, EscapesTextsFromFiles) {
    const std::string evil = "<b>&\x1b[31m\"\\\xff\xc2\x9b\x7f";
    agent_.Write("log/patstat0.txt", "2026/01/02 03:04:05 ERROR   cputest CPU [1s] " + evil + "\n");
    agent_.SetKey("HDD_SCHEDULE 0", "serial_number", evil);
    for (const char* command : {"status", "history", "check", "faults", "next", "metrics"}) {
        const std::string text = Ctl({command}).out;
        EXPECT_EQ(text.find_first_of("\x1b\xff\x9b\x7f"), std::string::npos) << command;
    }
    EXPECT_NE(Shown({"history"}).find(R"(<b>&\x1b[31m"\\xff\xc2\x9b\x7f)"), std::string::npos);
    EXPECT_NE(Shown({"history", "--json"}).find(R"(<b>&\u001b[31m\"\\\ufffd\u009b\u007f)"),
              std::string::npos);
    EXPECT_NE(Shown({"metrics"}).find("serial=\"<b>&\xEF\xBF\xBD[31m\\\"\\\\\xEF\xBF\xBD"),
              std::string::npos);
    const std::string page = Shown({"report", "-o", "-"});
    EXPECT_NE(page.find("&lt;b&gt;&amp;\xEF\xBF\xBD[31m&quot;\\\xEF\xBF\xBD"), std::string::npos);
    EXPECT_EQ(page.find_first_of("\x1b\xff\x9b\x7f"), std::string::npos);
}

// The page needs no network and no script, and has a mark for each kind of result.
TEST_F(LivedTest, WritesAPageThatStandsAlone) {
    const std::string path = agent_.Path("page.html");
    Shown({"report", "-o", path});
    const std::string page = ReadFile(path);
    for (const char* part :
         {"<svg", "rect class=\"error\"", "rect class=\"late\"", "rect class=\"cancel\"",
          "block 0x20 is bad", "parts_pt_hdd.sda", "name=\"viewport\"", "@media print"}) {
        EXPECT_NE(page.find(part), std::string::npos) << part;
    }
    for (const char* part : {"<script", "http", "src=", "@import", "url("}) {
        EXPECT_EQ(page.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(Ctl({"report", "-o", agent_.Path("none/page.html")}).status, 1);
    // A link, such as "/dev/stdout", is written through.
    ASSERT_EQ(symlink(path.c_str(), agent_.Path("link").c_str()), 0);
    agent_.Write("page.html", "");
    Shown({"report", "-o", agent_.Path("link")});
    EXPECT_EQ(ReadFile(path).find("<!DOCTYPE html>"), 0U);
}

TEST_F(ShowTest, FindsTheDirectoriesInOptionsThenVariablesThenTheFile) {
    agent_.Write(kHistory, "2026/01/02 03:04:05 OK      cputest CPU [1s]\n");
    agent_.MakeDir("root/etc");
    agent_.MakeDir("root/etc/patrol");
    agent_.Write("root/etc/patrol/environment",
                 "# comment\nKVX_data=\"" + agent_.Path("data") + "\"\n KVX_log = /none\n");
    Launch launch;
    launch.env = {{"KVX_data", ""}, {"KVX_log", std::nullopt}};
    // What cannot be seen is not said to be none, and what is wrong is said once.
    const Result result = Ctl({"history"}, launch);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "patrolctl: /none: cannot be read: No such file or directory\n");
    EXPECT_NE(Ctl({"history", "--log", agent_.Path("log")}, launch).out.find("CPU"),
              std::string::npos);
    EXPECT_EQ(Ctl({"next", "--data=/none"}, launch).out, "");
    EXPECT_EQ(Ctl({"doctor", "--data=/none"}, launch).out.find("/none/"), std::string::npos);
    agent_.Remove("root/etc/patrol/environment");
    agent_.MakeDir("root/etc/patrol/environment");
    const Result lost = Ctl({"check"}, launch);
    EXPECT_EQ(lost.status, 3);
    EXPECT_NE(lost.out.find("environment, which is a directory, or"), std::string::npos);
    // The sentence on the whole stands first, even where both outputs are one.
    launch.in_child = [] { dup2(STDOUT_FILENO, STDERR_FILENO); };
    EXPECT_EQ(Ctl({"status", "--data=/none", "--log=/none"}, launch).out.find("/none: cannot"), 0U);
}

// The exit status and the sentence of each state that is not well.
TEST_F(ShowTest, WarnsOfWhatIsNotWell) {
    const auto result = [](const std::string& word, const std::string& text) {
        return "2026/01/02 03:04:05 " + word + " cputest CPU [1s]" + text + "\n";
    };
    const std::string rest =
        "2026/01/02 03:04:05 OK      memtest Memory [1s]\n"
        "2026/01/02 03:04:05 OK      hddtest /dev/sda [1s]\n"
        "2026/01/02 03:04:05 OK      hddtest /dev/sdb [1s]\n"
        "2026/01/02 03:04:05 OK      hddtest /dev/sdc [1s]\n";
    const struct {
        std::string history;
        std::vector<std::string> words;
        int status;
        const char* sentence;
    } rows[] = {
        {result("OK     ", "") + rest, {"check", kNoAge}, 0, "all well with 5 components"},
        {result("OK     ", "") + rest, {"check"}, 1, "CPU has no result for"},
        {result("ERROR  ", " x") + rest, {"check", kNoAge}, 2, "CPU failed: x"},
        {result("ABORT  ", " x") + rest, {"check", kNoAge}, 1, "CPU was aborted: x"},
        {result("TIMEOUT", "") + rest, {"check", kNoAge}, 1, "CPU did not end in time"},
        {result("OK     ", " busy") + rest, {"check", kNoAge}, 1, "CPU was not tested: busy"},
        {result("OK     ", " busy") + rest, {"check", kNoAge, "--npd"}, 0, "CPU was not tested"},
        {rest, {"check"}, 1, "CPU has no result yet"},
        {"", {"check", kNoAge}, 1, "nothing has run yet"},
        {"2026/01/02 03:04:05 OK      cpute", {"check", kNoAge}, 3, "line 1 is no result"},
        {result("ERROR  ", "") + "?\n", {"check", kNoAge}, 2, "CPU failed"},
        {result("OK     ", "") + "?\n", {"check", kNoAge, "--npd"}, 2, "line 2 is no result"},
    };
    for (const auto& row : rows) {
        agent_.Write(kHistory, row.history);
        const Result found = Ctl(row.words);
        EXPECT_EQ(found.status, row.status) << row.sentence;
        EXPECT_NE(found.out.find(row.sentence), std::string::npos) << found.out;
    }
    // Nobody waits for a component that is switched off.
    agent_.Write(kHistory, result("ABORT  ", " x") + rest);
    agent_.SetKey("CPU_SCHEDULE", "cpu_exe", "OFF");
    Shown({"check", kNoAge});
    agent_.Write(kTrace,
                 "2026/01/02 03:04:05 7 host ():[cntl_main] Patrol Diagnosis Error Ended.\n");
    EXPECT_NE(Shown({"check", kNoAge}, 1).find("the last pass ended with an error"),
              std::string::npos);
    agent_.Write(kTrace,
                 "x:[GetMasterStatus] (get agent_status) Not OK End.\n" + agent_.Read(kTrace));
    EXPECT_NE(Shown({"check", kNoAge}, 1).find("the agent was not ready"), std::string::npos);
    agent_.Remove(kSchedule);
    EXPECT_NE(Shown({"check", kNoAge}, 1).find("there is no schedule"), std::string::npos);
    // A failure is one whether the schedule can be read or not.
    agent_.Write(kHistory, result("ERROR  ", " x") + rest);
    Shown({"check", kNoAge}, 2);
    agent_.MakeDir(kSchedule);
    EXPECT_NE(Shown({"check", kNoAge}, 2).find("CPU failed: x"), std::string::npos);
}

TEST_F(ShowTest, SaysWhatIsRunningAndWhatKeepsPassesAway) {
    agent_.Write("data/hold", "");
    Stub("cputest", ProgressRecord(3), kHold, kUp);
    agent_.SetKey("TEST_SCHEDULE", "time", "6", "data/pat_sche2.txt");
    const auto request = agent_.Start({"pastart"});
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("data/up"); }));
    // Whatever name the folder of the programs goes by.
    ASSERT_EQ(symlink(agent_.Path("bin").c_str(), agent_.Path("link").c_str()), 0);
    EXPECT_TRUE(Eventually([&] {
        const Result status = Ctl({"status", "--bin", agent_.Path("link")});
        return status.out.find("\ncputest  CPU     ") != std::string::npos;
    }));
    agent_.Remove("data/hold");
    EXPECT_EQ(request->Wait().status, 0);

    agent_.Script("get", "echo '1 hold: the fan in slot 2 is'; echo '  being replaced'");
    const std::string text = Shown({"status"});
    EXPECT_NE(text.find("HOLD  hold: the fan in slot 2 is being replaced\n"), std::string::npos)
        << text;
    EXPECT_NE(Shown({"status", "--json"}).find("\"word\": \"hold\""), std::string::npos);
    agent_.Remove("bin/get");
    agent_.Write("hold", "the file's reason\n");
    EXPECT_NE(Shown({"status"}).find("passes are kept away: the file's reason."),
              std::string::npos);
}

// The passes that are foretold are those that come.
class NextTest : public PatrolctlTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(NextTest, ForetellsThePasses) {
    constexpr int kPasses = 6;
    agent_.Write("data/pat_env0.ini", PatrolSettings("ON", "ON", "ON"));
    agent_.Write("data/pat_new_para.ini", std::string("[HDDDIAG_PARAM]\nmax=") + GetParam() + "\n");
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(5)));
    ASSERT_EQ(agent_.Run({"reload"}).status, 0);
    for (const char* program : {"cputest", "memtest", "hddtest"}) Stub(program, StatusRecord(1));
    const std::vector<std::string> foretold = Split(Shown({"next", std::to_string(kPasses)}));
    ASSERT_EQ(foretold.size(), size_t{kPasses});
    for (int pass = 1; pass <= kPasses; ++pass) {
        agent_.Remove(kHistory);
        ASSERT_EQ(agent_.Run({"start"}).status, 0);
        std::string tested = "pass " + std::to_string(pass) + ":";
        std::string disks;
        for (const std::string& line : agent_.History()) {
            const std::string device = Split(line, ' ')[7];
            (line.find(" hddtest ") == std::string::npos ? tested : disks) += " " + device;
        }
        EXPECT_EQ(tested + disks, foretold[static_cast<size_t>(pass - 1)]);
    }
    EXPECT_EQ(Split(Shown({"next", "2", "--json"}), '[').size(), 4U);
}

INSTANTIATE_TEST_SUITE_P(Limits, NextTest, ::testing::Values("128", "2", "1"));

TEST_F(PatrolctlTest, SuggestsTheWordThatWasMeant) {
    const struct {
        std::vector<std::string> words;
        const char* says;
    } rows[] = {
        {{"rnu"}, "there is no command \"rnu\". Did you mean \"run\"?"},
        {{"status", "--jsno"}, "no option \"--jsno\" of \"status\". Did you mean \"--json\"?"},
        {{"metrics", "--json"}, "no option \"--json\" of \"metrics\".\n"},
        {{"--json", "metrics"}, "no option \"--json\" of \"metrics\"."},
        {{"history", "--since", "2026-02-30"}, "neither a time"},
        {{"status", "all"}, "no argument \"all\" of \"status\"."},
        {{"-o", "x", "report"}, "\"-o\" goes after \"report\"."},
        {{"faults", "clear", ""}, "is empty"},
        {{"validate", "--"}, "takes a file, or"},
        {{"validate", "x", "--", "true"}, "takes a file, or"},
        {{"faults", "claer", "x"}, "Did you mean \"clear\"?"},
        {{"history", "--since", "yesterday"}, "neither a time"},
        {{"check", "--max-age", "x"}, "no age"},
        {{"run", "4"}, "not in range"},
        {{"run", "--kinds", "cpu,net"}, "\"net\" is none of"},
        {{"report"}, "required"},
        {{"x\x1b[31m"}, "\"x\\x1b[31m\""},
        {{}, "patrolctl [OPTIONS]"},
    };
    for (const auto& row : rows) {
        const Result result = Ctl(row.words);
        EXPECT_EQ(result.status, 64) << row.says;
        EXPECT_EQ(result.out, "") << row.says;
        EXPECT_NE(result.err.find(row.says), std::string::npos) << result.err;
    }
    EXPECT_EQ(Ctl({"--help"}).status, 0);
    EXPECT_EQ(Ctl({"run", "--help"}).status, 0);
}

// The completion offers what there is.
TEST_F(PatrolctlTest, CompletesCommandsAndOptions) {
    const auto complete = [&](const std::string& words, int at) {
        const std::string script =
            "source " PATROLCTL_SOURCE "/completion.bash; patrolctl() { cat " + agent_.Path("ids") +
            "; }; COMP_WORDS=(" + words + "); COMP_CWORD=" + std::to_string(at) +
            "; _patrolctl; echo \"${COMPREPLY[@]}\"";
        const std::string out = agent_.Path("completed");
        EXPECT_EQ(system(("bash -c '" + script + "' > " + out).c_str()), 0);
        return ReadFile(out);
    };
    EXPECT_EQ(complete("patrolctl sta", 1), "status\n");
    EXPECT_EQ(complete("patrolctl check --m", 2), "--max-age\n");
    EXPECT_EQ(complete("patrolctl run --kinds m", 3), "mem\n");
    // Whoever may name a file has no command run.
    agent_.Write("ids",
                 "    \"id\": \"cpu\",\n    \"id\": \"$(touch " + agent_.Path("x") + ")\",\n");
    EXPECT_EQ(complete("patrolctl faults clear \"\"", 3), "cpu\n");
    EXPECT_FALSE(agent_.Exists("x"));
    // Whatever it offers for a command is an option of it.
    for (const std::string& command : Split(complete("patrolctl \"\"", 1), ' ')) {
        if (command[0] == '-') continue;
        const std::string help = Ctl({command, "--help"}).out + Ctl({"--help"}).out;
        for (const std::string& word : Split(complete("patrolctl " + command + " --", 2), ' ')) {
            const std::string option = word.substr(0, word.find('\n'));
            EXPECT_TRUE(option.size() < 3 || help.find(option) != help.npos) << option;
        }
    }
}

// Colours stand on a terminal alone, and not where they are not wanted.
TEST_F(PatrolctlTest, ColoursOnlyATerminal) {
    agent_.Write(kHistory, "2026/01/02 03:04:05 ERROR   cputest CPU [1s]\n");
    const auto coloured = [&](const std::vector<std::string>& words, const char* wish) {
        Terminal terminal;
        Launch launch = terminal.For(STDOUT_FILENO);
        launch.env["NO_COLOR"] = wish;
        EXPECT_EQ(Ctl(words, launch).status, 0);
        EXPECT_TRUE(terminal.Shows("ERROR"));
        return terminal.Shows("\x1b[31mERROR");
    };
    EXPECT_TRUE(coloured({"history"}, ""));
    EXPECT_FALSE(coloured({"history", "--no-color"}, ""));
    EXPECT_FALSE(coloured({"history"}, "1"));
    EXPECT_EQ(Shown({"history"}).find('\x1b'), std::string::npos);
}

// The controller speaks to a person at a terminal, and to nobody else.
TEST_F(PatrolctlTest, ControllerTellsATerminalWhatIsWrong) {
    const struct {
        std::vector<std::string> words;
        Env env;
        int status;
        const char* says;
    } rows[] = {
        {{"--help"}, {}, 3, "usage: patrol.exe {KVXstart|"},
        {{"reload"}, {{"KVX_log", std::nullopt}}, 1, "variable KVX_log is not set"},
        {{"reload"}, {{"KVX_data", std::nullopt}}, 1, "variable KVX_data is not set"},
        {{"start"}, {{"KVX_bin", std::nullopt}}, 1, "variable KVX_bin is not set"},
        {{"-h"}, {}, 3, "usage: patrol.exe {KVXstart|"},
        {{"reload"}, {{"KVX_data", "/none"}}, 1, "catalogue /none/pat_msge.txt cannot be read: No"},
    };
    for (const auto& row : rows) {
        Terminal terminal;
        Launch launch = terminal.For(STDERR_FILENO);
        launch.env.insert(row.env.begin(), row.env.end());
        EXPECT_EQ(agent_.Run(row.words, launch).status, row.status);
        EXPECT_TRUE(terminal.Shows(row.says)) << terminal.Text();
        launch.in_child = {};
        const Result quiet = agent_.Run(row.words, launch);
        EXPECT_EQ(quiet.out + quiet.err, "");
    }
}

}  // namespace
}  // namespace patrol_test
