// Runs that are killed, or refused something by the system, at one system call after the other.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include "records.h"
#include "stepper.h"

namespace patrol_test {
namespace {

struct Mode {
    const char* name;
    bool tests;     // its calls do not come in the same order each time
    bool rebuilds;  // the patrol file, from another set of disks

    bool on_request() const { return name == std::string("pastart"); }
};
const Mode kModes[] = {{"reload", false, false},
                       {"confchg", false, true},
                       {"KVXstart", false, true},
                       {"start", true, false},
                       {"pastart", true, false}};

constexpr char kDevices[] = "data/devconf_new.xml";
constexpr char kPadiagSettings[] = "data/padiag.ini";
constexpr char kSettings[] = "data/pat_env0.ini";
constexpr char kTestParameters[] = "data/pat_new_para.ini";
constexpr char kNobodyFollows[] = "no process can be followed from call to call here";

// Whether every call is to fail in every way, which takes many minutes.
bool All() { return getenv("PATROL_FAULT_ALL") != nullptr; }

// At most `count` of the strikes, evenly spread.
std::vector<Strike> Spread(const std::vector<Strike>& strikes, size_t count) {
    if (All() || strikes.size() <= count) return strikes;
    std::vector<Strike> some;
    for (size_t i = 0; i < count; ++i)
        some.push_back(strikes[i * (strikes.size() - 1) / (count - 1)]);
    return some;
}

// A patrol Schedule file, or one for an on-request diagnosis.
std::string ScheduleOf(unsigned count, const std::string& flag, bool on_request = false) {
    Strings disks;
    for (unsigned i = 0; i < count; ++i) {
        const std::string due = i % 2 == 0 ? flag : "OFF";
        disks.push_back((on_request ? "hdd=" + due : "hdd_exe=" + flag + "\nhdd_next_go=" + due) +
                        "\naddress=" + Hex(0x100 + i, 16));
    }
    if (on_request) return ScheduleText("cpu=ON", "mem=ON", disks, "level=3\ntime=60");
    return ScheduleText("cpu_exe=" + flag + "\ncpu_next_go=" + flag,
                        "mem_exe=" + flag + "\nmem_next_go=OFF", disks);
}

// Whether every line of a file stands at its place in one of the wholes.
bool Mix(const std::string& text, const Strings& wholes) {
    const Strings lines = Split(text);
    std::vector<Strings> cut;
    for (const std::string& whole : wholes) cut.push_back(Split(whole));
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto has = [&](const auto& whole) {
            return i < whole.size() && whole[i] == lines[i];
        };
        if (!std::any_of(cut.begin(), cut.end(), has)) return false;
    }
    return !text.empty() && text.back() == '\n' && lines.size() == cut.front().size();
}

// The addresses, one a line.
std::string Addresses(const std::string& schedule) {
    return Masked(schedule, "(^|\n)(?!address=)[^\n]*", "");
}

// One run of one mode in a directory of its own.
class Scene {
 public:
    explicit Scene(const Mode& mode) {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
        agent_.Write(kPadiagSettings, "[cpu]\non\n[mem]\non\n[hdd]\non\n[level]\n3\n[time]\n60\n");
        agent_.Write(kTestParameters,
                     "[CPUDIAG_PARAM]\ntp=Instruction\n[MEMDIAG_PARAM]\ntp=BMOVE\n"
                     "[HDDDIAG_PARAM]\nmax=128\ntp=other\n");
        parameters_ = agent_.Read(kTestParameters);
        // So many that the file is written in pieces, or so few that the tests take little time.
        const int count = mode.tests ? 8 : 64;
        old_ = ScheduleOf(static_cast<unsigned>(count), mode.tests ? "ON" : "OFF");
        agent_.Write(kSchedule, old_);
        if (mode.on_request()) {
            old_padiag_ = ScheduleOf(3, "ON", true);
            agent_.Write(kPadiagSchedule, old_padiag_);
            agent_.Write("data/lba_outfile.ini", "[HDD_NEXT_LBA]\n/dev/sda=0x0000000000000800\n");
        }
        std::vector<Disk> disks = NumberedDisks(count + 1);
        disks.erase(mode.rebuilds ? disks.begin() : disks.end() - 1);
        agent_.Write(kDevices, DeviceXml(disks));
        const std::string block =
            "I0399:<<CPU Error Ended>>\n" + ResultBlock("cputest", "CPU", "E3829 wrong sum") + "\n";
        Stub("cputest", LogRecord(1, "E0001", "to the agent") + StatusRecord(4, 6, block));
        Stub("memtest", StatusRecord(1, 2, ResultBlock("memtest", "mem", "none") + "\n"));
        Stub("hddtest",
             StatusRecord(1, 3, ResultBlock("hddtest", "disk", "none") + "\n", "0x00000800"));
        agent_.Script("parts", "cat $2 >>$KVX_data/taken");
    }

