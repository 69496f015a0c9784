// The agent's programs, run from the build tree against a made machine.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "agent_dir.h"

namespace patrol_test {
namespace {

constexpr char kMemoryFault[] = "data/faults/memory.json";

class AgentProgramTest : public AgentTest {
 protected:
    void SetUp() override {
        const std::string build = AGENT_DIR;
        env_ = agent_.Environment();
        env_["KVX_bin"] = build;
        env_["PATROL_ROOT"] = agent_.Path("root");
        // Programs of the test's own come first, then the agent's, and the controller.
        env_["PATH"] = agent_.Path("bin") + ":" + build + ":" + build + "/..:/usr/bin:/bin";
        MakeDirs("root/proc");
        agent_.Write("root/proc/loadavg", "0.00 0.00 0.00 1/100 1\n");
        agent_.Script("systemd-ac-power", "exit 0");
    }

    Result Agent(const std::string& program, std::vector<std::string> words = {},
                 const std::string& input = "") {
        words.insert(words.begin(), program);
        agent_.Write("input", input);
        const std::string file = agent_.Path("input");
        Launch launch;
        launch.in_child = [file] { dup2(open(file.c_str(), O_RDONLY), STDIN_FILENO); };
        return Process(std::string(AGENT_DIR) + "/" + program, words, env_, agent_.Path("output"),
                       launch)
            .Wait();
    }

    void MakeDirs(const std::string& relative) const {
        for (size_t at = 0; at != std::string::npos;) {
            at = relative.find('/', at + 1);
            if (!agent_.Exists(relative.substr(0, at))) agent_.MakeDir(relative.substr(0, at));
        }
    }

    // The names in a directory that contain `part`.
    std::vector<std::string> Names(const std::string& directory, const std::string& part = "") {
        std::vector<std::string> names;
        for (const std::string& name : Split(ListDir(agent_.Path(directory)))) {
            if (name.find(part) != std::string::npos) names.push_back(name);
        }
        return names;
    }

    Env env_;

 private:
    static std::string ListDir(const std::string& path) {
        FILE* listing = popen(("LC_ALL=C ls '" + path + "' 2>/dev/null").c_str(), "r");
        std::string text;
        for (int c = 0; (c = fgetc(listing)) != EOF;) text += static_cast<char>(c);
        pclose(listing);
        return text;
    }
};

class InventoryTest : public AgentProgramTest {
 protected:
    using Files = std::vector<std::pair<std::string, std::string>>;

    // A block device below the made sysfs, with the files that it has there.
    void Block(const std::string& place, const std::string& name, const Files& files = {},
               const std::string& size = "2048") {
        const std::string inner = "devices/" + place + "/" + name;
        MakeDirs("sys/block");
        MakeDirs("sys/" + inner);
        agent_.Write("sys/" + inner + "/size", size + "\n");
        for (const auto& [file, text] : files) {
            const size_t slash = file.rfind('/');
            if (slash != std::string::npos) {
                MakeDirs("sys/" + inner + "/" + file.substr(0, slash));
            }
            agent_.Write("sys/" + inner + "/" + file, text);
        }
        symlink(("../" + inner).c_str(), agent_.Path("sys/block/" + name).c_str());
    }

    int Inventory(std::vector<std::string> words = {}) {
        words.insert(words.end(), {"--sys", agent_.Path("sys")});
        return Agent("patrol-inventory", words).status;
    }

