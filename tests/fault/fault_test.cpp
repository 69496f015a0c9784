// Runs that are killed, or refused something by the system, at one system call after the other.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <tuple>

#include "records.h"
#include "stepper.h"

namespace patrol_test {
namespace {

constexpr int kDisks = 64;
constexpr int kParts = 2;  // of a long test, to run side by side
constexpr char kDevices[] = "data/devconf_new.xml";
constexpr char kPadiagSettings[] = "data/padiag.ini";
constexpr char kSettings[] = "data/pat_env0.ini";
constexpr char kNobodyFollows[] = "no process can be followed from call to call here";
const char* const kInputs[] = {kDevices, kPadiagSettings, kSettings, "data/pat_new_para.ini",
                               "data/pat_msge.txt"};

// Whether every call is to fail in every way, which takes many minutes.
bool All() { return getenv("PATROL_FAULT_ALL") != nullptr; }

// At most `count` of the elements, evenly spread.
template <class Element>
std::vector<Element> Spread(const std::vector<Element>& elements, size_t count) {
    if (All() || elements.size() <= count) return elements;
    std::vector<Element> some;
    for (size_t i = 0; i < count; ++i)
        some.push_back(elements[i * (elements.size() - 1) / (count - 1)]);
    return some;
}

std::string ScheduleOf(const std::string& flag) {
    Strings disks;
    for (unsigned i = 0; i < kDisks; ++i) {
        disks.push_back("hdd_exe=" + flag + "\nhdd_next_go=" + (i % 2 == 0 ? flag : "OFF") +
                        "\naddress=" + Hex(0x100 + i, 16));
    }
    return ScheduleText("cpu_exe=" + flag + "\ncpu_next_go=" + flag,
                        "mem_exe=" + flag + "\nmem_next_go=OFF", disks);
}

// Whether every line of a file stands at its place in one of the wholes.
bool Mix(const std::string& text, const Strings& wholes) {
    const Strings lines = Split(text);
    if (text.empty() || text.back() != '\n') return false;
    std::vector<Strings> cut;
    for (const std::string& whole : wholes) cut.push_back(Split(whole));
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto has = [&](const auto& whole) {
            return i < whole.size() && whole[i] == lines[i];
        };
        if (!std::any_of(cut.begin(), cut.end(), has)) return false;
    }
    return lines.size() == cut.front().size();
}

Strings Addresses(const std::string& schedule) {
    Strings lines = Split(schedule);
    const auto other = [](const std::string& line) { return line.rfind("address=", 0) != 0; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), other), lines.end());
    return lines;
}

// One run of one mode in a directory of its own.
class Scene {
 public:
    explicit Scene(const std::string& mode) {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
        agent_.Write(kPadiagSettings, "[cpu]\non\n[mem]\non\n[hdd]\non\n[level]\n3\n[time]\n60\n");
        agent_.Write("data/pat_new_para.ini",
                     "[CPUDIAG_PARAM]\ntp=Instruction+Register\n[MEMDIAG_PARAM]\ntp=BMOVE\n"
                     "[HDDDIAG_PARAM]\nmax=128\ntp=sector\n");
        agent_.Write(kSchedule, old_ = ScheduleOf(mode == "start" ? "ON" : "OFF"));
        std::vector<Disk> disks = NumberedDisks(kDisks + 1);
        disks.erase(mode == "confchg" ? disks.begin() : disks.end() - 1);
        agent_.Write(kDevices, DeviceXml(disks));
        const std::string block =
            "I0399:<<CPU Error Ended>>\n" + ResultBlock("cputest", "CPU", "E3829 wrong sum") + "\n";
        Stub("cputest", LogRecord(1, "E0001", "to the agent") + StatusRecord(4, 6, block));
        Stub("memtest", StatusRecord(1));
        Stub("hddtest", StatusRecord(1, 1, "", "0x00000800"));
        agent_.Script("parts", "exit 0");
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
        while (waitpid(-process->pid(), nullptr, 0) > 0) {
        }
    }

    Strings Files(const std::string& directory) const {
        Strings files;
        for (const auto& entry : std::filesystem::directory_iterator(agent_.Path(directory))) {
            files.push_back(directory + "/" + entry.path().filename().string());
        }
        return files;
    }
    // Whether an unfinished write has left something in the data directory.
    bool LeftTemporary() const { return Join(Files("data")).find(".new") != std::string::npos; }

