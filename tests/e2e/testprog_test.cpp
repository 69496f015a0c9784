// The test programs as they are built: by themselves, in a patrol pass and on request.

#include "testprog.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/loop.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <thread>

namespace patrol_test {
namespace {

constexpr char kBits[] = "BMOVE offset 0xaaa8: expected # got #";
constexpr char kAnswer[] = "processor # fp reg 0000: expected # got #";

// A text without what differs from run to run; of an error line, what the history has of it.
std::string Masked(std::string text) {
    for (const std::string before : {"processor ", "\\[", "pass="}) {
        text = std::regex_replace(text, std::regex("(" + before + ")\\d+(?!\\[)"), "$1#");
    }
    text = std::regex_replace(text, std::regex("(expected |got )0x[0-9a-f]+"), "$1#");
    return std::regex_replace(text, std::regex("(got #|SIGILL|uncorrectable error),[^\n]*"), "$1");
}

TEST_F(TestProgramTest, EachEndHasItsExactRecordAndExitStatus) {
    const char table[] =
        R"(cputest|-tp INSTRUCTION+register+Cache|OK
cputest|/gen 4 -waitusec 1 /runtime 0 -tp Register -log 512 /lv 0 -dev C0|OK
memtest|-data 0x123+7+0XFF -size 65kb -tp WHOLE+IMOVE -gen 0 -dev m /waitsec 0|OK
hddtest|-sc 0x1 -ide -lba 0x10 -retry 1 -tp SECTOR -dev /dev/sda -budget 0|OK|0x00000011
hddtest|-lba 7 -lv 2 -count 9 -wide 1 -tp IoRandom -dev /dev/sda|OK|0x00000007
hddtest|-dev /dev/sda -lba 0xfc1|COMPLETED
hddtest|-dev /dev/sda -lv 3|COMPLETED|0x00001000
cputest|-dbg_modid 0x10000 -dbg_point 1|NG||processor # add: expected # got #
cputest|-tp cache -dbg_point 0x2 -dbg_modid 0x20000 -log 9|NG||processor # fp reg 0000: expected # got #
memtest|-size 64KB -tp IMOVE+imovex -data 0|NG||IMOVE offset 0xaaa8: expected # got #
memtest|-data 0x1234 -size 64KB -tp WHOLEX -gen 4|NG||WHOLE offset 0x5550: expected # got #
memtest|-data 1 -size 64KB -tp BMOVEX -dbg_trap|NG||BMOVE offset 0x5000: uncorrectable error
cputest|-dbg_modid 0x10000 -dbg_point 2 -dbg_trap -affinity|NG||processor # shift: SIGILL
hddtest|-tp iorandom -debug2 -wide 8 -dev /dev/sda -sc 8 -lba 8 -seed 7|NG|0x00000008|iorandom read error at block 0x0000000c: Input/output error, seed 0x00000007
cputest|-lv 0 -lv 256|SKIP||option "-lv" with a wrong value "256"
cputest|-dev C1 -tp|SKIP||option "-tp" without a value
memtest|-tp BMOVE+XMOVE|SKIP||option "-tp" with an unknown test "XMOVE"
memtest|-size 63KB|SKIP||option "-size" with a wrong value "63KB"
memtest|-size 0x100000001GB|SKIP||option "-size" with a wrong value "0x100000001GB"
cputest|-seed 0x100000000|SKIP||option "-seed" with a wrong value "0x100000000"
memtest|-data 0x1+all|SKIP||option "-data" with a wrong value "0x1+all"
hddtest|-dev /dev/sda -lba 0x55 -write|SKIP|0x00000055|unknown option "-write"
hddtest|-sc 0 -dev /dev/sda|SKIP||option "-sc" with a wrong value "0"
hddtest|-lba 5|SKIP|0x00000005|option "-dev" is missing
hddtest|-dev /dev/null|SKIP||/dev/null is no disk)";
    const std::map<std::string, std::string> codes = {{"OK", "0x01,0x02,"},
                                                      {"COMPLETED", "0x03,0x02,"},
                                                      {"NG", "0x04,0x06,"},
                                                      {"SKIP", "0x05,0x02,"}};
    for (const Strings& c : Rows(table)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        const Said said = RunProgram(c[0], c[1]);
        EXPECT_EQ(said.status().substr(0, 20),
                  codes.at(c[2]) + (c[3].empty() ? "0x00000000" : c[3]));
        EXPECT_NE(said.status().find("\nRESULT  : " + c[2] + " ( PASS:  "), std::string::npos);
        EXPECT_EQ(Masked(said.error), c[4]);
        EXPECT_EQ(said.exit_status, c[2] == "NG" ? 1 : c[2] == "SKIP" ? 2 : 0);
        const bool read = c[0] == "hddtest" && c[2] != "SKIP";
        const std::string info = "0x00001000,0x0200,0x00," + Pad("", 16) + ",    \n";
        EXPECT_EQ(said.records.at(1).body == info, read);
    }
    const std::string line = std::string(61, '-') + "\n";
    const std::string words = "-lba 0x100 -debug2 -dev /dev/sda -seed 7 ";
    EXPECT_EQ(RunProgram("hddtest", words + "-log 1 -lv 1 /runtime 61").status(),
              "0x04,0x06,0x00000140,[[[[ PATROL DIAGNOSIS RESULT ]]]]\n" + line +
                  "PROGRAM : hddtest\nTITLE   : Disk diagnosis\nDEVICE  : /dev/sda\n"
                  "OPTION  : LEVEL 1\n          TIME  2 [MINUTE]\nRESULT  : NG ( PASS:  0 )\n"
                  "ERROR   : sector read error at block 0x00000120: Input/output error, seed "
                  "0x00000007\n" +
                  line + "I0399:<<hddtest Error Ended>>\n" + std::string(78, '=') + "\n");
    EXPECT_EQ(RunProgram("memtest", "-size 64KB").status().substr(21, 34),
              "[[[[ DIAGNOSIS RESULT ]]]]       \n");
}

TEST_F(TestProgramTest, ASeedRepeatsARunAndErrorsTellWhatASecondLookGave) {
    const std::string number = "0x[0-9a-f]+", seeded = "(, seed 0x[0-9a-f]{8})";
    const std::pair<const char*, std::regex> cases[] = {
        {"memtest|-size 64KB -tp BMOVEX",
         std::regex("(BMOVE offset 0xaaa8: expected " + number + " got (" + number +
                    "), again \\2)(, physical " + number + ")?" + seeded)},
        {"cputest|-dbg_modid 0x20000 -dbg_point 3",
         std::regex("(processor \\d+ register ffff: expected " + number + " got (" + number +
                    "), again \\2)()" + seeded)},
        {"cputest|-tp cache -dbg_modid 0x40000 -dbg_point 1",
         std::regex("(processor \\d+ walk \\d+[KM]/8: expected " + number + " got (" + number +
                    "), again \\2)()" + seeded)}};
    for (const auto& [words, form] : cases) {
        const Strings command = Split(words, '|');
        std::map<std::string, std::string> said;  // by the seed
        for (const char* seed : {"", "", " -seed 0x5", " -seed 5"}) {
            const std::string error = RunProgram(command[0], command[1] + seed).error;
            std::smatch m;
            ASSERT_TRUE(std::regex_match(error, m, form)) << error;
            EXPECT_TRUE(said.count(m[4]) == 0 || said[m[4]] == m[1]) << error;
            said[m[4]] = m[1];
        }
        EXPECT_EQ(said.size(), 3U) << words;
        EXPECT_EQ(said.count(", seed 0x00000005"), 1U);
        EXPECT_NE(agent_.Read("log/" + command[0] + ".0.log").find(", seed 0x00000005\n"),
                  std::string::npos);
    }
}

TEST_F(TestProgramTest, OnlyMemoryThatCanBeLockedIsTested) {
    if (kSanitized) GTEST_SKIP() << "sanitizers make locking do nothing";
    const auto with_limit = [](rlim_t bytes) {
        Launch launch;
        launch.in_child = [bytes] {
            const rlimit limit = {bytes, bytes};
            prctl(PR_CAPBSET_DROP, CAP_IPC_LOCK, 0, 0, 0);
            setrlimit(RLIMIT_MEMLOCK, &limit);
        };
        return launch;
    };
    const Said none = Listen(*StartProgram("memtest", "-size 100KB", with_limit(4096)));
    EXPECT_EQ(none.error.substr(0, 27), "no memory could be locked: ") << none.error;
    EXPECT_EQ(none.exit_status, 2);
    EXPECT_EQ(none.Logged("00000"), Strings()) << "the reason says it all";
    const std::string words = "-size 1MB -tp BMOVEX -log 9 -data 0";
    const Said some = Listen(*StartProgram("memtest", words, with_limit(192 << 10)));
    // A bit of the upper half is spoilt: of 192 KiB.
    EXPECT_EQ(Masked(some.error), "BMOVE offset 0x20000: expected # got #");
    EXPECT_NE(some.records.at(1).body.find(",only the 196608 bytes of an area"), std::string::npos);
}

TEST_F(TestProgramTest, WithoutASizeOtherFramesAreTestedInEachRun) {
    std::vector<unsigned long> tested;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(RunProgram("memtest", "-budget 1").exit_status, 0);
        std::smatch m;
        const std::string map = agent_.Read("data/memtest_frames").substr(0, 200);
        ASSERT_TRUE(std::regex_search(map, m, std::regex("\ntested=(\\d+)\n"))) << map;
        tested.push_back(std::stoul(m[1]));
    }
    if (tested[0] == 0) GTEST_SKIP() << "the system does not tell the numbers of frames here";
    EXPECT_GT(tested[1], tested[0]);
    const std::regex line("\\d+ % of the memory tested since \\d{4}-\\d\\d-\\d\\d");
    EXPECT_TRUE(std::regex_search(agent_.Read("log/memtest.0.log"), line));
    Launch closed;
    closed.in_child = [] { close(STDOUT_FILENO); };
    EXPECT_EQ(StartProgram("memtest", "-budget 0", closed)->Wait().status, 4);
    EXPECT_EQ(agent_.Read("data/memtest_frames").find("ONLPTL"), std::string::npos);
}

