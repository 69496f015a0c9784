// What the doctor says of a healthy agent, and of one broken thing after the other.

#include <sys/stat.h>

#include <functional>

#include "patrolctl.h"

namespace patrol_test {
namespace {

class DoctorTest : public PatrolctlTest {
 protected:
    // A complete agent, from the samples.
    void SetUp() override {
        for (const char* name : {"pat_env0.ini", "padiag.ini", "pat_new_para.ini",
                                 "padiag_para.ini", "pat_nontarget.ini", "pat_msge.txt"}) {
            agent_.Write(std::string("data/") + name, ReadFile(std::string(SAMPLES "/") + name));
        }
        agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(2)));
        for (const char* name : {"parts", "cputest", "memtest", "hddtest"}) agent_.Script(name, "");
        mkfifo(agent_.Path("event_pipe").c_str(), 0600);
        ASSERT_EQ(agent_.Run({"reload"}).status, 0);
    }

    // Replaces the first `from` in a file of the data directory.
    void Edit(const std::string& file, const std::string& from, const std::string& to) const {
        std::string text = agent_.Read("data/" + file);
        const size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from << " in " << file;
        agent_.Write("data/" + file, text.replace(at, from.size(), to));
    }
    void Open(const std::string& path, mode_t mode) const {
        EXPECT_EQ(chmod(agent_.Path(path).c_str(), mode), 0);
    }
};

TEST_F(DoctorTest, FindsNothingWrongWithAHealthyAgent) {
    const std::string text = Shown({"doctor"});
    EXPECT_NE(
        text.find("/pat_env0.ini:13: note: processors are tested by \"Instruction+Register\", "),
        std::string::npos);
    EXPECT_NE(text.find("/devconf_new.xml:7: note: /dev/sda may be tested\n"), std::string::npos);
    EXPECT_NE(text.find("\n0 errors, 0 warnings.\n"), std::string::npos) << text;
    EXPECT_EQ(Shown({"doctor", "--json"}).find("[\n  {\n    \"level\": \"note\",\n"), 0U);
}