    AgentDir agent_;
    EventPipe events_{agent_};
    std::string old_;
    Calls calls_;
    Result result_;

 private:
    void Stub(const std::string& name, const std::string& records) const {
        agent_.Script(name, "printf '%s' '" + records + "'");
    }
};

class FaultTest : public ::testing::TestWithParam<std::tuple<std::string, int>> {
 protected:
    void SetUp() override {
        Scene scene(mode_);
        scene.Run(mode_, Strike());
        ASSERT_EQ(scene.result_.status, 0) << scene.result_.err;
        if (scene.calls_.empty()) GTEST_SKIP() << kNobodyFollows;
        calls_ = scene.calls_;
        new_ = scene.agent_.Read(kSchedule);
        wholes_ = {new_};
        if (mode_ != "confchg") wholes_.push_back(scene.old_);
        padiag_wholes_ = {scene.agent_.Read(kPadiagSchedule)};
        for (const char* input : kInputs) inputs_[input] = scene.agent_.Read(input);
    }

    // Notes what is made without settings, and with settings of which nothing can be read.
    void MakeDefaults() {
        for (const bool there : {false, true}) {
            Scene scene(mode_);
            for (const char* file : {kSettings, kPadiagSettings}) {
                scene.agent_.Remove(file);
                if (there) scene.agent_.Write(file, "");
            }
            scene.Run(mode_);
            defaults_.push_back(scene.agent_.Read(kSchedule));
            padiag_defaults_.push_back(scene.agent_.Read(kPadiagSchedule));
        }
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

    // The share of this part of the test.
    std::vector<Strike> Mine(const std::vector<Strike>& strikes) const {
        std::vector<Strike> mine;
        for (size_t i = static_cast<size_t>(part_); i < strikes.size(); i += kParts) {
            mine.push_back(strikes[i]);
        }
        return mine;
    }

    // Files made by the defaults are taken where the fault explains them.
    void ExpectWhole(const Scene& scene, bool defaults = false) const {
        Strings wholes = wholes_, padiag_wholes = padiag_wholes_;
        if (defaults) {
            wholes.insert(wholes.end(), defaults_.begin(), defaults_.end());
            padiag_wholes.insert(padiag_wholes.end(), padiag_defaults_.begin(),
                                 padiag_defaults_.end());
        }
        const std::string text = scene.agent_.Read(kSchedule);
        EXPECT_TRUE(text == scene.old_ || Mix(text, wholes)) << text;
        EXPECT_TRUE(mode_ != "confchg" || Addresses(text) == Addresses(new_) ||
                    (scene.result_.status != 0 && text == scene.old_))
            << "an address is lost";
        if (scene.agent_.Exists(kPadiagSchedule)) {
            const std::string padiag = scene.agent_.Read(kPadiagSchedule);
            EXPECT_TRUE(Mix(padiag, padiag_wholes)) << padiag;
        }
        for (const auto& [input, bytes] : inputs_) EXPECT_EQ(scene.agent_.Read(input), bytes);
    }

    std::string mode_ = std::get<0>(GetParam());
    int part_ = std::get<1>(GetParam());
    Calls calls_;
    std::string new_;
    Strings wholes_;  // what the Schedule file may be mixed of
    Strings padiag_wholes_;
    Strings defaults_, padiag_defaults_;
    std::map<std::string, std::string> inputs_;
};

std::string NameOfCase(const ::testing::TestParamInfo<FaultTest::ParamType>& tested) {
    return std::get<0>(tested.param) + std::to_string(std::get<1>(tested.param));
}

class KilledTest : public FaultTest {};

TEST_P(KilledTest, LeavesAWholeScheduleToANextRunThatWorks) {
    const std::vector<Strike> all =
        Strikes([](const std::string& call) { return call.find(" data/") != std::string::npos; });
    ASSERT_GT(all.size(), 50U);
    // Of a process that is killed a sanitizer has little to say.
    for (const Strike& strike : Mine(Spread(all, kSanitized ? 30 : all.size()))) {
        SCOPED_TRACE(strike.call + " " + std::to_string(strike.turn));
        Scene scene(mode_);
        scene.Run(mode_, strike);
        // A pass may come by with a call less: it depends on when its test programs answer.
        const auto turns = std::count(scene.calls_.begin(), scene.calls_.end(), strike.call);
        EXPECT_EQ(scene.result_.status, turns < strike.turn && mode_ == "start" ? 0 : -SIGKILL);
        ExpectWhole(scene);
        if (mode_ == "reload") {
            const std::string text = scene.agent_.Read(kSchedule);
            EXPECT_TRUE(text == scene.old_ || text == new_) << text;
        }
        if (strike.call.rfind("rename", 0) == 0) {
            // What it left behind does no harm when the next run is killed, too.
            scene.Run("reload", Strike{"write data/pat_new_sche.txt.old.new", 1, kKill});
            EXPECT_EQ(scene.result_.status, -SIGKILL);
            EXPECT_EQ(Split(scene.agent_.Read(kSchedule)).size(), Split(new_).size());
        }
        scene.Run(mode_ == "confchg" ? mode_ : "reload");
        EXPECT_EQ(scene.result_.status, 0);
        EXPECT_TRUE(Mix(scene.agent_.Read(kSchedule), wholes_)) << scene.agent_.Read(kSchedule);
        EXPECT_FALSE(scene.LeftTemporary());
        if (HasFailure()) break;
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, KilledTest,
                         ::testing::Combine(::testing::Values<std::string>("reload", "confchg",
                                                                           "start"),
                                            ::testing::Range(0, kParts)),
                         NameOfCase);

// A file that takes another's place is on the disk before, and its place soon after.
TEST_P(KilledTest, HasSyncedWhatItRenames) {
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

class FailedCallTest : public FaultTest {};

TEST_P(FailedCallTest, EndsTheRunInOrderAndKeepsTheFiles) {
    MakeDefaults();
    std::vector<Strike> all;
    const Calls seen = calls_;
    for (const std::string& name : std::set<std::string>(seen.begin(), seen.end())) {
        // A sanitizer's own memory is not to be refused.
        if (kSanitized && name == "memory") continue;
        const auto same = [&](const std::string& call) { return call == name; };
        for (Strike strike : Spread(Strikes(same), mode_ == "start" ? 2 : 3)) {
            for (const int how : WaysToFail(name)) {
                strike.how = how;
                all.push_back(strike);
            }
        }
    }
    for (const Strike& strike : Mine(all)) {
        SCOPED_TRACE(strike.call + " " + std::to_string(strike.turn) + ": " +
                     std::to_string(strike.how));
        Scene scene(mode_);
        scene.Run(mode_, strike);
        EXPECT_TRUE(scene.result_.status == 0 || scene.result_.status == 1) << scene.result_.status;
        const auto struck = std::count(scene.calls_.begin(), scene.calls_.end(), strike.call);
        EXPECT_TRUE(struck == strike.turn || mode_ == "start") << struck;
        const auto about = [&](const char* what) {
            return strike.call.find(what) != std::string::npos;
        };
        const bool lack = strike.how == kNoDescriptors || strike.how == kNoMemory;
        ExpectWhole(scene, lack || about("memory") || about(kSettings) || about(kPadiagSettings));
        // A run that memory forces to its end leaves what a killed one leaves.
        EXPECT_TRUE(!scene.LeftTemporary() || strike.how == kNoMemory ||
                    strike.call.rfind("unlink", 0) == 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, FailedCallTest,
                         ::testing::Combine(::testing::Values<std::string>("reload", "confchg",
                                                                           "start"),
                                            ::testing::Range(0, kParts)),
                         NameOfCase);

struct Message {
    const char* mode;
    Strike strike;
    int status;
    std::vector<const char*> texts;
};

TEST(FailedCallMessageTest, TellsWhatFailed) {
    const char* const kNoSchedule = "E3823:Patrol schedule could not be created";
    const Message messages[] = {
        {"reload",
         {"open data/pat_msge.txt", 1, EMFILE},
         1,
         {"System call error <<fopen>>, errno:<<24>>", "E3899:<<file name = "}},
        {"reload", {"open data/pat_env0.ini", 1, EMFILE}, 0, {"[ReadEnvIni] Default Value Set."}},
        {"reload", {"open data/padiag.ini", 1, EMFILE}, 0, {"[ReadPadiagIni] Default Value Set."}},
        {"reload",
         {"open log/patstat0.txt", 1, EMFILE},
         0,
         {"[ptl_change_hist2] System Call Error. function= fopen, errno: 24"}},
        {"reload",
         {"open data/pat_sche2.txt.new", 1, EMFILE},
         1,
         {"[PadiagCreateSchedule] Can't open ",
          "[sched_main] Error:Padiag Schedule Creation Error Ended."}},
        {"reload",
         {"rename data/pat_new_sche.txt.new", 1, ENOSPC},
         0,
         {"[PatrolUpdateSchedule] Can't update ", "System call error <<rename>>, errno:<<28>>",
          "E3899:<<file name = "}},
        {"start",
         {"fsync data/pat_new_sche.txt.new", 1, EIO},
         0,
         {"[FlushDeferredWrites] Can't update ", "System call error <<fsync>>, errno:<<5>>",
          "E3899:<<file name = "}},
        {"start",
         {"write log/patstat0.txt", 1, ENOSPC},
         0,
         {"[ptl_history] System Call Error. function= write, errno: 28", "E3899:<<file name = "}},
        {"confchg",
         {"open data/devconf_new.xml", 1, EMFILE},
         1,
         {"[HddScheduleMk] Can't Open ", kNoSchedule}},
        {"confchg", {"read data/devconf_new.xml", 1, EIO}, 1, {kNoSchedule}},
        {"confchg",
         {"open data/pat_new_sche.txt.new", 1, EMFILE},
         1,
         {"[CreateSchedule] Can't open ", kNoSchedule}},
        {"confchg", {"write data/pat_new_sche.txt.new", 1, ENOSPC}, 1, {kNoSchedule}},
        {"confchg", {"rename data/pat_new_sche.txt.new", 1, ENOSPC}, 1, {kNoSchedule}},
        {"start", {"pipe", 1, EMFILE}, 1, {"Failed to popen Error End."}},
        {"start", {"fork", 1, EAGAIN}, 1, {"Failed to popen Error End."}},
        {"start",
         {"pipe", 2, EMFILE},
         0,
         {"[test_exec] System Call Error (pipe), errno:24", "[CpuTestExec] Error End."}},
        {"start",
         {"fork", 3, EAGAIN},
         0,
         {"[test_exec] System Call Error (pipe), errno:11",
          "[HddTestExec] Exec Error(sched_cnt=0)."}},
        {"start", {"read pipe", 2, EIO}, 0, {"[wait_for_testdata] read() failed. data_size= 0."}},
        {"start", {"fork", kDisks / 2 + 3, EAGAIN}, 0, {"RETRY rfork()", "patrol_parts_proc end"}},
        {"start", {"open temp/parts_pt_cpu", 1, EINTR}, 0, {"RETRY recreat()"}},
        {"start",
         {"open temp/parts_pt_cpu", 1, EMFILE},
         0,
         {"ERROR  END recreat()", "E3921:The file opening error was detected.<<(File name:"}},
        {"start",
         {"write temp/parts_pt_cpu", 1, ENOSPC},
         0,
         {"ERROR  END rwrite()", "E3924:The file write error was detected.<<(File name:"}},
        {"start",
         {"open log/pat_sys.log", 1, EMFILE},
         0,
         {"System call error <<fopen>>, errno:<<24>>", "E3899:<<file name = "}},
        {"start",
         {"open log/pat_trc0.log", 1, EMFILE},
         0,
         {"E3895:System call error <<fopen>>, errno:<<24>>", "E3899:<<file name = "}},
        {"start",
         {"write log/pat_trc0.log", 1, ENOSPC},
         0,
         {"E3895:System call error <<write>>, errno:<<28>>"}},
        {"reload",
         {"memory", 5, kNoMemory},
         1,
         {"E3895:System call error <<malloc>>, errno:<<12>>"}},
    };
    for (const Message& message : messages) {
        if (kSanitized && message.strike.call == "memory") continue;
        SCOPED_TRACE(message.strike.call + ": " + std::to_string(message.strike.how));
        Scene scene(message.mode);
        scene.Run(message.mode, message.strike);
        if (scene.calls_.empty()) GTEST_SKIP() << kNobodyFollows;
        EXPECT_EQ(scene.result_.status, message.status);
        std::string told = scene.result_.out + Join(scene.events_.Lines());
        for (const std::string& file : scene.Files("log")) told += scene.agent_.Read(file);
        for (const char* text : message.texts) {
            EXPECT_NE(told.find(text), std::string::npos) << text << " is not in\n" << told;
        }
    }
}

}  // namespace
}  // namespace patrol_test