TEST_F(TestProgramTest, ControlCharactersNeverTravel) {
    const Said said = RunProgram("hddtest", "-dev /dev/\x1b[1mx\n=====\ty");
    EXPECT_EQ(said.error, "cannot open /dev/[1mx=====y: No such file or directory");
    EXPECT_NE(said.status().find("\nDEVICE  : /dev/[1mx=====y\n"), std::string::npos);
    EXPECT_EQ(said.records.back().device, "/dev/[1mx=====y ");
    EXPECT_EQ(agent_.Lines("log/hddtest___1mx_______y.0.log").size(), 2U);
}

TEST_F(TestProgramTest, AnInterruptEndsPauseAndWorkWithWhatWasDone) {
    // The next address, and how much of a round is done after one step; the last rows are at work.
    const char table[] = R"(cputest|-tp register -waitsec 600 /runtime 600|0x00000000|0
memtest|-size 64KB -waitsec 600 -tp WHOLE+IMOVE -data 1+2+3|0x00000000|11
hddtest|-dev /dev/sda -lba 0x100 -sc 8 -waitsec 600|0x00000108|6
cputest|-tp cache -lv 4 /runtime 600
memtest|-tp WHOLE -size 32MB -lv 3 /runtime 600
hddtest|-tp iorandom -dev /dev/sda /runtime 600)";
    for (const Strings& c : Rows(table)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        const std::unique_ptr<Process> process = StartProgram(c[0], c[1]);
        EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(process->pid())), 19);
        EXPECT_EQ(syscall(SYS_ioprio_get, 1, process->pid()) >> 13, 3) << "not the idle class";
        const std::string proc = "/proc/" + std::to_string(process->pid());
        EXPECT_EQ(ReadFile(proc + "/oom_score_adj"), "1000\n");
        const auto begin = std::chrono::steady_clock::now();
        process->Signal(SIGINT);
        const Said said = Listen(*process);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
        EXPECT_EQ(said.exit_status, 0);
        EXPECT_EQ(said.status().substr(0, 10), "0x02,0x02,");
        if (c[3].empty()) continue;
        EXPECT_EQ(said.status().substr(10, 10), c[2]);
        EXPECT_NE(said.status().find("\nRESULT  : CANCEL ( PASS:  0 )\n"), std::string::npos);
        EXPECT_EQ(std::to_string(said.Progress(3).back()), c[3]);
    }
}