    // What the controller takes from the file.
    std::string Targets() {
        agent_.Write("data/pat_env0.ini", PatrolSettings("OFF", "OFF", "ON"));
        agent_.Remove("data/pat_new_sche.txt");
        EXPECT_EQ(agent_.Run({"confchg"}).status, 0);
        std::string targets = "(none)";
        constexpr std::string_view kMark = "Target Device: ";
        for (const std::string& line : agent_.History()) {
            const size_t at = line.find(kMark);
            if (at != std::string::npos) targets = line.substr(at + kMark.size());
        }
        return targets;
    }
};

TEST_F(InventoryTest, TheControllerFindsEveryDiskAndNothingElse) {
    Block("pci0000:00/0000:00:1f.2/0:0:0:0", "sdaa", {{"device/vendor", "ATA     "}});
    Block("pci0000:00/0000:00:1f.2/1:0:0:0", "sdb",
          {{"device/vpd_pg80", std::string("\0\x80\0\x08", 4) + " S<&\"1  "},
           {"device/vendor", "MAKER   \n"},
           {"device/model", "A \"B\" <C> \x01\xff\n"},
           {"device/state", "running\n"},
           {"removable", "0\n"}});
    Block("pci0000:00/0000:00:1f.2/2:0:0:0", "sdc", {{"device/state", "offline\n"}});
    Block("pci0000:00/0000:01:00.0/nvme", "nvme0n1", {{"device/serial", "N1"}, {"nsid", "1"}});
    Block("pci0000:00/0000:01:00.0/nvme", "nvme0n2", {{"device/serial", "N1"}, {"nsid", "2"}});
    Block("pci0000:00/0000:00:05.0/virtio1", "vda", {{"device/vendor", "0x1af4\n"}});
    Block("pci0000:00/0000:00:06.0/mmc", "mmcblk0boot0");
    Block("pci0000:00/0000:00:06.0/mmc", "mmcblk0");
    agent_.Remove("sys/block/mmcblk0/size");
    Block("pci0000:00/0000:01:00.0/nvme", "nvme0c0n1", {{"hidden", "1\n"}});
    Block("pci0000:00/0000:00:14.0/usb", "sdu", {{"removable", "1\n"}});
    Block("pci0000:00/0000:00:1f.2/4:0:0:0", "sdz", {}, "0");
    Block("pci0000:00/0000:00:1f.2/3:0:0:0", "sr0");
    Block("virtual/block", "dm-0", {{"dm/name", "root"}});
    Block("virtual/block", "md0", {{"md/level", "raid1"}});
    for (const char* name : {"loop0", "ram0", "zram0", "nbd0", "zd0"}) Block("virtual/block", name);
    Block("platform/floppy.0", "fd0");
    Block("pci0000:00/0000:00:02.0", "etherd!e0", {{"serial", "N1"}});
    for (const char* name : {"sd\"x", "sd\ny", "dm-1", "md1"}) Block("pci0000:00", name);
    symlink("sdloop", agent_.Path("sys/block/sdloop").c_str());

    EXPECT_EQ(Inventory(), 0);
    EXPECT_EQ(Targets(),
              "/dev/sdb,/dev/sdaa,/dev/sdisk/vda,/dev/sdisk/mmcblk0,"
              "/dev/sdisk/nvme0n1,/dev/sdisk/nvme0n2,/dev/sdisk/etherd/e0");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 0", "serial_number"), "S&lt;&amp;&quot;1");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 1", "serial_number"), "none (pci-0000:00:1f.2-sdaa)");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 4", "serial_number"), "N1 (pci-0000:01:00.0-nvme0n1)");
    EXPECT_EQ(agent_.Key("HDD_SCHEDULE 5", "serial_number"), "N1_2");
    const std::string text = agent_.Read("data/devconf_new.xml");
    EXPECT_EQ(agent_.Read("data/devconf_cur.xml"), text);
    EXPECT_NE(text.find("<attr name=\"model\">A &quot;B&quot; &lt;C&gt; ?"
                        "?</attr>"),
              std::string::npos);
    EXPECT_NE(text.find("<attr name=\"status\">offline</attr>"), std::string::npos);
    EXPECT_NE(text.find("<attr name=\"size\">1048576</attr>"), std::string::npos);

    EXPECT_EQ(Inventory({"--with", "loop, removable\r", "--without", "nvme* , sdb,,e*,mmc*"}), 0);
    EXPECT_EQ(Targets(), "/dev/sdu,/dev/sdaa,/dev/sdisk/vda,/dev/sdisk/loop0");
}

