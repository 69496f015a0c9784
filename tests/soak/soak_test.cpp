// Hundreds of passes over test programs that do anything, with signals at any moment.
//
// PATROL_SOAK_SECONDS is how long each lane goes on (20 under sanitizers, else 5). PATROL_SOAK_SEED
// repeats its choices, though not the moments at which the signals arrive.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <set>

#include "records.h"

namespace patrol_test {
namespace {

using Clock = std::chrono::steady_clock;
using Plans = std::map<std::string, std::string>;  // by device or name: the letters of the stub
using Texts = std::vector<std::string>;

constexpr int kMostDisks = 7;

struct Lane {
    const char* name;
    int disks;  // the most there are
};
const Lane kLanes[] = {{"alone", 0}, {"crowd", kMostDisks}, {"another_crowd", kMostDisks}};

// A Schedule file without what passes move on and what settings say.
std::string Shape(const std::string& schedule) {
    return Masked(Masked(schedule, "address=0x([0-9a-f]{16}|[0-9a-f]{8})\n", "address=#\n"),
                  "(_go|_gusu|_kisu|_kigu|_timeout|_max)=[^\n]*", "$1=#");
}
std::string ShapeOf(int disks) {
    return ScheduleText("cpu_exe=ON\ncpu_next_go=#", "mem_exe=ON\nmem_next_go=#",
                        Texts(static_cast<size_t>(disks), "hdd_exe=ON\nhdd_next_go=#\naddress=#"),
                        "hdd_timeout=#\nhdd_max=#\nhdd_next_gusu=#\nhdd_next_kisu=#\n"
                        "hdd_start_kigu=#\ncpu_timeout=#\nmem_timeout=#");
}

Texts AllDevices() {
    Texts devices = {"CPU", "mem"};
    for (const Disk& disk : NumberedDisks(kMostDisks)) devices.push_back(disk.device);
    return devices;
}
const Texts kAll = AllDevices();

// Of a program that holds on ('h'): whether its test may not have come to an end before, and
// whether the controller stops it if no other program's end is taken for its own.
bool Hangs(const std::string& plan) {
    return std::min(plan.find('h'), plan.find_first_of("gt")) < plan.find_first_of("1246naxcke");
}
bool Stopped(const std::string& plan) {
    return plan.find('i') > plan.size() &&
           plan.find_first_of("1246nax") < plan.find_first_of("cgt");
}

bool Ended(const Process& process) {
    siginfo_t info = {};
    const auto pid = static_cast<id_t>(process.pid());
    return waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

// Collects the children that have ended, orphans of the passes among them.
bool NoChildLeft() {
    pid_t ended = 0;
    while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) continue;
    return ended < 0;
}

class SoakTest : public PassTest, public ::testing::WithParamInterface<Lane> {
 protected:
    void SetUp() override {
        ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        const char* asked = getenv("PATROL_SOAK_SEED");
        const auto seed = asked ? static_cast<unsigned>(std::stoul(asked)) : std::random_device()();
        std::cout << "PATROL_SOAK_SEED=" << seed << std::endl;
        random_.seed(seed + std::hash<std::string>()(GetParam().name));
        for (const std::string name : {"get", "parts", "cputest", "memtest", "hddtest"}) {
            agent_.Remove("bin/" + name);
            std::filesystem::create_symlink(SOAK_STUB, agent_.Path("bin/" + name));
        }
        agent_.Write("data/pat_env0.ini", PatrolSettings("ON", "ON", "ON"));
        agent_.Write("data/padiag.ini", "[cpu]\non\n[mem]\non\n[hdd]\non\n[level]\n3\n[time]\n1\n");
        std::string garbage(1 + Pick(5000), '\0');
        for (char& c : garbage) c = static_cast<char>(Pick(256));
        const std::string log = LogRecord(1, "I0001", std::string(100, 'x'));
        const Plans sent = {{"a", StatusRecord(2, 1, "", "0x00000080")},
                            {"f", Repeat(log, 200)},
                            {"g", garbage},
                            {"l", LogRecord(1, "00000", "said")},
                            {"n", StatusRecord(4, 6, ResultBlock("hddtest", "/dev/sdx", "bad"))},
                            {"p", ProgressRecord(60)},
                            {"t", log.substr(0, 1 + Pick(log.size() - 1))},
                            {"w", LogRecord(1, "W2825", "warned")},
                            {"x", Framed(Head("0x05"))},
                            {"R", "0\n"}};
        for (const char* code : {"1", "2", "4", "6"}) {
            agent_.Write("data/send." + std::string(code), StatusRecord(atoi(code)));
        }
        for (const auto& [letter, bytes] : sent) agent_.Write("data/send." + letter, bytes);
    }