TEST_F(TestProgramTest, ProgressComesEverySecondUntilTheTimeIsOver) {
    const char* const words[] = {"-size 64KB -waitusec 20000 /runtime 3",
                                 "-dev /dev/sda -sc 1 -waitsec 600 /runtime 3",
                                 "-tp register -waitsec 600 /runtime 3"};
    std::vector<std::unique_ptr<Process>> processes;
    for (size_t i = 0; i < 3; ++i) {
        processes.push_back(StartProgram(kPrograms[i], words[i]));
        Lift(*processes.back());
    }
    for (const auto& process : processes) {
        const Said said = Listen(*process);
        EXPECT_EQ(said.status().substr(0, 10), "0x01,0x02,");
        EXPECT_NE(said.status().find("\n          TIME  1 [MINUTE]\n"), std::string::npos);
        EXPECT_EQ(said.Progress(1), Numbers(said.Progress(1).size(), 3)) << "the limit";
        Numbers seconds = said.Progress(0);
        seconds.erase(std::unique(seconds.begin(), seconds.end()), seconds.end());
        EXPECT_EQ(seconds, (Numbers{0, 1, 2, 3}));
    }
}

TEST_F(TestProgramTest, EveryProcessorIsTestedInItsTurn) {
    cpu_set_t own, set;
    ASSERT_EQ(sched_getaffinity(0, sizeof own, &own), 0);
    Launch small;  // a thread needs more than this stack
    small.in_child = [] {
        const rlimit limit = {128 << 10, 128 << 10};
        setrlimit(RLIMIT_STACK, &limit);
    };
    const auto process =
        StartProgram("cputest", "-tp instruction -waitusec 9000 /runtime 600", small);
    for (int i = 0, left = 4; i < CPU_SETSIZE && left > 0; ++i) {
        if (!CPU_ISSET(i, &own)) continue;
        --left;
        EXPECT_TRUE(Eventually([&] {
            return sched_getaffinity(process->pid(), sizeof set, &set) == 0 &&
                   CPU_COUNT(&set) == 1 && CPU_ISSET(i, &set);
        })) << i;
    }
    if (CPU_COUNT(&own) < 2) return;
    // Each run begins with another one; the last level with all at once, which no pause holds up.
    const std::string spoilt = "-tp register -waitsec 600 -affinity -dbg_modid 0x20000 -dbg_point ";
    Strings errors;
    for (const char* words : {"1 -seed 0", "1 -seed 1", "3 -lv 3"}) {
        const std::string error = RunProgram("cputest", spoilt + words).error;
        errors.push_back(error.substr(0, error.find(" reg")));
    }
    EXPECT_NE(errors[0], errors[1]);
    EXPECT_EQ(errors[2].rfind("processor ", 0), 0U) << errors[2];
}

