// Commands that are run as tests, by themselves and through the controller.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <regex>

#include "testprog.h"

namespace patrol_test {
namespace {

class ExternalTestTest : public TestProgramTest {
 protected:
    // The settings "ext_NAME.ini".
    void Settings(const std::string& text, const std::string& name = "it") const {
        agent_.Write("data/ext_" + name + ".ini", text);
        fs::permissions(agent_.Path("data/ext_" + name + ".ini"), fs::perms(0644));
    }
    // What a cputest says whose command is that shell script.
    Said RunScript(const std::string& script, const std::string& settings = "",
                   const std::string& words = "") {
        agent_.Script("it", script);
        Settings("[TEST]\ncommand=it\n" + settings);
        return RunProgram("cputest", "-tp ext:it" + (words.empty() ? "" : " " + words));
    }
};

TEST_F(ExternalTestTest, ExitStatusAndOutputDecideHowTheTestEnded) {
    const char table[] = R"(echo a; echo b >&2|ok=0|0x01|
exit 6|ok=1 5-7|0x01|
echo worse; exit 2|ng=2|0x04|exit status 2: worse
kill -9 $$|ng=signal|0x04|ended by signal 9
echo no memory; exit 1|skip=1|0x05|exit status 1: no memory
exit 3||0x06|exit status 3
kill -9 $$|ok=0-255|0x06|ended by signal 9
echo FAILURE: bit 3; echo done|ng_pattern=^FAIL(URE)?:|0x04|FAILURE: bit 3
echo not here; exit 1|skip_pattern=not here|0x05|not here
echo PASS|ok_pattern=^PASS$|0x01|
echo all PASS; exit 0|ok_pattern=^PASS$|0x06|the output does not say that all is well, exit status 0: all PASS
printf 'setting\b\b\b\b\b\b\bok\033\001\rcut'|ng_pattern=^ok$|0x04|ok
sleep 600|limit=1|0x06|not at its end after 1 s
exit|ok=zero|0x05|setting "ok" is no list of exit statuses
exit|seconds=soon|0x05|a time in the settings is no number of seconds
exit|command=it {foo}|0x05|setting "command" has a brace or quote that does not fit
exit|command=it "|0x05|setting "command" has a brace or quote that does not fit
exit|command=no-such-program|0x05|cannot run no-such-program: No such file or directory
exit|ng_pattern=(|0x05|setting "ng_pattern": Unmatched ( or \()";
    for (const Strings& c : Rows(table)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        const bool own = c[1].rfind("command=", 0) == 0;
        const Said said = RunScript(c[0], own ? "[LEVEL 0]\n" + c[1] : c[1]);
        EXPECT_EQ(said.status().substr(0, 4), c[2]);
        EXPECT_EQ(said.error, c[3]);
    }
    EXPECT_EQ(RunScript("seq 12").Lines("DETAIL  : "), Split("3\n4\n5\n6\n7\n8\n9\n10\n11\n12"));
    EXPECT_EQ(RunScript("true", "title=Yes").Lines("TITLE   : "), Strings{"Yes"});
    EXPECT_EQ(RunScript("true", "ok_pattern=" + std::string(20000, '(')).error,
              "setting \"ok_pattern\": a pattern has 1000 characters at the most");
    EXPECT_EQ(RunScript("true", "", "-dbg_modid 1 -dbg_point 2").error,
              "the test was asked to fail");
    // The program that does nothing else.
    fs::create_symlink(TESTPROG_DIR "/adapter", agent_.Path("bin/adapter"));
    EXPECT_EQ(RunProgram("adapter", "-dev mem -tp ext:it -dbg_point 2").Lines("PROGRAM : "),
              Strings{"memtest"});
    EXPECT_EQ(RunProgram("adapter", "-dev mem -tp BMOVE").error,
              "option \"-tp\" names no command, as ext:NAME");
    // A second has room for two rounds, except where the machine is very busy.
    int rounds = 0;
    for (int seconds = 1; rounds < 2 && seconds < 100; seconds *= 4) {
        const Said said = RunScript("sleep 0.1", "", "/runtime " + std::to_string(seconds));
        std::smatch m;
        if (std::regex_search(said.status(), m, std::regex("RESULT  : .* \\( PASS: +(\\d+)"))) {
            rounds = std::stoi(m[1]);
        }
    }
    EXPECT_GT(rounds, 1);
}

TEST_F(ExternalTestTest, SettingsAreTakenFromTheNearestSection) {
    Settings(R"(; a comment
[TEST]
command=echo all {level} {size} "{seconds}  s" {{}
size=1M
[LEVEL 1]
command = echo one {level}
[/dev/sd*]
command=echo disk {name} {lba} {sc}
[/dev/sda LEVEL 1]
command=echo {device} {level}
[/dev/sd? LEVEL 1]
command=echo late
)");
    const char table[] = R"(cputest|-lv 0|all 0 1M 60  s {}
memtest|-lv 2 -size 7MB /runtime 0 -data all -waitsec 0|all 2 7MB 60  s {}
cputest|-lv 1 -waitusec 1|one 1
hddtest|-dev /dev/sdb -log 9 -gen 2 -lba 0x50 -sc 0x40 -retry 1 -ide|disk sdb 0x50 0x40|0x00000050
hddtest|-lv 1 -dev /dev/sda -count 5 -wide 9|/dev/sda 1
hddtest|-lv 1 -dev /dev/sdb|late)";
    for (const Strings& c : Rows(table)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        const Said said = RunProgram(c[0], "/tp ext:it " + c[1]);
        EXPECT_EQ(said.Lines("DETAIL  : "), Strings{c[2]});
        EXPECT_EQ(said.status().substr(10, 10), c[3].empty() ? "0x00000000" : c[3]);
        EXPECT_EQ(said.Lines("PROGRAM : "), Strings{c[0]});
    }
    const std::string file = agent_.Path("data/ext_it.ini");
    Settings("[LEVEL 9]\ncommand=true\n", "none");
    EXPECT_EQ(RunProgram("memtest", "-tp ext:none").error, "no command for mem at level 0");
    EXPECT_EQ(RunProgram("memtest", "-tp ext:../it").error,
              "option \"-tp\" with a wrong name \"../it\"");
    EXPECT_EQ(RunProgram("memtest", "-tp ext:it -write").error, "unknown option \"-write\"");
    EXPECT_EQ(RunProgram("cputest", "-tp ext:it -tp Register").exit_status, 0) << "the last counts";
    fs::permissions(file, fs::perms(0664));
    EXPECT_EQ(RunProgram("memtest", "-tp ext:it").error, file + " may be written by others");
    fs::remove(file);
    EXPECT_EQ(RunProgram("memtest", "-tp ext:it").error,
              "cannot read " + file + ": No such file or directory");
}

TEST_F(ExternalTestTest, ACommandTellsItsProgressAndIsStoppedInOrder) {
    // It passes no signal over, holds no descriptor of the controller, and leaves nobody behind.
    agent_.Script(
        "it",
        "setsid sleep 600 &\necho $! > $KVX_data/left\n[ -e /proc/$$/fd/9 ] && echo leak\n"
        "trap 'echo once more' INT\ntrap 'echo enough; exit 5' TERM\n"
        "echo 42% done\nwhile :; do sleep 0.05; done\n");
    Settings("[TEST]\ncommand=it\nprogress_pattern=^([0-9]+)%\ngrace=1\n");
    Launch launch;
    launch.in_child = [] { dup2(STDOUT_FILENO, 9); };
    const auto process = StartProgram("memtest", "-tp ext:it", launch);
    EXPECT_TRUE(Eventually(
        [&] { return agent_.Read("program1.out").find("0x00,0x2a,Pass=0") != std::string::npos; }));
    process->Signal(SIGINT);
    const Said said = Listen(*process);
    EXPECT_EQ(said.status().substr(0, 10), "0x02,0x02,");
    EXPECT_TRUE(InOrder(said.Lines("DETAIL  : "), {"42% done", "once more", "enough"}));
    EXPECT_EQ(said.exit_status, 0);
    const int left = std::stoi(agent_.Read("data/left"));
    EXPECT_TRUE(Eventually([&] { return kill(left, 0) != 0; }));
    // Percent that are left, and a command that nothing but SIGKILL ends when its time is over.
    const Said deaf = RunScript("trap '' INT TERM\necho 30 left\nwhile :; do sleep 0.05; done\n",
                                "remaining_pattern=([0-9]+) left\ngrace=0\n", "/runtime 1");
    EXPECT_EQ(deaf.Progress(3).back(), 70UL);
    EXPECT_EQ(deaf.status().substr(0, 10), "0x01,0x02,");
}

TEST_F(ExternalTestTest, ALineInTheSettingsChoosesACommand) {
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(1)));
    agent_.Write("data/pat_new_para.ini", "[CPUDIAG_PARAM]\n[HDDDIAG_PARAM]\n");
    agent_.Write("data/pat_env0.ini",
                 "[CPUDIAG_EXE]\nON\n[CPUDIAG_TEST]\next:it\n[MEMDIAG_EXE]\nOFF\n"
                 "[HDDDIAG_EXE]\nON\n[HDDDIAG_TEST]\next:it\n");
    Settings(
        "[TEST]\ncommand=sh -c \"echo bad {device} {lba}; exit {code}\"\ncode=1\nng=1\n"
        "[/dev/sda]\ncode=0\n");
    agent_.Remove(kSchedule);
    EXPECT_EQ(agent_.Run({"reload"}).status, 0);
    agent_.SetKey("HDD_SCHEDULE 0", "address", "0x0000000000000123");
    Forget();
    Pass();
    EXPECT_EQ(std::regex_replace(Join(agent_.History()), std::regex("\\d+s"), "#s"),
              "OK      hddtest /dev/sda [#s]\n"
              "ERROR   cputest CPU [#s] exit status 1: bad CPU\n");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address"), "0x0000000000000123");
    EXPECT_TRUE(InOrder(agent_.Log(), {"DETAIL  : bad /dev/sda 0x0000000000000123"}));
}

TEST_F(ExternalTestTest, TheSelfTestOfADriveIsStartedLookedAfterAndReported) {
    const fs::path samples = fs::path(TEST_PROGRAMS_DOCUMENT).parent_path() / "../samples";
    fs::copy_file(samples / "bin/smart_selftest", agent_.Path("bin/smart_selftest"));
    // Each look is answered by the next file, the last one again and again.
    agent_.Script("smartctl",
                  "cd $KVX_data/looks\ncase $1 in\n-t) echo $* >> ../calls; [ ! -e ../no ] || "
                  "{ echo No self-tests; exit 4; }; exit ;;\n-X) echo $* >> ../calls; exit "
                  ";;\n--json) exit ;;\nesac\n"
                  "cat $(ls | head -n 1)\n[ $(ls | wc -l) -eq 1 ] || rm $(ls | head -n 1)\n");
    const std::string ata = "ata_smart_data.self_test.status.value = ",
                      ata_log =
                          ";\nata_smart_self_test_log.standard.table[0].type.value = 1"
                          ";\nata_smart_self_test_log.standard.table[1].type.value = 2"
                          ";\nata_smart_self_test_log.standard.table[1].lifetime_hours = ",
                      nvme = "nvme_self_test_log.current_self_test_operation.value = ",
                      nvme_left = ";\nnvme_self_test_log.current_self_test_completion_percent = ",
                      nvme_log =
                          ";\nnvme_self_test_log.table[0].self_test_code.value = 2"
                          ";\nnvme_self_test_log.table[0].power_on_hours = 7"
                          ";\nnvme_self_test_log.table[0].self_test_result.value = ",
                      scsi =
                          "scsi_self_test_0.power_on_time.hours = 60"
                          ";\nscsi_self_test_0.result.value = ";
    const std::string start = "-t long /dev/sda\n", passed = "the self-test passed",
                      failed = "exit status 1: the self-test FAILED";
    const struct {
        Strings looks;
        std::string calls, code, said;
        unsigned long percent;
    } cases[] = {
        {{ata + "0", ata + "249", ata + "244", ata + "0" + ata_log + "70"}, start, "3", passed, 60},
        {{ata + "0" + ata_log + "65530"},
         "",
         "3",
         "the last long self-test passed 76 hours ago",
         0},
        {{ata + "25" + ata_log + "69", ata + "121"}, start, "4", failed, 0},
        {{ata + "121" + ata_log + "69"}, "", "4", failed, 0},
        {{ata + "241"}, "", "3", "the self-test goes on in the drive", 90},
        {{nvme + "2" + nvme_left + "30" + nvme_log + "6", nvme + "0" + nvme_log + "6"},
         "",
         "4",
         failed,
         0},
        {{nvme + "0" + nvme_log + "0", nvme + "2" + nvme_left + "30", nvme + "0" + nvme_log + "0"},
         "",
         "3",
         "the last long self-test passed 63 hours ago",
         0},
        {{scsi + "0"}, "", "3", "the last long self-test passed 10 hours ago", 0},
        {{scsi + "15", scsi + "4"}, "", "4", failed, 0},
        {{"smartctl.exit_status = 2"}, "", "5", "exit status 2: /dev/sda has no self-tests", 0}};
    const std::string sample = ReadFile(samples / "data/ext_smart-long.ini");
    const std::regex pause(" 168\n"), seconds("seconds=10\n");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.looks[0]);
        const bool long_one = c.looks.size() == 1 && c.percent > 0;
        Settings(std::regex_replace(std::regex_replace(sample, pause, " 168 0.3\n"), seconds,
                                    long_one ? "seconds=0\nlimit=60\n" : "seconds=60\n"));
        for (const char* file : {"data/looks", "data/calls"}) agent_.Remove(file);
        agent_.MakeDir("data/looks");
        for (size_t i = 0; i < c.looks.size(); ++i) {
            const std::string text = "power_on_time.hours = 70;\n" + c.looks[i] + ";\n";
            agent_.Write("data/looks/" + std::to_string(i),
                         std::regex_replace(text, std::regex("(^|\n)(?=.)"), "$1json."));
        }
        const Said said = RunProgram("hddtest", "-dev /dev/sda -tp ext:it");
        EXPECT_EQ(said.status().substr(3, 1), c.code);
        EXPECT_EQ(c.code == "3" ? Last(said.Lines("DETAIL  : ")) : said.error, c.said);
        EXPECT_EQ(agent_.Read("data/calls"), c.calls);
        const Numbers percents = said.Progress(3);
        EXPECT_EQ(*std::max_element(percents.begin(), percents.end()), c.percent);
    }
}

}  // namespace
}  // namespace patrol_test