TEST_F(InventoryTest, TheStatusSaysWhetherAnythingChanged) {
    Block("pci0000:00/0000:00:05.0/virtio1", "vda");
    MakeDirs("sys/class/dmi/id");
    agent_.Write("sys/class/dmi/id/product_name", "Server 1\n");
    agent_.Write("sys/class/dmi/id/product_serial", "To Be Filled By O.E.M.\n");
    agent_.Write("sys/class/dmi/id/board_serial", "B-7\n");
    EXPECT_EQ(Inventory(), 0);
    const std::string text = agent_.Read("data/devconf_cur.xml");
    EXPECT_NE(text.find("<attr name=\"model\">Server 1</attr>\n    <attr name=\"S/N\">B-7</attr>"),
              std::string::npos);
    EXPECT_EQ(Inventory(), 1);
    agent_.Write("sys/class/dmi/id/product_name", std::string(200, '&'));
    EXPECT_EQ(Inventory(), 0);
    // The controller takes no more of a line.
    for (const std::string& line : agent_.Lines("data/devconf_cur.xml")) {
        EXPECT_LE(line.size(), 97U) << line;
    }
    agent_.Remove("data/devconf_cur.xml");
    EXPECT_EQ(Inventory(), 0);
    agent_.Remove("sys/block/vda");
    EXPECT_EQ(Inventory(), 0);
    EXPECT_EQ(Inventory({"--data", agent_.Path("nowhere")}), 2);
    EXPECT_EQ(Inventory({"--with", "loops"}), 2);
    agent_.Remove("sys");
    EXPECT_EQ(Inventory(), 2);
    EXPECT_EQ(Names("data", "devconf"),
              (std::vector<std::string>{"devconf_cur.xml", "devconf_new.xml"}));
}

class StatusCommandTest : public AgentProgramTest {
 protected:
    std::string Answer() { return Agent("get", {"agent_status"}).out; }
    void Conf(const std::string& text) { agent_.Write("config/agent.conf", text); }
    // What the controller makes of the answer.
    bool Ready() {
        agent_.Write("data/pat_new_sche.txt", "[TEST_SCHEDULE]\nhdd_all_num=0\n");
        Launch launch;
        launch.env = env_;
        return agent_.Run({"start"}, launch).status == 0;
    }
};

TEST_F(StatusCommandTest, EachReasonIsSaidAndHasItsSwitch) {
    EXPECT_EQ(Answer(), "0 ready\n");
    agent_.Script("systemd-ac-power", "exit 1");
    EXPECT_EQ(Answer(), "1 battery: the machine runs on battery\n");
    MakeDirs("root/sys/block/md0/md");
    MakeDirs("root/sys/block/md1/md");
    agent_.Write("root/sys/block/md0/md/sync_action", "check\n");
    agent_.Write("root/sys/block/md1/md/sync_action", "recover\n");
    EXPECT_EQ(Answer(), "1 raid: md1 is busy with: recover\n");
    agent_.Write("root/proc/loadavg", "9000.08 0.00 0.00 1/100 1\n");
    EXPECT_EQ(Answer().substr(0, 8), "1 load: ");
    Conf("max_load_per_cpu=0\nwait_for_raid=no\non_battery=yes\n");
    EXPECT_EQ(Answer(), "0 ready\n");
    // As other systems' editors and other programs' settings would have it.
    Conf(" max_load_per_cpu = 0 \r\nwait_for_raid=No\r\non_battery = YES\r\n");
    EXPECT_EQ(Answer(), "0 ready\n");
    Conf("max_load_per_cpu=0\nwait_for_raid=true\n");
    EXPECT_EQ(Answer().substr(0, 8), "1 raid: ");
    for (const char* wrong : {"many", "1.2.3", ".", "-1", "0.001", "99999999999999999999"}) {
        Conf("max_load_per_cpu=" + std::string(wrong) + "\n");
        EXPECT_EQ(Answer().substr(0, 8), "1 load: ") << wrong;
    }
    agent_.Write("root/proc/loadavg", "0.08 0.00 0.00 1/100 1\n");
    Conf("max_load_per_cpu=0.5\nwait_for_raid=no\non_battery=yes\n");
    EXPECT_TRUE(Ready());
}

TEST_F(StatusCommandTest, NoReasonOfAHoldReadsAsReady) {
    for (const std::string& reason :
         {std::string(), std::string("0"), std::string(200, '0'), std::string("0\n0\n0 ready\n"),
          std::string(5000, '0'), std::string("\0\x1b[31m0\n", 8)}) {
        agent_.Write("hold", reason);
        EXPECT_FALSE(Ready());
        const std::vector<std::string> lines = Split(Answer());
        EXPECT_EQ(First(lines).substr(0, 8), "1 hold: ");
        for (const std::string& line : lines) {
            EXPECT_LE(line.size(), 62U);
            EXPECT_EQ(line.find('\x1b'), std::string::npos);
        }
        EXPECT_EQ(Agent("ready").status, 1);
    }
    std::string reason = "-";
    for (int i = 0; i < 80; ++i) reason += "\xc3\xa4";
    agent_.Write("hold", reason);
    EXPECT_EQ(Agent("ready").out, "Not now: hold: " + reason + "\n");
    agent_.Remove("hold");
    symlink("nothing", agent_.Path("hold").c_str());
    EXPECT_FALSE(Ready());
    agent_.Remove("hold");
    EXPECT_TRUE(Ready());
    EXPECT_EQ(Agent("ready").status, 0);
    // For systemd, a condition that is not met is no failure; this is one.
    env_["KVX_bin"] = agent_.Path("nowhere");
    EXPECT_EQ(Agent("ready").status, 255);
}