    // Runs `mode`; follows the run up to the strike, or to the end where the strike names no call.
    void Run(const std::string& mode, const std::optional<Strike>& strike = {}) {
        Launch launch;
        launch.deadline = std::chrono::seconds(40);
        if (strike) launch.in_child = LetFollow;
        // The leak checker would follow the run, too, and there can be only one.
        launch.env["ASAN_OPTIONS"] = *agent_.Environment()["ASAN_OPTIONS"] + ":detect_leaks=0";
        // The heap grows by a page at a time, so that memory is asked for often.
        launch.env["MALLOC_TOP_PAD_"] = "0";
        const auto process = agent_.Start({mode}, launch);
        if (strike) calls_ = Follow(process->pid(), agent_.Path(), *strike);
        result_ = process->Wait();
        // The test programs that it has left come to this process.
        kill(-process->pid(), SIGKILL);
        while (waitpid(-process->pid(), nullptr, 0) > 0) continue;
    }

    // All bytes of the files of a directory.
    std::string Content(const std::string& directory) const {
        std::string content;
        for (const auto& entry : std::filesystem::directory_iterator(agent_.Path(directory))) {
            content += ReadFile(entry.path());
        }
        return content;
    }

    // What the run was to do, in a form that is the same for each run.
    std::string Work() const {
        std::string work;
        for (const char* file :
             {kSchedule, kPadiagSchedule, kTestParameters, "data/lba_outfile_bup.ini"})
            work += agent_.Read(file);
        for (const char* file : {kHistory, "log/pastat.txt", "log/pat_sys.log", "data/taken"}) {
            Strings lines = agent_.Lines(file);
            for (std::string& line : lines)
                line = Masked(line, "TIME=.*|^..../../.. ..:..:..|\\[[0-9]+s\\]", "");
            std::sort(lines.begin(), lines.end());
            work += file + std::string(":\n") + Join(lines);
        }
        return work;
    }
    // Everything that somebody may read of the run but the result itself.
    std::string Told() {
        for (const std::string& line : events_.Lines()) told_ += line + "\n";
        std::string told = result_.out + result_.err + told_;
        for (const char* log : {"pat_trc_log", "padiag_log", "pat_trc0.log", "pat_log0.log"})
            told += agent_.Read(std::string("log/") + log);
        return told;
    }
    // The lines of that which tell of trouble, without their numbers.
    std::set<std::string> Complaints() {
        std::set<std::string> complaints;
        for (const std::string& line : Split(Replaced(Told(), agent_.Path(), ""))) {
            for (const char* word : {"rror", "ailed", "Can't", "went wrong", "Not ", "dropped",
                                     "E38", "E39", "Default Value", "RETRY", "killed"}) {
                if (line.find(word) != std::string::npos)
                    complaints.insert(Masked(line, "[0-9]+", "#"));
            }
        }
        return complaints;
    }

    AgentDir agent_;
    EventPipe events_{agent_};
    std::string old_, old_padiag_, parameters_;
    Calls calls_;
    Result result_;

 private:
    std::string told_;
    void Stub(const std::string& name, const std::string& records) const {
        agent_.Script(name, "printf '%s' '" + records + "'");
    }
};

// What the two Schedule files and the test parameters may be mixed of.
struct Wholes {
    Strings patrol, padiag, parameters;
};

class FaultTest : public ::testing::TestWithParam<Mode> {
 protected:
    void SetUp() override {
        Scene scene(mode_);
        scene.Run(mode_.name, Strike());
        ASSERT_EQ(scene.result_.status, 0) << scene.result_.err;
        if (scene.calls_.empty()) GTEST_SKIP() << kNobodyFollows;
        calls_ = scene.calls_;
        new_ = scene.agent_.Read(kSchedule);
        wholes_ = {{new_},
                   {scene.agent_.Read(kPadiagSchedule)},
                   {scene.parameters_, scene.agent_.Read(kTestParameters)}};
        if (!mode_.rebuilds) wholes_.patrol.push_back(scene.old_);
        if (mode_.on_request()) wholes_.padiag.push_back(scene.old_padiag_);
        work_ = scene.Work();
        usual_ = scene.Complaints();
        for (const char* input : {kDevices, kPadiagSettings, kSettings, "data/pat_msge.txt"}) {
            inputs_[input] = scene.agent_.Read(input);
        }
    }