TEST_F(TestProgramTest, TheOwnLogKeepsItsSizeAndGenerations) {
    const std::string file = "log/cputest.", device(200, 'd');
    size_t announced = 0, begun = 0;
    for (int i = 0; i < 12; ++i) {
        const std::string newest = agent_.Read(file + "0.log");
        const Said said = RunProgram("cputest", "-tp none -log 1 -gen 3 -dev " + device);
        for (const Record& record : said.records) announced += record.body == "0x00000001\n";
        begun += agent_.Read(file + "0.log").rfind(newest, 0) != 0;
    }
    EXPECT_EQ(announced, begun);
    EXPECT_GE(begun, 3U);
    for (const char* generation : {"0.log", "1.log", "2.log"}) {
        EXPECT_LE(agent_.Read(file + generation).size(), 1024U);
        EXPECT_GT(agent_.Read(file + generation).size(), 0U);
    }
    EXPECT_FALSE(agent_.Exists(file + "3.log"));
    Forget();
    RunProgram("memtest", "-tp none -log 0");
    RunProgram("cputest", "-tp none -gen 0");
    EXPECT_TRUE(fs::is_empty(agent_.Path("log")));
}

TEST_F(TestProgramTest, AReaderThatHasGoneOrDoesNotReadKillsNothing) {
    Launch gone, deaf;
    gone.in_child = [] {
        int ends[2];
        if (pipe(ends) != 0) _exit(125);
        dup2(ends[1], STDOUT_FILENO);
        close_range(3, ~0U, 0);
    };
    // The pipe is full, and its other end stays open.
    deaf.in_child = [] {
        int ends[2];
        if (pipe2(ends, O_NONBLOCK) != 0) _exit(125);
        const char filling[4096] = {};
        while (write(ends[1], filling, sizeof filling) > 0) {
        }
        dup2(ends[0], STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        fcntl(STDOUT_FILENO, F_SETFL, 0);
    };
    for (const char* program : kPrograms) {
        const auto process = StartProgram(program, "-dev /dev/sda -waitsec 600", deaf);
        const std::string log = std::string(program) + (program[0] == 'h' ? "_sda" : "") + ".0.log";
        EXPECT_TRUE(Eventually([&] { return agent_.Exists("log/" + log); }));
        // The first SIGTERM ends the test, the second the wait for the reader.
        const std::string state = "/proc/" + std::to_string(process->pid()) + "/stat";
        EXPECT_TRUE(Eventually([&] {
            process->Signal(SIGTERM);
            return ReadFile(state).find(") Z ") != std::string::npos;
        }));
        EXPECT_EQ(process->Wait().status, 4) << program;
        for (const char* words : {"-waitsec 600 -dev /dev/sda", "-tp none"}) {
            EXPECT_EQ(StartProgram(program, words, gone)->Wait().status, 4) << program << words;
        }
    }
}

TEST_F(TestProgramTest, HolesInADiskAreFoundAtTheirAddresses) {
    // The size of the image of 256 blocks, in bytes; the first and last bad block told; the next
    // address. Only the last level goes on behind a bad block.
    const char table[] = R"(0||00|00|0x00000040
51200|-retry 100 -sc 0xff|64|64|0x000000ff
51200|-lba 0xf8 -lv 2|f8|f8|0x00000000
32768||40|40|0x00000080
51200|-lv 3|64|73|0x00000080
51200|-lv 3 -debug2|20|20|0x00000040
126976|-lv 3 -retry 1|f8|ff|0x00000100
130560|-tp iorandom -lba 0xfe -sc 2 -retry 1 -seed 5|ff|ff|0x000000fe)";
    for (const Strings& c : Rows(table)) {
        SCOPED_TRACE(c[0] + " " + c[1]);
        Image("sdh", std::stoul(c[0]), "@256");
        const Said said = RunProgram("hddtest", "-dev /dev/sdh" + (c[1].empty() ? "" : " " + c[1]));
        const bool spoilt = c[1].find("debug2") != std::string::npos;
        const bool random = c[1].find("iorandom") != std::string::npos;
        std::string error = (random ? "iorandom" : "sector");
        error += " read error at block 0x000000" + c[2] +
                 (spoilt ? ": Input/output error" : ": end of data");
        const unsigned long last = std::stoul(c[3], nullptr, 16);
        for (unsigned long bad = std::stoul(c[2], nullptr, 16) + 1; bad <= last; ++bad) {
            error += (error.find("also") == std::string::npos ? ", also bad: " : " ") + Hex(bad, 8);
        }
        EXPECT_EQ(said.error.substr(0, said.error.find(", seed")), error);
        EXPECT_EQ(said.status().substr(0, 20), "0x04,0x06," + c[4]);
    }
}

