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
const std::vector<Disk> kDisks = NumberedDisks(kMostDisks);

// What the Schedule file must say, worked out in the plainest way.
struct Model {
    bool cpu = true;  // else memory
    int disks = 0, limit = 128, timeout = 45;
    bool due[kMostDisks] = {};
    int phase = 1, start[2] = {0, 1};  // of the even and of the odd disks

    void Restart() {
        cpu = true;
        phase = start[1] = 1;
        start[0] = 0;
        for (int i = 0, room = limit; i < disks; ++i) {
            due[i] = i % 2 == 0 && room-- > 0;
            if (i % 2 == 0 && !due[i]) start[0] = i;
        }
    }
    void Advance() {
        cpu = !cpu;
        if (disks == 0) return;
        if (disks == 1) phase = 0;
        int room = limit, i = 0;
        for (; i < disks && room > 0; ++i) {
            due[i] = disks == 1 || (!due[i] && i % 2 == phase && i >= start[phase]);
            if (due[i] && disks > 1) --room;
        }
        phase = 1 - phase;
        start[phase] = room == 0 ? i : phase;
    }
    Texts Due() const {
        Texts devices = {cpu ? "CPU" : "mem"};
        for (size_t i = 0; i < kDisks.size(); ++i) {
            if (static_cast<int>(i) < disks && due[i]) devices.push_back(kDisks[i].device);
        }
        return devices;
    }
    std::string Text() const {
        const auto flag = [](bool on) { return on ? "ON" : "OFF"; };
        std::ostringstream text;
        text << "[CPU_SCHEDULE]\ncpu_exe=ON\ncpu_next_go=" << flag(cpu)
             << "\n[MEM_SCHEDULE]\nmem_exe=ON\nmem_next_go=" << flag(!cpu);
        for (size_t i = 0; static_cast<int>(i) < disks; ++i) {
            text << "\n[HDD_SCHEDULE " << i << "]\nserial_number=" << kDisks[i].serial
                 << "\nhdd_exe=ON\nhdd_next_go=" << flag(due[i])
                 << "\naddress=#\ndevice_name=" << kDisks[i].device << "\nhdd_ide=0";
        }
        text << "\n[TEST_SCHEDULE]\nhdd_all_num=" << disks << "\nhdd_timeout=" << timeout
             << "\nhdd_max=" << limit << "\nhdd_next_gusu=" << start[0]
             << "\nhdd_next_kisu=" << start[1] << "\nhdd_start_kigu=" << phase
             << "\ncpu_timeout=" << timeout << "\nmem_timeout=" << timeout << "\n";
        return text.str();
    }
};