    // The wholes, and what is made without settings or with settings of which nothing can be read.
    Wholes WithDefaults() const {
        Wholes wholes = wholes_;
        for (const bool there : {false, true}) {
            Scene scene(mode_);
            for (const char* file : {kSettings, kPadiagSettings}) {
                scene.agent_.Remove(file);
                if (there) scene.agent_.Write(file, "");
            }
            scene.Run(mode_.name);
            wholes.patrol.push_back(scene.agent_.Read(kSchedule));
            wholes.padiag.push_back(scene.agent_.Read(kPadiagSchedule));
        }
        return wholes;
    }

    // The calls of the run that are `wanted`, each with its turn among those of its name.
    template <class Wanted>
    std::vector<Strike> Strikes(Wanted wanted) const {
        std::vector<Strike> strikes;
        std::map<std::string, int> turns;
        for (const std::string& call : calls_) {
            const int turn = ++turns[call];
            if (wanted(call)) strikes.push_back({call, turn, kKill});
        }
        return strikes;
    }

    void ExpectWhole(const Scene& scene, const Wholes& wholes) const {
        const std::string text = scene.agent_.Read(kSchedule);
        EXPECT_TRUE(text == scene.old_ || Mix(text, wholes.patrol)) << text;
        EXPECT_TRUE(!mode_.rebuilds || Addresses(text) == Addresses(new_) ||
                    ((scene.result_.status != 0 || mode_.name == std::string("KVXstart")) &&
                     text == scene.old_))
            << "an address is lost";
        if (scene.agent_.Exists(kPadiagSchedule)) {
            const std::string padiag = scene.agent_.Read(kPadiagSchedule);
            EXPECT_TRUE(Mix(padiag, wholes.padiag)) << padiag;
        }
        EXPECT_TRUE(Mix(scene.agent_.Read(kTestParameters), wholes.parameters));
        for (const auto& [input, bytes] : inputs_) EXPECT_EQ(scene.agent_.Read(input), bytes);
    }