TEST_F(TestProgramTest, AReadThatTakesLongerThanASecondIsNoted) {
    Image("sdh", uint64_t{1} << 40);
    const auto process = StartProgram("hddtest", "-dev /dev/sdh -lv 3");
    const std::string state = "/proc/" + std::to_string(process->pid()) + "/stat";
    // The program spends nearly all of its time in reads.
    EXPECT_TRUE(Eventually([&] {
        process->Signal(SIGSTOP);  // which waits until the program gets a processor
        Eventually([&] { return ReadFile(state).find(") T ") != std::string::npos; });
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        process->Signal(SIGCONT);
        return agent_.Read("log/hddtest_sdh.0.log").find(" slow read: ") != std::string::npos;
    }));
    process->Signal(SIGINT);
    EXPECT_EQ(Listen(*process).status().substr(0, 10), "0x02,0x02,");
}

TEST_F(TestProgramTest, ADiskOfEighteenTerabytesIsReadToItsEndThroughTheController) {
    // Its addresses count units of 16 blocks; the last unit is not whole.
    constexpr uint64_t kBlocks = 18'000'000'000'000 / 512 + 7, kUnits = kBlocks / 16 + 1;
    std::error_code refused;
    fs::path file = agent_.Path("data/sda");
    fs::resize_file(file, kBlocks * 512, refused);
    if (refused) {  // some file systems end at 16 TiB
        file = "/dev/shm" / fs::path(agent_.Path()).filename();
        std::ofstream(file).close();
        fs::resize_file(file, kBlocks * 512, refused);
    }
    const Launch launch{{{"HDDTEST_IMAGES", "/dev/sda=" + file.string()}}};
    PassTest::Plan("OFF", "OFF", {"ON"});
    agent_.SetKey("HDD_SCHEDULE 0", "address", Hex(kUnits - 0x400, 16));
    agent_.Write("data/pat_new_para.ini", "[HDDDIAG_PARAM]\ntp=sector -budget 0\n");
    if (!refused) Pass(launch);
    const std::string after = agent_.Key("HDD_SCHEDULE 0", "address");
    Plan(3, "OFF", "OFF", {"ON"});
    agent_.SetKey("HDD_SCHEDULE 0", "address", after, kPadiagSchedule);
    agent_.Write(kProgress, "[HDD_MAX_LBA]\n/dev/sda=" + Hex(kUnits, 16) + "\n");
    if (!refused) Diagnose(launch);
    if (file.parent_path() == "/dev/shm") fs::remove(file);
    if (refused) GTEST_SKIP() << "no file system here has files of that size";
    EXPECT_EQ(after, Hex(kUnits - 0x400 + 4, 16)) << "a step of 64 blocks is 4 units";
    EXPECT_EQ(agent_.Key("HDD_MAX_LBA", "/dev/sda", kProgress), Hex(kUnits, 16));
    EXPECT_EQ(agent_.Key("HDD_NEXT_LBA", "/dev/sda", kProgress), Hex(kUnits, 16));
    EXPECT_EQ(Masked(Join(History())), "OK      hddtest /dev/sda [#s] 99[%] -> 100[%](pass=#)\n");
}