class FaultStoreTest : public AgentProgramTest {
 protected:
    // A part report as the controller writes it, handed to the part command.
    int Set(const std::string& name, const std::string& unit, const std::string& detail = "") {
        agent_.Write("temp/" + name,
                     "TIME=2026-01-02T03:04:05TIME=2026-01-02T03:04:05+00:00\nFRU1=" + unit +
                         "\nFLAG=patrol\nSUMMARY=bad \"bit\"\nOPERATION=E3890\nDETAIL=" + detail +
                         "\n");
        return Agent("parts", {"set", agent_.Path("temp/" + name)}).status;
    }
    bool Stored(const std::string& file, const std::string& part) {
        return agent_.Read(file).find(part) != std::string::npos;
    }
};

TEST_F(FaultStoreTest, AUnitHasOneFileThatCounts) {
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0", "[[[[ X ]]]]\nPROGRAM : memtest\n\xff\x01"), 0);
    std::vector<std::string> lines = agent_.Lines(kMemoryFault);
    const auto first = [&] {
        return *std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("\"first\"") != std::string::npos;
        });
    };
    const std::string began = first();
    for (const char* part :
         {"\"version\": 1,", "\"kind\": \"Memory\"", "\"count\": 1,",
          "\"summary\": \"bad \\\"bit\\\"\"", "\"time\": \"2026-01-02T03:04:05+00:00\"",
          "\"name\": \"parts_pt_mem\"", "PROGRAM : memtest\\n\xef\xbf\xbd\\u0001\\n"}) {
        EXPECT_TRUE(Stored(kMemoryFault, part)) << part << "\n" << agent_.Read(kMemoryFault);
    }
    agent_.Write(kMemoryFault, Join(lines));  // a reader may have rewritten it
    EXPECT_EQ(Set("parts_pd_mem", "Partition;0"), 0);
    lines = agent_.Lines(kMemoryFault);
    EXPECT_TRUE(Stored(kMemoryFault, "\"count\": 2,"));
    EXPECT_EQ(first(), began);

    // A disk is known by its serial number, whatever its device is called today.
    agent_.Write("data/pat_new_sche.txt",
                 "[HDD_SCHEDULE 0]\nserial_number=S/1 x\ndevice_name=/dev/sda\n"
                 "[TEST_SCHEDULE]\nhdd_all_num=1\n");
    EXPECT_EQ(Set("parts_pt_hdd.sda", "HDD;/SCSI/dev/sda"), 0);
    EXPECT_EQ(Set("parts_pt_hdd.sdisk_vda", "HDD;/SCSI/dev/sdisk/vda"), 0);
    EXPECT_EQ(Set("parts_pt_cpu", "BB;BB"), 0);
    EXPECT_EQ(Set("parts_io", "Partition;0"), 0);
    EXPECT_EQ(Names("data/faults"),
              (std::vector<std::string>{"cpu.json", "disk-S_1_x.json", "disk-_dev_sdisk_vda.json",
                                        "memory.json", "unknown.json"}));
    EXPECT_TRUE(Stored("data/faults/disk-S_1_x.json", "\"serial\": \"S/1 x\""));
    EXPECT_TRUE(Stored("data/faults/disk-S_1_x.json", "\"device\": \"/dev/sda\""));
}