    const Mode mode_ = GetParam();
    Calls calls_;
    std::string new_;
    Wholes wholes_;
    std::string work_;
    std::set<std::string> usual_;
    std::map<std::string, std::string> inputs_;
};

TEST_P(FaultTest, AKilledRunLeavesAWholeScheduleToANextRunThatWorks) {
    const std::vector<Strike> all =
        Strikes([](const std::string& call) { return call.find(" data/") != std::string::npos; });
    ASSERT_GT(all.size(), 20U);
    // Of a process that is killed a sanitizer has little to say.
    for (const Strike& strike : Spread(all, kSanitized ? 30 : all.size())) {
        SCOPED_TRACE(strike.call + " " + std::to_string(strike.turn));
        Scene scene(mode_);
        scene.Run(mode_.name, strike);
        // A pass may come by with a call less: it depends on when its test programs answer.
        const auto turns = std::count(scene.calls_.begin(), scene.calls_.end(), strike.call);
        EXPECT_EQ(scene.result_.status, turns < strike.turn && mode_.tests ? 0 : -SIGKILL);
        ExpectWhole(scene, wholes_);
        const std::string text = scene.agent_.Read(kSchedule);
        EXPECT_TRUE(mode_.tests || mode_.rebuilds || text == scene.old_ || text == new_) << text;
        if (strike.call.rfind("rename", 0) == 0 && !mode_.on_request()) {
            // What it left behind does no harm when the next run is killed, too.
            scene.Run("reload", Strike{"write data/pat_new_sche.txt.old.new.self", 1, kKill});
            EXPECT_EQ(scene.result_.status, -SIGKILL);
            EXPECT_EQ(Split(scene.agent_.Read(kSchedule)).size(), Split(new_).size());
        }
        scene.Run(mode_.rebuilds || mode_.on_request() ? mode_.name : "reload");
        EXPECT_EQ(scene.result_.status, 0);
        EXPECT_TRUE(Mix(scene.agent_.Read(kSchedule), wholes_.patrol))
            << scene.agent_.Read(kSchedule);
        EXPECT_FALSE(scene.agent_.LeftUnfinished());
        if (HasFailure()) break;
    }
}

// A file that takes another's place is on the disk before, and its place soon after.
TEST_P(FaultTest, WhatIsRenamedWasSynced) {
    std::set<std::string> synced;
    bool linked = false;
    std::string unsynced = "nothing renamed";
    for (const std::string& call : calls_) {
        const std::string name = call.substr(0, call.find(' '));
        const std::string file = call.substr(std::min(call.size(), name.size() + 1));
        if (name == "open") synced.erase(file);
        if (name == "fsync") synced.insert(file);
        if (name == "link") linked = synced.count(file) != 0;
        if (name == "fsync" && file == "data") unsynced.clear();
        if (name != "rename" || file.rfind("data/", 0) != 0) continue;
        EXPECT_TRUE(synced.count(file) != 0 || linked) << file;
        linked = false;
        unsynced = file;
    }
    EXPECT_EQ(unsynced, "");
}

TEST_P(FaultTest, AFailedCallEndsTheRunInOrderAndKeepsTheFiles) {
    const Wholes with_defaults = WithDefaults();
    for (const std::string& name : std::set<std::string>(calls_.begin(), calls_.end())) {
        // A sanitizer's own memory is not to be refused.
        if (kSanitized && name == "memory") continue;
        const auto same = [&](const std::string& call) { return call == name; };
        const std::string open_schedule = std::string("open ") + kPadiagSchedule;
        for (Strike strike : Spread(Strikes(same), mode_.tests ? 2 : 3)) {
            for (const int how : WaysToFail(name)) {
                // An on-request diagnosis tries each output for seconds.
                if (how == kNoDescriptors && mode_.on_request() && name != open_schedule) continue;
                strike.how = how;
                SCOPED_TRACE(name + " " + std::to_string(strike.turn) + ": " + std::to_string(how));
                Scene scene(mode_);
                scene.Run(mode_.name, strike);
                const int status = scene.result_.status;
                EXPECT_TRUE(status == 0 || status == 1) << status;
                const auto struck = std::count(scene.calls_.begin(), scene.calls_.end(), name);
                EXPECT_TRUE(struck == strike.turn || mode_.tests) << struck;
                // Files made by the defaults are taken where the fault explains them.
                const bool lack = how == kNoDescriptors || how == kNoMemory || name == "memory";
                const bool settings = name.find(kSettings) != std::string::npos ||
                                      name.find(kPadiagSettings) != std::string::npos;
                ExpectWhole(scene, lack || settings ? with_defaults : wholes_);
                // A run that memory forces to its end leaves what a killed one leaves.
                EXPECT_TRUE(!scene.agent_.LeftUnfinished() || how == kNoMemory ||
                            name.rfind("unlink", 0) == 0);
                // Without a descriptor nobody can be told anything.
                if (status != 0 || how == kNoDescriptors || scene.Work() == work_) continue;
                Strings told;
                for (const std::string& line : scene.Complaints()) {
                    if (usual_.count(line) == 0) told.push_back(line);
                }
                EXPECT_NE(Join(told), "") << "nobody was told of what is missing in\n"
                                          << scene.Work();
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, FaultTest, ::testing::ValuesIn(kModes),
                         [](const auto& tested) { return tested.param.name; });

using PlantedTest = PassTest;

// Others may write to the directory of the reports: what the run has just removed stands again.
TEST_F(PlantedTest, APartReportIsWrittenToAFileOfItsOwnAlone) {
    agent_.Script("parts", "cmp $2 $2.bak && cp $2 $KVX_data/report");
    agent_.Write("data/other", "kept");
    for (const char* file : {"temp/parts_pt_cpu", "temp/parts_pt_cpu.bak"}) {
        for (const bool link : {true, false}) {
            SCOPED_TRACE(std::string(file) + (link ? " is a link" : " is a pipe"));
            const std::string path = agent_.Path(file);
            agent_.Remove("data/report");
            Plan("ON", "OFF", {});
            Stub("cputest", StatusRecord(4));
            EXPECT_EQ(link ? symlink(agent_.Path("data/other").c_str(), path.c_str())
                           : mkfifo(path.c_str(), 0600),
                      0);
            Launch launch;
            launch.deadline = std::chrono::seconds(20);
            launch.in_child = LetFollow;
            launch.env["ASAN_OPTIONS"] = *agent_.Environment()["ASAN_OPTIONS"] + ":detect_leaks=0";
            Process& process = Begin(launch);
            const Strike strike = {std::string("unlink ") + file, 1, ENOENT};
            if (Follow(process.pid(), agent_.Path(), strike).empty())
                GTEST_SKIP() << kNobodyFollows;
            EXPECT_EQ(process.Wait().status, 0);
            EXPECT_EQ(agent_.Read("data/other"), "kept");
            EXPECT_NE(agent_.Read("data/report").find("\nOPERATION=E3890\n"), std::string::npos);
            EXPECT_FALSE(std::filesystem::is_symlink(path) || agent_.Exists(file));
        }
    }
}

TEST(FailedCallTest, TellsWhatFailed) {
    // The mode, the call, its turn and its errno, the exit status, and what must be told.
    const char table[] =
        R"(reload|open log/patstat0.txt|1|EMFILE|0|[ptl_change_hist2] System Call Error. function= fopen, errno: 24
reload|open data/pat_sche2.txt.new.self|1|EMFILE|1|[PadiagCreateSchedule] Can't open 
reload|rename data/pat_new_sche.txt.new.self|1|ENOSPC|0|[PatrolUpdateSchedule] Can't update |E3899:
start|fsync data/pat_new_sche.txt.new.self|1|EIO|0|[FlushDeferredWrites] Can't update |E3899:
start|write log/patstat0.txt|1|ENOSPC|0|[ptl_history] System Call Error. function= write, errno: 28|E3899:
reload|memory|3|lack|1|E3895:System call error <<malloc>>, errno:<<12>>
confchg|read data/devconf_new.xml|1|EIO|1|E3823:
confchg|stat data/pat_new_sche.txt|9|EIO|1|[HddSaveData] End.|E3823:
confchg|write data/pat_new_sche.txt.new.self|1|ENOSPC|1|E3823:
confchg|rename data/pat_new_sche.txt.new.self|1|ENOSPC|1|E3823:
start|pipe|1|EMFILE|1|Failed to popen Error End.
start|fork|1|EAGAIN|1|Failed to popen Error End.
start|fork|3|EAGAIN|0|[test_exec] System Call Error (pipe), errno:11|E3899:<<file name =
start|pipe|3|EMFILE|0|[test_exec] System Call Error (pipe), errno:24|E3899:<<file name =
pastart|open log/padiag_cputest_stdout|1|EMFILE|0|[test_exec2] System Call Error (open)|E3899:<<file name =
pastart|write log/pastat.txt|1|ENOSPC|0|[PadiagHistory] System Call Error. function= write|E3899:<<file name =
reload|read data/pat_env0.ini|1|EIO|0|[ReadEnvIni] Can't read |E3899:<<file name =
KVXstart|rename data/pat_new_sche.txt.new.self|1|ENOSPC|0|[CreateSchedule] System Call Error (rename)|E3899:<<file name =
start|read pipe|2|EIO|0|[wait_for_testdata] read() failed. data_size= 0.
start|fork|7|EAGAIN|0|RETRY rfork()|patrol_parts_proc end
start|open temp/parts_pt_cpu|1|EINTR|0|RETRY recreat()
start|open temp/parts_pt_cpu|1|EMFILE|0|ERROR  END recreat()|E3921:The file opening error was detected.
start|write temp/parts_pt_cpu|1|ENOSPC|0|ERROR  END rwrite()|E3924:The file write error was detected.
start|open log/pat_sys.log|1|EMFILE|0|<<fopen>>, errno:<<24>>|E3899:<<file name = 
start|open log/pat_trc0.log|1|EMFILE|0|E3895:System call error <<fopen>>, errno:<<24>>|E3899:<<file name = 
start|write log/pat_trc0.log|1|ENOSPC|0|E3895:System call error <<write>>, errno:<<28>>)";
    const std::map<std::string, int> errors = {{"EMFILE", EMFILE}, {"EIO", EIO},
                                               {"ENOSPC", ENOSPC}, {"EAGAIN", EAGAIN},
                                               {"EINTR", EINTR},   {"lack", kNoMemory}};
    for (const Strings& row : Rows(table)) {
        if (kSanitized && row[1] == "memory") continue;
        SCOPED_TRACE(row[1] + ": " + row[3]);
        const auto mode = *std::find_if(std::begin(kModes), std::end(kModes),
                                        [&](const Mode& one) { return one.name == row[0]; });
        Scene scene(mode);
        scene.Run(row[0], Strike{row[1], std::stoi(row[2]), errors.at(row[3])});
        if (scene.calls_.empty()) GTEST_SKIP() << kNobodyFollows;
        EXPECT_EQ(std::to_string(scene.result_.status), row[4]);
        const std::string told =
            scene.result_.out + Join(scene.events_.Lines()) + scene.Content("log");
        for (const std::string& text : {row[5], row[6]}) {
            EXPECT_NE(told.find(text), std::string::npos) << text << " is not in\n" << told;
        }
    }
}

}  // namespace
}  // namespace patrol_test