TEST_F(TestProgramTest, AnInputOutputErrorOfABlockDeviceIsFoundAtItsAddress) {
    // A loop device whose file is cut short behind its back fails to read what is missing. It goes
    // back by itself when its last descriptor is closed, whatever becomes of this test.
    const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    const std::string device = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
    const int loop = open(device.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
    const int file = open(agent_.Path("data/sda").c_str(), O_RDWR | O_CLOEXEC);
    loop_config settings = {};
    settings.fd = static_cast<uint32_t>(file);
    settings.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR | LO_FLAGS_DIRECT_IO;
    const bool ready = ioctl(loop, LOOP_CONFIGURE, &settings) == 0;
    fs::resize_file(agent_.Path("data/sda"), 51200);
    alignas(4096) char block[512];
    const bool fails = ready && pread(loop, block, 512, 0) == 512 &&
                       pread(loop, block, 512, 0xfff * 512) < 0 && errno == EIO;
    const Said said =
        fails ? RunProgram("hddtest", "-dev " + device + " -retry 1 -seed 7") : Said();
    for (const int fd : {control, file, loop}) close(fd);
    if (!fails) GTEST_SKIP() << "no loop device that fails to read can be had here";
    EXPECT_EQ(said.error,
              "sector read error at block 0x00000064: Input/output error, seed 0x00000007");
    EXPECT_EQ(said.status().substr(0, 20), "0x04,0x06,0x00000080");
    EXPECT_EQ(said.records.at(1).body.substr(0, 23), "0x00001000,0x0200,0x01,");
}

TEST_F(TestProgramTest, APassTellsGoodAndBadResultsOfEveryKind) {
    const std::string unread =
        "sector read error at block 0x00000820: Input/output error, seed 0x00000007";
    EventPipe pipe(agent_);
    for (const bool failed : {false, true}) {
        SCOPED_TRACE(failed);
        Forget();
        PassTest::Plan("ON", "ON", {"ON"});
        agent_.SetKey("HDD_SCHEDULE 0", "address", failed ? "0x800\nsc=0x40" : "0x800\nsc=1");
        const std::string error = failed ? "\nerror=ON\n" : "\n";
        agent_.Write("data/pat_new_para.ini",
                     "[CPUDIAG_PARAM]\ntp=register" + error +
                         "[MEMDIAG_PARAM]\ntp_error=BMOVEX -size 64KB\ntp=BMOVE -size 64KB" +
                         error + "[HDDDIAG_PARAM]\ntp=sector -seed 7" + error);
        Pass(WithImages());
        const auto line = [&](const std::string& what, const std::string& message) {
            return (failed ? "ERROR   " + what + " [#s] " + message : "OK      " + what + " [#s]") +
                   "\n";
        };
        EXPECT_EQ(Masked(Join(agent_.History())), line("memtest Memory", kBits) +
                                                      line("hddtest /dev/sda", unread) +
                                                      line("cputest CPU", kAnswer));
        EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address"),
                  failed ? "0x0000000000000840" : "0x0000000000000000");
        EXPECT_TRUE(
            InOrder(agent_.Log(), {"L1000 [[[[ PATROL DIAGNOSIS RESULT ]]]]", "PROGRAM : memtest",
                                   "PROGRAM : hddtest", "PROGRAM : cputest"}));
        const std::string reports = Report("pt_mem", "Partition;3", kBits) +
                                    Report("pt_hdd.sda", "HDD;/SCSI/dev/sda", unread) +
                                    Report("pt_cpu", "Partition;3", kAnswer);
        EXPECT_EQ(Masked(agent_.Read("data/calls")), failed ? reports : "");
        EXPECT_EQ(Join(pipe.Lines()), failed ? "E0809:memtest of mem ended with NG\n"
                                               "E0809:hddtest of /dev/sda ended with NG\n"
                                               "E0809:cputest of CPU ended with NG\n"
                                             : "");
        EXPECT_EQ(Masked(agent_.Read("log/pat_sys.log")),
                  failed ? "I0807: cputest of CPU failed\n" + std::string(kAnswer) +
                               "\nE0809:ZQWNkvx cputest of CPU ended with NG\n"
                         : "");
    }
}