TEST_F(FaultStoreTest, WhatCannotBeStoredIsAnsweredAsTheControllerExpects) {
    EXPECT_EQ(Agent("parts", {"set", agent_.Path("temp/missing")}).status, 1);
    EXPECT_EQ(Set("parts_pt_mem", ""), 1);
    const auto data = std::exchange(env_["KVX_data"], "");
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 1);
    env_["KVX_data"] = data;
    EXPECT_EQ(Agent("parts", {"get", "x"}).status, 1);
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 0);
    const int lock = open(agent_.Path("data/faults/.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 2);
    close(lock);
    for (const char* damage :
         {"", "{", "[]", "{\"version\":1}", "{\"version\":\"1\",\"count\":null}"}) {
        agent_.Write(kMemoryFault, damage);
        EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 0) << damage;
        EXPECT_TRUE(Stored(kMemoryFault, "\"count\": 1,")) << damage;
    }
    EXPECT_EQ(Names("data/faults", "memory.damaged.").size(), 5U);
    // Neither what nests deeper than it can be written, nor a report that grows, costs the count.
    agent_.Write(kMemoryFault, "{\"version\":1,\"first\":\"f\",\"count\":3,\"x\":" +
                                   std::string(200000, '[') + std::string(200000, ']') + "}");
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0", std::string(2000000, '\1')), 0);
    EXPECT_TRUE(Stored(kMemoryFault, "\"count\": 4,"));
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 0);
    EXPECT_TRUE(Stored(kMemoryFault, "\"count\": 5,"));
    agent_.Remove("data/faults");
    agent_.Write("data/faults", "in the way");
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 4);
}

TEST_F(FaultStoreTest, EveryReportReachesTheProgramsOfPartsD) {
    MakeDirs("config/parts.d");
    agent_.Script("../config/parts.d/a", "exit 1");
    agent_.Script(
        "../config/parts.d/b",
        "echo $PATROL_FAULT_ID $(grep FRU1 \"$1\") $(test -e $PATROL_FAULT && echo there) "
        ">> $KVX_data/told");
    // Where systemd waits for what is laid out, it starts "hooks", else "parts" does.
    EXPECT_EQ(Set("parts_pt_mem", "Partition;0"), 0);
    EXPECT_EQ(Names("data/outbox"), std::vector<std::string>{});
    EXPECT_EQ(agent_.Lines("data/told").size(), 1U);
    MakeDirs("root/run/systemd/system");
    EXPECT_EQ(Set("parts_pt_mem", "Partition;1"), 0);
    EXPECT_EQ(agent_.Lines("data/told").size(), 1U);
    agent_.Write("data/outbox/memory@1.2.3.new.4", "FRU1=half");
    utimes(agent_.Path("data/outbox/memory@1.2.3.new.4").c_str(), std::array<timeval, 2>{}.data());
    // A lock that cannot be had keeps no report back.
    agent_.Remove("data/hooks.lock");
    agent_.MakeDir("data/hooks.lock");
    EXPECT_EQ(Agent("hooks").status, 0);
    EXPECT_EQ(agent_.Lines("data/told"),
              (std::vector<std::string>{"memory FRU1=Partition;0 there",
                                        "memory FRU1=Partition;1 there"}));
    EXPECT_EQ(Names("data/outbox"), std::vector<std::string>{});
}

TEST_F(AgentProgramTest, WhatIsInstalledNamesThePlacesThatItIsInstalledIn) {
    if (access(AGENT_DIR, W_OK) != 0) GTEST_SKIP() << "the build is somebody else's";
    // A build may have been told to put some of it elsewhere than below the prefix.
    const std::string root = agent_.Path("to");
    const std::string install = "cmake --install '" AGENT_DIR "/..' --prefix /place >/dev/null";
    ASSERT_EQ(system(("DESTDIR='" + root + "' " + install).c_str()), 0);
    int named = 0;
    for (const std::string& line : agent_.Lines("to/place/lib/systemd/system/patrol.service")) {
        const size_t at = line.find("=/");
        if (at == std::string::npos || line.find(' ') != std::string::npos) continue;
        EXPECT_EQ(access((root + line.substr(at + 1)).c_str(), F_OK), 0) << line;
        ++named;
    }
    EXPECT_GE(named, 3);
}

class AgentUnitTest : public AgentProgramTest {
 protected:
    void SetUp() override {
        AgentProgramTest::SetUp();
        agent_.Script("patrol-inventory", "test -e \"$KVX_data/devconf_new.xml\"; exit 1");
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(1)));
        agent_.Write("config/pat_env0.ini", PatrolSettings("ON", "OFF", "OFF"));
        agent_.Write("config/pat_new_para.ini", "[CPUDIAG_PARAM]\nlv=0\n[MEMDIAG_PARAM]\nlv=0\n");
        agent_.Write("config/padiag.ini",
                     "# all\n[mem]\n[cpu]\non\r\n[level]\n3\n[time]\n\n008\r\n");
        symlink(agent_.Path("config/pat_env0.ini").c_str(),
                agent_.Path("data/pat_env0.ini").c_str());
    }
};

