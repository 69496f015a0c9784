// The lines that a diagnosis sends to the system log, as they are received.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "padiag.h"

namespace patrol_test {
namespace {

// Shows this process, and it alone, the directory `dev` in place of /dev.
bool ShowOwnDevices(const std::string& dev) {
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    // Mounts are made private from the root of the mount namespace, which setns leads to: in a
    // chroot "/" need not be a mount point.
    const int root = open("/", O_PATH | O_CLOEXEC);
    const int name_space = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    return setns(name_space, CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && fchdir(root) == 0 &&
           chroot(".") == 0 &&
           mount("/dev/null", (dev + "/null").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount(dev.c_str(), "/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

// A receiver of the system log for one program: a socket that the program alone finds at /dev/log.
class SystemLog {
 public:
    explicit SystemLog(const AgentDir& agent) : dev_(agent.Path("dev")) {
        agent.MakeDir("dev");
        agent.Write("dev/null", "");
        socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (dev_ + "/log").copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~SystemLog() { close(socket_); }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // Whether a program may be shown another /dev here.
    bool Ready() const {
        const pid_t trial = fork();
        if (trial == 0) _exit(ShowOwnDevices(dev_) ? 0 : 1);
        int status = -1;
        return waitpid(trial, &status, 0) == trial && status == 0;
    }
    // What a program needs to send its lines here.
    Launch Connection() const {
        Launch launch;
        launch.in_child = [dev = dev_] {
            if (!ShowOwnDevices(dev)) _exit(98);
        };
        return launch;
    }
    // The lines that came since the last call: "<priority>" and what follows the sender's name.
    Strings Lines() const {
        Strings lines;
        char piece[8192];
        for (ssize_t n; (n = recv(socket_, piece, sizeof piece, 0)) >= 0;) {
            std::string line(piece, static_cast<size_t>(n));
            line.erase(line.find('>') + 1, line.find("SDB::") - line.find('>') - 1);
            line.erase(line.find_last_not_of(std::string("\n\0", 2)) + 1);
            lines.push_back(line);
        }
        return lines;
    }

 private:
    std::string dev_;
    int socket_ = -1;
};

class PadiagEventTest : public PadiagFixture {
 protected:
    void SetUp() override {
        log_ = std::make_unique<SystemLog>(agent_);
        if (!log_->Ready()) GTEST_SKIP() << "a program cannot have a /dev of its own here";
        agent_.Write("config/common.ini", "[sdb]\nenable=1\nfacility=3\n");
        agent_.Write("data/devconf_cur.xml",
                     "<devconf>\n<dev type=\"SYSTEM\" phypath=\"/\">\n"
                     "<attr name=\"S/N\">SN %d</attr>\n<attr name=\"model\">M%s1</attr>\n</dev>\n"
                     "<dev type=\"CPU_summary\" phypath=\"/CPU%n\">\n"
                     "<dev type=\"DIMM_summary\" phypath=\"/MEM\">\n"
                     "<dev phypath=\"/IOU#0 /dev/sda\">\n<dev phypath=\"/IOU#1 /dev/sdb\">\n<dev "
                     "phypath=\"/IOU#2 /dev/sdc\">\n");
    }
    // Runs a diagnosis in this zone; gives its event lines with times as "T".
    Strings Events(const std::string& zone = "UTC0") {
        Launch launch = log_->Connection();
        launch.env["TZ"] = zone;
        Diagnose(launch);
        const std::regex time(zone == "UTC0" ? "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\+00:00"
                                             : "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d-03:30");
        Strings lines = log_->Lines();
        for (std::string& line : lines) line = std::regex_replace(line, time, "T");
        return lines;
    }
    static std::string Line(const std::string& head, const std::string& tail,
                            const std::string& machine = "M%s1\" serial:\"SN %d",
                            int facility = LOG_LOCAL3) {
        char host[257] = "";
        gethostname(host, sizeof host - 1);
        return "<" + std::to_string(facility | LOG_NOTICE) + ">SDB::ZQWNkvx:" + head +
               ".(model:\"" + machine + "\" hostname:\"" + host + "\" component:\"" + tail + ")";
    }

    std::unique_ptr<SystemLog> log_;
};

const std::string kStart = " start_time:\"T\"";
const std::string kTimes = " start_time:\"T\" end_time:\"T\"";

TEST_F(PadiagEventTest, EveryTestTellsOfItsStartAndItsEnd) {
    Plan(2, "ON", "ON", {"ON"});
    Stub("cputest", ProgressRecord(1, "cputest") + Verdict(1, 2, "cputest"));
    Stub("memtest", Verdict(4, 2, "memtest", "E1 100% bad"));
    Stub("hddtest", Verdict(4, 2, "hddtest"));
    EXPECT_EQ(Events("WWW3:30"),
              (Strings{Line("1043:cpu diagnostics started", "/CPU%n\"" + kStart),
                       Line("1053:memory diagnostics started", "/MEM\"" + kStart),
                       Line("1063:disk diagnostics started", "/IOU#0 /dev/sda\"" + kStart),
                       Line("1044:cpu diagnostics completed", "/CPU%n\" pass:\"1\"" + kTimes),
                       Line("1055:memory diagnostics failed",
                            "/MEM\" pass:\"0\" errmsg:\" E1 100% bad\"" + kTimes),
                       Line("1065:disk diagnostics failed",
                            "/IOU#0 /dev/sda\" pass:\"0\" errmsg:\"no data\"" + kTimes)}));
}

TEST_F(PadiagEventTest, ATestWithoutAResultIsAnnouncedAsAborted) {
    Plan(1, "ON", "OFF", {"ON"});
    Stub("cputest", Verdict(1, 0, "cputest"));
    Stub("hddtest", ProgressRecord(1));
    const Strings lines = Events();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[2], Line("1045:cpu diagnostics failed",
                             "/CPU%n\" pass:\"0\" errmsg:\"cputest aborted.\"" + kTimes));
    EXPECT_EQ(lines[3], Line("1065:disk diagnostics failed",
                             "/IOU#0 /dev/sda\" pass:\"1\" errmsg:\"hddtest aborted.\"" + kTimes));
}

TEST_F(PadiagEventTest, LevelThreeTellsOfTheProgressOfEachDiskAlone) {
    const auto place = [](const char* disk, const char* pass, const char* progress,
                          const char* from, const char* to, const std::string& error = "") {
        return std::string("/IOU#") + disk + "\" pass:\"" + pass + "\" progress:\"" + progress +
               "%\" start_lba:\"0x" + from + "\" end_lba:\"0x" + to + "\"" +
               (error.empty() ? "" : " errmsg:\"" + error + "\"") + kTimes;
    };
    agent_.Write(kProgress, "[HDD_MAX_LBA]\n/dev/sda=0x100\n/dev/sdb=0x200\n");
    Plan(3, "OFF", "OFF", {"ON", "ON", "ON"});
    agent_.SetKey("HDD_SCHEDULE 1", "address", "0x80", kPadiagSchedule);
    agent_.Write("data/a", ProgressRecord(1) + Verdict(1, 2, "hddtest", "", "0x00000080"));
    agent_.Write("data/b", Verdict(2, 3, "hddtest", "", "0x00000200"));
    agent_.Script("hddtest", "cat $KVX_data/${2#/dev/sd}");
    Strings lines = Events();
    ASSERT_EQ(lines.size(), 6U);
    lines.erase(lines.begin(), lines.begin() + 3);  // the starts
    EXPECT_EQ(
        lines,
        (Strings{
            Line("1064:disk diagnostics completed",
                 place("0 /dev/sda", "1", "50", "0000000000000000", "0000000000000128")),
            Line("1064:disk diagnostics completed",
                 place("1 /dev/sdb", "0", "100", "0000000000000128", "0000000000000512")),
            Line("1065:disk diagnostics failed", place("2 /dev/sdc", "0", "0", "0000000000000000",
                                                       "0000000000000000", "hddtest aborted."))}));
}

TEST_F(PadiagEventTest, SettingsAreReadAnewForEachEvent) {
    Plan(3, "OFF", "ON", {});
    agent_.Write("data/hold", "");
    Stub("memtest", Verdict(1, 2), kHold);
    Process& process = Begin(log_->Connection());
    EXPECT_TRUE(Eventually([&] { return Count("[PadiagWaitMemTest] ProcessIdMem") > 0; }));
    agent_.Write("config/common.ini", "[sdb]\nenable = -1\nfacility = 9\n");
    agent_.Write("data/devconf_cur.xml", "");
    agent_.Remove("data/hold");
    EXPECT_EQ(process.Wait().status, 0);
    const Strings lines = log_->Lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(0, 5), "<" + std::to_string(LOG_LOCAL3 | LOG_NOTICE) + ">");
    const std::string begin = Line("1054:memory diagnostics completed",
                                   "/MEM\" pass:\"0\" start_time:\"", "\" serial:\"", LOG_LOCAL0);
    EXPECT_EQ(lines[1].substr(0, begin.size() - 1), begin.substr(0, begin.size() - 1));
    agent_.Write("config/common.ini", "[other]\nenable=1\n");
    EXPECT_EQ(Events(), Strings());
    ExpectSteps({"[kvx_sdb_msg] Start.", "[padiag_sdb_event] Warning : disabled by sdb.conf."});
}

}  // namespace
}  // namespace patrol_test