TEST_F(TestProgramTest, OnRequestADiskIsReadToItsEndInTwoRuns) {
    agent_.Write(kProgress, "[HDD_MAX_LBA]\n/dev/sdb=0x7\n");
    agent_.Write(kParameters,
                 "[CPUDIAG_PARAM_LEVEL3]\nwaitusec=600000000\n[MEMDIAG_PARAM_LEVEL3]\n"
                 "waitsec=600\nsize=64KB\n[HDDDIAG_PARAM_LEVEL3]\ntp=sector -waitsec 600\n");
    // An interruption of the controller is handed on to every test.
    Plan(3, "ON", "ON", {"ON"}, "600");
    Process& process = Begin(WithImages());
    for (const std::string name : {"memtest", "hddtest_sda", "cputest"}) {
        EXPECT_TRUE(Eventually([&] { return agent_.Exists("log/" + name + ".0.log"); })) << name;
    }
    EXPECT_TRUE(Eventually([&] { return Count("[PadiagWaitCpuTest] ProcessIdCpu") == 1; }));
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait().status, 0);
    EXPECT_EQ(agent_.Key("HDD_MAX_LBA", "/dev/sda", kProgress), "0x0000000000001000");
    EXPECT_EQ(agent_.Key("HDD_NEXT_LBA", "/dev/sda", kProgress), "0x0000000000000080");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "address", kPadiagSchedule), "0x0000000000000080");
    // The next run has no pauses.
    agent_.SetKey("CPU_SCHEDULE", "cpu", "OFF", kPadiagSchedule);
    agent_.SetKey("MEM_SCHEDULE", "mem", "OFF", kPadiagSchedule);
    agent_.Remove(kParameters);
    Diagnose(WithImages());
    EXPECT_EQ(agent_.Key("HDD_NEXT_LBA", "/dev/sda", kProgress), "0x0000000000001000");
    EXPECT_EQ(agent_.Key("HDD_MAX_LBA", "/dev/sdb", kProgress), "0x7");
    EXPECT_EQ(agent_.Read(kProgressCopy), agent_.Read(kProgress));
    EXPECT_EQ(Masked(Join(History())),
              "CANCEL  cputest CPU [#s] pass=#\nCANCEL  memtest Memory [#s] pass=#\n"
              "CANCEL  hddtest /dev/sda [#s] 0[%] -> 3[%](pass=#)\n"
              "OK      hddtest /dev/sda [#s] 3[%] -> 100[%](pass=#)\n");
}

}  // namespace
}  // namespace patrol_test