Texts AllDevices() {
    Texts devices = {"CPU", "mem"};
    for (const Disk& disk : kDisks) devices.push_back(disk.device);
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

class SoakTest : public PassTest, public ::testing::WithParamInterface<int> {
 protected:
    void SetUp() override {
        ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        const char* asked = getenv("PATROL_SOAK_SEED");
        const auto seed = asked ? static_cast<unsigned>(std::stoul(asked)) : std::random_device()();
        std::cout << "PATROL_SOAK_SEED=" << seed << std::endl;
        random_.seed(seed + static_cast<unsigned>(GetParam()));
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

    // Runs one command among such programs (without plans it starts none) to its end, and checks
    // what must hold after each. Returns its exit status, or minus the signal that ended it.
    int Drive(const std::string& mode, const Plans& plans, bool disturbed, bool beside = false) {
        bool hold = false, hang = false;
        bool stay = mode != "start" || model_.Due().size() != 1;
        std::string trace = mode;
        Launch launch;
        // The leak check of a sanitizer hangs where a SIGCONT comes in; other tests have it.
        launch.env["ASAN_OPTIONS"] = *agent_.Environment().at("ASAN_OPTIONS") + ":detect_leaks=0";
        launch.in_child = [] { close_range(3, ~0U, 0); };
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
        static const std::regex name(".*(/temp/.*|\\.new|\\.tmp|_stdout[0-9]*)");
        Texts found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(agent_.Path())) {
            if (std::regex_match(entry.path().string(), name)) found.push_back(entry.path());
        }
        return found;
    }
    // A Schedule file without the addresses.
    std::string Masked(const char* file) const {
        static const std::regex address("address=0x([0-9a-f]{16}|[0-9a-f]{8})\n");
        return std::regex_replace(agent_.Read(file), address, "address=#\n");
    }
    void CheckSchedules() const {
        EXPECT_EQ(Masked(kSchedule), model_.Text());
        EXPECT_EQ(Masked(kPadiagSchedule), padiag_);
    }

    void Pass(bool calm) {
        Texts due = model_.Due();
        const Plans plans = Programs(calm, due);
        const int status = Drive("start", plans, !calm, Pick(10) == 0);
        const bool ready = plans.at("get").find('R') != std::string::npos;
        EXPECT_TRUE(!sent_.empty() || status == (ready ? 0 : 1)) << status;
        Model moved = model_;
        moved.Advance();
        // One that was killed may have come that far.
        if (status == 0 || (status < 0 && Masked(kSchedule) == moved.Text())) model_ = moved;
        CheckSchedules();
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
        const bool quiet = disks >= 0;
        if (mode != "reload") {
            configured_.disks = quiet ? disks : static_cast<int>(Pick(most_ + 1));
            configured_.limit = quiet ? 128 : (1 << Pick(3));
        }
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(configured_.disks)));
        agent_.Write("data/pat_new_para.ini",
                     "[HDDDIAG_PARAM]\nmax=" + std::to_string(configured_.limit) + "\n");
        const bool pass = mode == "start";
        if (pass) agent_.Remove(kSchedule);
        const int status = Drive(mode, pass ? Programs(true, {}) : Plans(), !pass && !quiet);
        EXPECT_TRUE(!sent_.empty() || status == 0) << status;
        if (status == 0) {
            if (mode == "reload") padiag_ = Masked(kPadiagSchedule);
            if (mode != "reload") model_ = configured_;
            model_.Restart();
        }
        CheckSchedules();
        model_.timeout = 1;
        for (const char* key : {"cpu_timeout", "mem_timeout", "hdd_timeout"}) {
            agent_.SetKey("TEST_SCHEDULE", key, "1");
        }
    }

    const unsigned most_ = GetParam() == 0 ? 0 : kMostDisks;  // in one lane each program is alone
    EventPipe pipe_{agent_};
    std::mt19937 random_;
    Model model_, configured_;
    std::string padiag_;  // its Schedule
    std::set<int> sent_;  // signals to the last run
    std::map<std::string, int> visits_;
    int runs_ = 0, passes_ = 0;
};

TEST_P(SoakTest, EveryRunEndsInOrderAndLeavesNothingBehind) {
    const char* asked = getenv("PATROL_SOAK_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(asked        ? std::stoi(asked)
                                                         : kSanitized ? 20
                                                                      : 5);
    for (const char* mode : {"reload", "confchg", "reload"})
        Configure(mode, static_cast<int>(most_));
    while (!HasFailure() && Clock::now() < end) {
        SCOPED_TRACE("run " + std::to_string(runs_));
        const unsigned choice = Pick(16);
        if (choice == 0) Configure(PickOf({"reload", "confchg", "KVXstart", "start"}));
        if (choice == 1) Drive("pastart", Programs(false, kAll), true);
        if (choice > 1) Pass(choice < 5);
    }
    if (HasFailure()) return;
    // In quiet times each component has its turn, and no more than that.
    Configure("confchg", kMostDisks);
    visits_.clear();
    for (int i = 0; i < 4; ++i) Pass(true);
    for (const std::string& device : kAll) EXPECT_EQ(visits_[device], 2) << device;
    std::cout << runs_ << " runs, " << passes_ << " passes that came to their end\n";
}

INSTANTIATE_TEST_SUITE_P(Lanes, SoakTest, ::testing::Range(0, 3));

}  // namespace
}  // namespace patrol_test