    unsigned Pick(size_t count) { return static_cast<unsigned>(random_() % count); }
    std::string PickOf(const Texts& texts) { return texts[Pick(texts.size())]; }
    Plans Programs(bool calm, const Texts& devices) {
        constexpr std::string_view kLetters = "1112246aabcefghiklnpstwx";
        Plans plans = {{"get", "R"}, {"parts", ""}};
        for (const std::string& device : devices) {
            plans[device] = calm ? "1" : "";
            for (unsigned i = calm ? 0 : 1 + Pick(5); i > 0; --i) {
                plans[device] += kLetters[Pick(kLetters.size())];
            }
            if (!calm && Pick(20) == 0) plans[device] = "1h";  // is to be stopped
        }
        if (calm) return plans;
        plans["parts"] = PickOf({"", "", "", "s", "sf", "e2", "e4", "k", "h"});
        if (Pick(8) == 0) plans["get"] = PickOf({"sR", "fR", "Rf", "e1", "s", "k", "h", "Rh"});
        return plans;
    }

    // The leak check of a sanitizer hangs where a SIGCONT comes in; other tests have it.
    Launch WithoutLeakCheck() const {
        Launch launch;
        launch.env["ASAN_OPTIONS"] = *agent_.Environment().at("ASAN_OPTIONS") + ":detect_leaks=0";
        return launch;
    }

    // Runs one command among such programs (without plans it starts none) to its end, and checks
    // what must hold after each. Returns its exit status, or minus the signal that ended it.
    int Drive(const std::string& mode, const Plans& plans, bool disturbed, bool beside = false) {
        bool hold = false, hang = false;
        bool stay = mode != "start" || Due().size() != 1;
        std::string trace = mode;
        Launch launch = WithoutLeakCheck();
        for (const auto& [name, plan] : plans) {
            launch.env["PLAN_" + name] = plan;
            trace += " " + name + ":" + plan;
            if (plan.find('h') == std::string::npos) continue;
            hold = true;
            hang = hang || mode != "start" || name == "get" || Hangs(plan);
            stay = stay || !Stopped(plan);
        }
        SCOPED_TRACE(trace);
        std::unique_ptr<Process> other;
        if (beside && !hold) other = agent_.Start({"pastart"}, launch);
        process_ = agent_.Start({mode}, launch);
        const auto limit = Clock::now() + std::chrono::seconds(50);
        Disturb(hang ? 10000 : disturbed && Pick(3) == 0 ? 1 + Pick(3) : 0, !plans.empty(), limit);
        const int status = process_->Wait().status;
        for (; other && Clock::now() < limit && !Ended(*other); usleep(2000)) pipe_.Lines();
        EXPECT_TRUE(other == nullptr || other->Wait().status / 2 == 0);
        // But for SIGTERM, a signal ends only a controller that has not yet begun to trace.
        EXPECT_TRUE(status == 0 || status == 1 ||
                    (sent_.count(-status) == 1 && (status == -SIGTERM || Steps().empty())))
            << status;

        // Programs that ended are gone, and a lone one that held on after its report is stopped.
        const bool may_stay = status < 0 || (hold && (stay || !sent_.empty()));
        EXPECT_TRUE(may_stay || Eventually(NoChildLeft));
        if (!NoChildLeft()) kill(-process_->pid(), SIGKILL);
        EXPECT_TRUE(Eventually(NoChildLeft));
        EXPECT_EQ(agent_.Read("data/foreign"), "") << "descriptors of the controller";
        // Reports that the parts command does not take stay where they are.
        const bool refused = !plans.empty() && plans.at("parts").find_first_of("ekh") == 0;
        for (const std::string& file : Temporary()) {
            EXPECT_TRUE(status < 0 || sent_.count(SIGTERM) == 1 || refused) << file;
            std::filesystem::remove(file);
        }
        ++runs_;
        return status;
    }
    // Sends so many signals while the controller runs, and reads what it tells the agent.
    void Disturb(unsigned signals, bool deadly, Clock::time_point limit) {
        constexpr int kNumbers[] = {SIGINT, SIGHUP, SIGINT, SIGHUP, SIGPIPE, SIGCHLD, SIGSTOP};
        std::mt19937 moments(static_cast<unsigned>(random_()));  // how many are drawn is chance
        const auto pick = [&](unsigned count) { return static_cast<unsigned>(moments()) % count; };
        sent_.clear();
        if (signals != 0 && pick(2) == 0) usleep(pick(200000));
        for (; Clock::now() < limit && !Ended(*process_); pipe_.Lines()) {
            usleep(signals == 0 ? 2000 : pick(1U << pick(17)));
            if (signals == 0) continue;
            --signals;
            const int number = deadly && pick(20) == 0 ? SIGTERM : kNumbers[pick(7)];
            process_->Signal(number);
            if (number == SIGSTOP) process_->Signal(SIGCONT);
            sent_.insert(number);
        }
    }
    // The files that only a run under way may have.
    Texts Temporary() const {
        Texts found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(agent_.Path())) {
            const std::string path = entry.path();
            if (Masked(path, "/temp/.|\\.new\\b|\\.tmp$|_stdout[0-9]*$", "") != path) {
                found.push_back(path);
            }
        }
        return found;
    }
    // What the Schedule says is due.
    Texts Due() const {
        Texts due;
        if (agent_.Key("CPU_SCHEDULE", "cpu_next_go") == "ON") due.push_back("CPU");
        if (agent_.Key("MEM_SCHEDULE", "mem_next_go") == "ON") due.push_back("mem");
        for (int i = 0; i < disks_; ++i) {
            const std::string section = "HDD_SCHEDULE " + std::to_string(i);
            if (agent_.Key(section, "hdd_next_go") == "ON")
                due.push_back(kAll.at(static_cast<size_t>(i) + 2));
        }
        return due;
    }
    void CheckSchedules() const {
        EXPECT_EQ(Shape(agent_.Read(kSchedule)), ShapeOf(disks_));
        EXPECT_EQ(Shape(agent_.Read(kPadiagSchedule)), padiag_);
    }