TEST_F(AgentUnitTest, PrepareTakesOverWhatIsNewAndNothingElse) {
    const auto asked = [&](const std::vector<std::string>& words = {}) {
        const Result result = Agent("prepare", words);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out.substr(0, result.out.find(','));
    };
    EXPECT_EQ(asked(), "patrol.exe reload");
    EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_exe"), "ON");
    EXPECT_EQ(asked(), "");
    EXPECT_EQ(asked({"KVXstart"}), "patrol.exe KVXstart\n");
    agent_.Write("config/padiag.ini", "[time]\n9\n");
    agent_.Write("config/ext_a.ini", "[TEST]\n");
    agent_.Write("config/ext_b.ini", "[TEST]\n");
    agent_.Write("data/ext_b.ini", "of somebody else");
    EXPECT_EQ(asked(), "");
    EXPECT_EQ(agent_.Read("data/padiag.ini"), "[time]\n9\n");
    EXPECT_EQ(agent_.Read("data/ext_a.ini"), "[TEST]\n");
    EXPECT_EQ(agent_.Read("data/ext_b.ini"), "of somebody else");
    // Each of these is the administrator's file, and the controller sees it.
    agent_.Write("config/pat_new_para.ini", "[CPUDIAG_PARAM]\nlv=7\n[MEMDIAG_PARAM]\nlv=0\n");
    EXPECT_EQ(asked(), "patrol.exe confchg");
    EXPECT_EQ(agent_.Key("CPUDIAG_PARAM", "lv", "data/pat_new_para.ini"), "7");
    agent_.Write("config/pat_env0.ini", PatrolSettings("OFF", "ON", "OFF"));
    EXPECT_EQ(asked(), "patrol.exe confchg");
    EXPECT_EQ(agent_.Key("MEM_SCHEDULE", "mem_exe"), "ON");
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(2)));
    EXPECT_EQ(asked(), "patrol.exe confchg");
    EXPECT_EQ(agent_.Key("TEST_SCHEDULE", "hdd_all_num"), "2");
    EXPECT_EQ(asked(), "");
    // The controller would keep but the newest result beside a history of 1 MiB.
    agent_.Write("log/patstat0.txt", std::string(800000, '\n'));
    agent_.Write("log/patstat0.txt1", "older");
    EXPECT_EQ(asked(), "");
    EXPECT_EQ(agent_.Read("log/patstat0.txt1").size(), 800000U);
    EXPECT_EQ(agent_.Read("log/patstat0.txt2"), "older");
    EXPECT_FALSE(agent_.Exists("log/patstat0.txt"));
    // What the controller could not take over is not forgotten.
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(3)));
    agent_.Remove("data/pat_msge.txt");
    EXPECT_EQ(Agent("prepare").status, 1);
    agent_.Write("data/pat_msge.txt", "");
    EXPECT_EQ(asked(), "patrol.exe confchg");
    EXPECT_EQ(agent_.Key("TEST_SCHEDULE", "hdd_all_num"), "3");
}

TEST_F(AgentUnitTest, WithTheSettingsAsTheyComeEveryDiskHasItsTurn) {
    constexpr int kDisks = 26;
    agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(kDisks)));
    ASSERT_EQ(system(("cp '" AGENT_SETTINGS "'/*.ini '" + agent_.Path("config'")).c_str()), 0);
    agent_.Write("config/pat_env0.ini", PatrolSettings("OFF", "OFF", "ON"));
    agent_.Script("hddtest", "echo \"$2\" >>\"$KVX_data/tested\"");
    EXPECT_EQ(Agent("prepare").status, 0);
    constexpr int kRounds = 2;
    for (int pass = 0; pass < 2 * kRounds; ++pass) EXPECT_EQ(agent_.Run({"start"}).status, 0);
    const Strings tested = agent_.Lines("data/tested");
    for (const Disk& disk : NumberedDisks(kDisks)) {
        EXPECT_EQ(std::count(tested.begin(), tested.end(), disk.device), kRounds) << disk.device;
    }
}