TEST_F(DoctorTest, FindsEachBrokenThing) {
    const auto edit = [this](const char* file, const char* from, const char* to) {
        return [=] { Edit(file, from, to); };
    };
    const auto remove = [this](const char* file) { return [=] { agent_.Remove(file); }; };
    const char* const devices = "devconf_new.xml";
    const struct {
        int status;
        const char* says;
        std::function<void()> harm;
    } rows[] = {
        // Disks that are not tested.
        {1, "xml:2: warning: /dev/nvme0n1 is not tested: its name does not begin with /dev/sd",
         edit(devices, "/dev/sda", "/dev/nvme0n1")},
        {1, "xml:3: warning: /dev/sda is not tested: its type is not HDD",
         edit(devices, ">HDD<", ">CD<")},
        {1, "xml:2: warning: /dev/sda is not tested: it has no type",
         edit(devices, "<attr name=\"type\">HDD</attr>\r\n", "")},
        {1, "xml:7: warning: /dev/sda is not tested: its status is not ok",
         edit(devices, ">ok<", ">failed<")},
        {1, "xml:2: warning: /dev/sda is not tested: no status stands behind its type",
         edit(devices, "<attr name=\"status\">ok</attr>\r\n", "")},
        {1, "has no vendor before its status line: \"\" of a disk before it counts",
         edit(devices, "<attr name=\"vendor\">MAKER</attr>\r\n", "")},
        {1, "/dev/sda is not tested: its status line stands before its vendor and model",
         [this] {
             Edit("devconf_new.xml", ">HDD</attr>\r\n",
                  ">HDD</attr>\r\n<attr name=\"status\">ok<\r\n");
         }},
        {1, "/dev/sda has an empty vendor", edit(devices, ">MAKER<", "><")},
        {1, "/dev/sda is not tested: its vendor and model are empty",
         [this] {
             Edit("devconf_new.xml", ">MAKER<", "><");
             Edit("devconf_new.xml", ">MODEL<", "><");
         }},
        {1, "xml:7: warning: /dev/sda is not tested: it is on the list",
         [this] {
             Edit("pat_nontarget.ini", "SVCPROC", "MAKER");
             Edit("pat_nontarget.ini", "Virtual Disk", "MODEL");
         }},
        {1, "xml:3: warning: this device is not tested: it stands behind the first software entry",
         edit(devices, "<devconf>", "<devconf>\n<dev type=\"SOFTWARE\">")},
        {1, "on-request runs see other disks than passes do",
         edit(devices, "</dev>\r\n<dev ", "<dev ")},
        {2, "devconf_new.xml: error: is missing: no disk is tested",
         remove("data/devconf_new.xml")},
        // Settings.
        {1, "the schedule has other time limits", edit("pat_env0.ini", "45", "44")},
        {1, "or another \"max\", than the settings", edit("pat_new_para.ini", "max=4", "max=3")},
        {1, "\"IMOVE\" does not count yet, but \"BMOVE\" of the parameters",
         edit("pat_env0.ini", "\nBMOVE", "\nIMOVE")},
        {1, "pat_env0.ini:19: warning: [CPUDIAG_TIMEOUT] \"99\" counts as 50",
         edit("pat_env0.ini", "45", "99")},
        {1, "[CPUDIAG_EXE] \"on\" counts as off", edit("pat_env0.ini", "\nON", "\non")},
        {1, "\"[CPU_EXE]\" is no section that is known",
         edit("pat_env0.ini", "[CPUDIAG_EXE]", "[CPU_EXE]")},
        {1, "\"[X]\" is taken as the value of [CPUDIAG_EXE]",
         edit("pat_env0.ini", "[CPUDIAG_EXE]", "[CPUDIAG_EXE]\n[X]")},
        {1, "pat_env0.ini: warning: is missing: passes test nothing", remove("data/pat_env0.ini")},
        {1, "padiag.ini:14: warning: there is no level 7", edit("padiag.ini", "\n1\n", "\n7\n")},
        {1, "\"lw\" is no key that is known in [CPUDIAG_PARAM]",
         edit("pat_new_para.ini", "\nlv=", "\nlw=")},
        {1, "there is no section [HDDDIAG_PARAM]: its test name goes into the last one",
         edit("pat_new_para.ini", "[HDDDIAG_PARAM]", "[HDD_PARAM]")},
        {1, "\"ext:no\" is skipped: ", edit("pat_new_para.ini", "tp=BMOVE", "tp=ext:no")},
        {1, "lv=-1 in [CPUDIAG_PARAM]: out of range", edit("pat_new_para.ini", "lv=0", "lv=-1")},
        {1, "padiag.ini: warning: is a directory: nothing is asked for",
         [this] {
             agent_.Remove("data/padiag.ini");
             agent_.MakeDir("data/padiag.ini");
         }},
        {1, "gen=many is no number", edit("pat_new_para.ini", "gen=4", "gen=many")},
        {1, "gen=7x counts as 7", edit("pat_new_para.ini", "gen=4", "gen=7x")},
        {1, "max=0: no disk falls due", edit("pat_new_para.ini", "max=4", "max=0")},
        {1, "max=-2: a pass tests any number", edit("pat_new_para.ini", "max=4", "max=-2")},
        {1, "error=ON in [MEMDIAG_PARAM_LEVEL1]: the test is made to fail",
         edit("padiag_para.ini", "waitsec=2\nerror=OFF", "waitsec=2\nerror=ON")},
        {1, "\"[CPUDIAG_PARAM_LEVEL4]\" is no section that is known",
         edit("padiag_para.ini", "[CPUDIAG_PARAM_LEVEL3]", "[CPUDIAG_PARAM_LEVEL4]")},
        {1, "pat_nontarget.ini:12: warning: [LIST2] is not read: number=2",
         edit("pat_nontarget.ini", "[LIST1]", "[LIST2]\nvendor=V\n[LIST1]")},
        {1, "\"made\" is no key that is known in [LIST0]",
         edit("pat_nontarget.ini", "vendor=", "made=V\nvendor=")},
        {1, "common.ini:3: warning: facility=9 counts as 0",
         [this] { agent_.Write("config/common.ini", "[sdb]\nenable=1\nfacility=9\n[x]\ny\n"); }},
        {1, "common.ini:2: warning: enable=yes is no number",
         [this] { agent_.Write("config/common.ini", "[sdb]\nenable=yes\n"); }},
        {1, "common.ini:2: warning: \" enable\" is no key that is known in [sdb]",
         [this] { agent_.Write("config/common.ini", "[sdb]\n enable=1\n"); }},
        {2, "pat_msge.txt: error: is missing: nothing runs without it",
         remove("data/pat_msge.txt")},
        {1, "E3895 is missing", edit("pat_msge.txt", "\"E3895\"", "\"E1895\"")},
        {1, "E3895 has no text that ends with", edit("pat_msge.txt", "errno:<<%d>>\";", "\"")},
        // Programs and directories.
        {2, "bin/hddtest: error: is missing: no test of kind HDD can be started",
         remove("bin/hddtest")},
        {2, "bin/get: error: is no program: no pass will run", [this] { Open("bin/get", 0600); }},
        {2, "bin: error: others may write to this directory", [this] { Open("bin", 0777); }},
        {0, "temp: note: others may write to this directory", [this] { Open("temp", 01777); }},
        {2, "temp: error: others may write to this directory", [this] { Open("temp", 0777); }},
        {2, "log: error: others may write to this directory", [this] { Open("log", 01777); }},
        {2, "above it, and put another one here", [this] { Open("", 0777); }},
        {2, "bin/cputest: error: others may write to it", [this] { Open("bin/cputest", 0777); }},
        {1, "event_pipe: warning: there is no event pipe here", remove("event_pipe")},
        // What no longer fits.
        {1, "the schedule does not fit the device configuration any more: run \"patrol.exe confchg",
         edit(devices, "/dev/sdb", "/dev/sdq")},
        {1, "the schedule does not fit the settings any more: run \"patrol.exe reload",
         edit("pat_env0.ini", "\nON", "\nOFF")},
        {1,
         "1 of 3 disks are left out once the first turns are over, such as /dev/sdb: a pass takes",
         [this] {
             agent_.Write("data/devconf_new.xml", DeviceXml(NumberedDisks(3)));
             Edit("pat_new_para.ini", "max=4", "max=2");
             agent_.Run({"confchg"});
         }},
        {1, "there is no schedule: run \"patrol.exe reload\"", remove(kSchedule)},
        {1, "is full: of later results \"patstat3.txt\" keeps the newest alone",
         [this] { agent_.Write(kHistory, std::string(1 << 20, '\n')); }},
        {1, "a killed \"patrolctl run\" has left files",
         [this] { agent_.Write("data/padiag.ini.patrolctl", ""); }},
    };
    for (const auto& row : rows) {
        for (const char* name : {"data", "temp", "log", "config"}) {
            agent_.Remove(name);
            agent_.MakeDir(name);
        }
        agent_.Remove("event_pipe");
        Open("bin", 0700);
        Open("", 0700);
        SetUp();
        agent_.Script("get", "echo 0");
        row.harm();
        const Result result = Ctl({"doctor"});
        EXPECT_EQ(result.status, row.status) << row.says << "\n" << result.out;
        EXPECT_NE(result.out.find(row.says), std::string::npos) << row.says << "\n" << result.out;
        // Doing what it says helps.
        const auto advises = [](const Result& shown, const std::string& mode) {
            return shown.out.find("run \"patrol.exe " + mode) != std::string::npos;
        };
        if (!advises(result, "")) continue;
        for (const char* mode : {"reload", "confchg"}) {
            if (advises(result, mode)) agent_.Run({mode});
        }
        EXPECT_FALSE(advises(Ctl({"doctor"}), "")) << result.out;
    }
    Launch launch;
    mkdir(agent_.Path("a b").c_str(), 0700);
    launch.env["KVX_bin"] = agent_.Path("a b");
    EXPECT_NE(Ctl({"doctor"}, launch).out.find("KVX_bin has a blank in it"), std::string::npos);
}

}  // namespace
}  // namespace patrol_test