    void Pass(bool calm) {
        Texts due = Due();
        const Plans plans = Programs(calm, due);
        const int status = Drive("start", plans, !calm, Pick(10) == 0);
        const bool ready = plans.at("get").find('R') != std::string::npos;
        EXPECT_TRUE(!sent_.empty() || status == (ready ? 0 : 1)) << status;
        CheckSchedules();
        // Processors and memory take turns. A pass that was killed may have come that far.
        EXPECT_TRUE(status < 0 || (status == 0) == (Due().at(0) != due.at(0)));
        const std::string file = "data/ran." + std::to_string(process_->pid());
        Texts ran = agent_.Lines(file);
        agent_.Remove(file);
        for (const std::string& device : ran) ++visits_[device];
        passes_ += status == 0 ? 1 : 0;
        if (status != 0 || !sent_.empty()) return;
        std::sort(ran.begin(), ran.end());
        std::sort(due.begin(), due.end());
        EXPECT_EQ(ran, due);
    }
    // With new disks and limit, or 128, for all but reload; a pass meets them without a Schedule.
    void Configure(const std::string& mode, int disks = -1) {
        const bool quiet = disks >= 0, pass = mode == "start";
        if (mode != "reload") {
            configured_ =
                quiet ? disks : static_cast<int>(Pick(static_cast<size_t>(GetParam().disks) + 1));
            agent_.Write(
                "data/pat_new_para.ini",
                "[HDDDIAG_PARAM]\nmax=" + std::to_string(quiet ? 128 : 1 << Pick(3)) + "\n");
        }
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(configured_)));
        if (pass) agent_.Remove(kSchedule);
        const int status = Drive(mode, pass ? Programs(true, {}) : Plans(), !pass && !quiet);
        EXPECT_TRUE(!sent_.empty() || status == 0) << status;
        if (status == 0 && mode == "reload") padiag_ = Shape(agent_.Read(kPadiagSchedule));
        if (status == 0 && mode != "reload") disks_ = configured_;
        CheckSchedules();
        for (const char* key : {"cpu_timeout", "mem_timeout", "hdd_timeout"}) {
            agent_.SetKey("TEST_SCHEDULE", key, "1");
        }
    }

    // Where the disks of the Schedule go on.
    std::map<std::string, std::string> Addresses() const {
        std::map<std::string, std::string> addresses;
        for (int i = 0; i < disks_; ++i) {
            const std::string section = "HDD_SCHEDULE " + std::to_string(i);
            addresses[agent_.Key(section, "device_name")] = agent_.Key(section, "address");
        }
        return addresses;
    }
    // Starts a few runs of any modes at about the same time, all with the same disks, which may be
    // others than before, and checks what they have made of the Schedule together.
    void Overlap() {
        const int disks = 1 + static_cast<int>(Pick(kMostDisks));
        const auto before = Addresses();
        const std::string address = Hex(0x40U * static_cast<unsigned>(++runs_), 8);
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(disks)));
        agent_.Write("data/send.a", StatusRecord(1, 1, "", address));
        Launch launch = WithoutLeakCheck();
        Plans plans = Programs(true, kAll);
        for (auto& [name, plan] : plans) {
            if (name[0] == '/') plan = PickOf({"a", "sa"});
            launch.env["PLAN_" + name] = plan;
        }
        std::vector<std::pair<std::string, std::unique_ptr<Process>>> runs;
        std::map<std::string, int> modes;
        for (unsigned i = 2 + Pick(3); i > 0; --i) {
            runs.emplace_back(PickOf({"start", "start", "reload", "confchg", "pastart"}), nullptr);
            ++modes[runs.back().first];
        }
        std::string trace = std::to_string(disks) + " disks:";
        for (auto& [mode, run] : runs) {
            trace += " " + mode;
            run = agent_.Start({mode}, launch);
            usleep(1U << Pick(16));
        }
        SCOPED_TRACE(trace);
        // Whoever stops for a moment may hold the lock, or have read what another changes.
        Process& stopped = *runs[Pick(runs.size())].second;
        stopped.Signal(SIGSTOP);
        usleep(1U << Pick(16));
        stopped.Signal(SIGCONT);
        Texts tested;
        size_t refused = 0;
        for (auto& [mode, run] : runs) {
            const int status = run->Wait().status;
            const bool may_refuse = mode.find("start") != std::string::npos && modes[mode] > 1;
            EXPECT_TRUE(status == 0 || (status == 1 && may_refuse)) << mode << ": " << status;
            refused += status == 0 ? 0 : 1;
            const std::string file = "data/ran." + std::to_string(run->pid());
            Texts ran = agent_.Lines(file);
            agent_.Remove(file);
            std::sort(ran.begin(), ran.end());
            EXPECT_EQ(std::adjacent_find(ran.begin(), ran.end()), ran.end()) << "tested twice";
            if (mode == "start") tested.insert(tested.end(), ran.begin(), ran.end());
        }
        for (const std::string& event : pipe_.Lines()) {
            EXPECT_TRUE(event.find("E3899:<<another ") == 0 || event.find("I1121:") == 0) << event;
            refused -= event[0] == 'E' ? 1 : 0;
        }
        EXPECT_EQ(refused, 0U) << "not every refusal was told";
        if (modes["confchg"] > 0) disks_ = disks;
        if (modes["reload"] > 0) padiag_ = Shape(agent_.Read(kPadiagSchedule));
        CheckSchedules();
        const auto after = Addresses();
        for (const auto& [device, was] : before) {
            if (after.count(device) == 0) continue;
            const bool moved = std::count(tested.begin(), tested.end(), device) > 0;
            EXPECT_EQ(after.at(device), moved ? "0x00000000" + address.substr(2) : was) << device;
        }
        for (const std::string& file : Temporary()) ADD_FAILURE() << file;
        EXPECT_TRUE(Eventually(NoChildLeft));
    }
    // In quiet times each component has its turn, and no more than that.
    void ExpectTurns() {
        Configure("confchg", kMostDisks);
        visits_.clear();
        for (int i = 0; i < 4; ++i) Pass(true);
        for (const std::string& device : kAll) EXPECT_EQ(visits_[device], 2) << device;
        std::cout << runs_ << " runs, " << passes_ << " passes that came to their end\n";
    }
    // Goes on until the time is up or something is wrong.
    template <class Step>
    void GoOn(Step step) {
        const char* asked = getenv("PATROL_SOAK_SECONDS");
        const auto end = Clock::now() + std::chrono::seconds(asked        ? std::stoi(asked)
                                                             : kSanitized ? 20
                                                                          : 5);
        for (const char* mode : {"reload", "confchg", "reload"}) Configure(mode, GetParam().disks);
        while (!HasFailure() && Clock::now() < end) {
            SCOPED_TRACE("run " + std::to_string(runs_));
            step();
        }
        if (!HasFailure()) ExpectTurns();
    }

    EventPipe pipe_{agent_};
    std::mt19937 random_;
    int disks_ = 0, configured_ = 0;  // of the Schedule, and of the device configuration
    std::string padiag_;              // the shape of its Schedule
    std::set<int> sent_;              // signals to the last run
    std::map<std::string, int> visits_;
    int runs_ = 0, passes_ = 0;
};

TEST_P(SoakTest, EveryRunEndsInOrderAndLeavesNothingBehind) {
    GoOn([this] {
        const unsigned choice = Pick(16);
        if (choice == 0) Configure(PickOf({"reload", "confchg", "KVXstart", "start"}));
        if (choice == 1) Drive("pastart", Programs(false, kAll), true);
        if (choice > 1) Pass(choice < 5);
    });
}

using OverlapSoakTest = SoakTest;

TEST_P(OverlapSoakTest, RunsAtTheSameTimeLoseNothingOfEachOther) {
    GoOn([this] { Overlap(); });
}

const auto kName = [](const auto& tested) { return std::string(tested.param.name); };
INSTANTIATE_TEST_SUITE_P(Lanes, SoakTest, ::testing::ValuesIn(kLanes), kName);
INSTANTIATE_TEST_SUITE_P(Lanes, OverlapSoakTest, ::testing::Values(Lane{"overlap", kMostDisks}),
                         kName);

}  // namespace
}  // namespace patrol_test