TEST_F(AgentUnitTest, ARequestKeepsToThePadiagIniOfTheAdministrator) {
    const std::string bin = agent_.Path("bin");
    // The test programs are looked for beside "get".
    for (const char* name : {"get", "agent.sh", "ready"}) {
        symlink((std::string(AGENT_DIR) + "/" + name).c_str(), (bin + "/" + name).c_str());
    }
    agent_.Remove("bin/get");
    agent_.Script("get", "echo '0 ready'");
    env_["KVX_bin"] = bin;
    agent_.Write("data/padiag_para.ini", "");
    agent_.Write("data/pat_sche2.txt", "[CPU_SCHEDULE]\ncpu=OFF\n");
    agent_.Script("cputest",
                  "echo \"$@\" > $KVX_data/words\n"
                  "printf 'ONLPTL,0x00000000,0x02,0x01,cputest         ,CPU             ,\\n"
                  "%s,0x02,0x00000000,\\n=====\\n' \"$(cat $KVX_data/end)\"");
    for (const auto& [end, status] :
         {std::pair<const char*, int>{"0x01", 0}, {"0x06", 1}, {"0x04", 2}}) {
        agent_.Write("data/end", end);
        agent_.Write("data/padiag.ini", "[cpu]\noff\n");
        const Result result = Agent("request", {"2"});
        EXPECT_EQ(result.status, status) << end << result.out << result.err;
        EXPECT_NE(result.out.find("cputest"), std::string::npos) << result.out;
        const std::string words = agent_.Read("data/words");
        EXPECT_NE(words.find("-lv 2"), std::string::npos) << words;
        EXPECT_NE(words.find("/runtime 8"), std::string::npos) << words;
        EXPECT_EQ(agent_.Read("data/padiag.ini"), agent_.Read("config/padiag.ini"));
    }
    agent_.Remove("data/words");
    for (const char* level : {"0", "4", "", "1 2"}) EXPECT_EQ(Agent("request", {level}).status, 1);
    agent_.Script("get", "echo '1 hold: for a test'");
    const Result held = Agent("request", {"1"});
    EXPECT_EQ(held.status, 1);
    EXPECT_NE((held.out + held.err).find("hold: for a test"), std::string::npos);
    EXPECT_FALSE(agent_.Exists("data/words"));
}

TEST_F(AgentUnitTest, EventsReachTheJournalWithNumberAndPriority) {
    agent_.Script("logger", "test \"$1\" = --journald && cat >> $KVX_data/journal");
    Agent("events", {},
          "E0809:memtest $(x) \\n `y`\nMB;W2825:two\nI1121:three\nno number\nT1100:t\n\n"
          "E3899:<<old = a:b>>MB;E3899:<<new>>I1121:four\nE3899:<<end>>");
    std::string all;
    for (const std::string& line : agent_.Lines("data/journal")) {
        const size_t equals = line.find('=');
        if (line.compare(0, 6, "SYSLOG") != 0) all += line.substr(equals + 1) + "|";
    }
    EXPECT_EQ(all,
              "E0809:memtest $(x) \\n `y`|3|E0809|MB;W2825:two|4|W2825|I1121:three|6|I1121|"
              "no number|5||T1100:t|7|T1100|E3899:<<old = a:b>>|3|E3899|MB;E3899:<<new>>|3|E3899|"
              "I1121:four|6|I1121|E3899:<<end>>|3|E3899|");
}

TEST_F(AgentUnitTest, MetricsAreReplacedByWhatCouldBeReadAndKeptElse) {
    env_["PATROL_METRICS_DIR"] = agent_.Path("temp");
    agent_.Script("patrolctl", "cat $KVX_data/metrics; exit $(cat $KVX_data/end)");
    for (const auto& [end, metrics, kept] : {std::array{"0", "all", "all"},
                                             {"3", "some", "some"},
                                             {"1", "half", "some"},
                                             {"141", "none", "some"}}) {
        agent_.Write("data/end", end);
        agent_.Write("data/metrics", metrics);
        symlink(agent_.Path("data/end").c_str(), agent_.Path("temp/patrol.prom.new").c_str());
        EXPECT_EQ(std::to_string(Agent("metrics").status), end);
        EXPECT_EQ(agent_.Read("temp/patrol.prom"), kept);
        EXPECT_EQ(agent_.Read("data/end"), end);
        EXPECT_EQ(Names("temp"), std::vector<std::string>{"patrol.prom"});
    }
}

}  // namespace
}  // namespace patrol_test
