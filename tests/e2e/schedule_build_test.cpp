// Building the two Schedule files from the settings and the device configuration.

#include <gtest/gtest.h>

#include <array>
#include <regex>

#include "agent_dir.h"

namespace patrol_test {
namespace {

template <size_t N>
using Row = std::array<const char*, N>;

constexpr char kSettings[] = "data/pat_env0.ini";
constexpr char kParameters[] = "data/pat_new_para.ini";
constexpr char kDevices[] = "data/devconf_new.xml";
constexpr char kNonTargets[] = "data/pat_nontarget.ini";

class ScheduleTest : public AgentTest {
 protected:
    // Builds both files afresh.
    void Rebuild() {
        for (const char* file : {kSchedule, kPadiagSchedule, kHistory}) agent_.Remove(file);
        EXPECT_EQ(agent_.Run({"reload"}).status, 0);
    }
    std::string OfDisk(int n, const char* key, const char* file = kSchedule) const {
        return agent_.Key("HDD_SCHEDULE " + std::to_string(n), key, file);
    }
    std::string OfTest(const char* key, const char* file = kSchedule) const {
        return agent_.Key("TEST_SCHEDULE", key, file);
    }
    // The disks of a file, one word each: the device name without "/dev/", and in the patrol file
    // a "/" and the serial number.
    std::string Disks(const char* file = kSchedule) const {
        std::vector<std::string> disks;
        for (int n = 0; OfDisk(n, "device_name", file) != "(none)"; ++n) {
            const std::string name = OfDisk(n, "device_name", file);
            disks.push_back(name.substr(name.rfind('/') + 1));
            if (file == kSchedule) disks.back() += "/" + OfDisk(n, "serial_number");
        }
        EXPECT_EQ(OfTest("hdd_all_num", file), std::to_string(disks.size()));
        return Join(disks, " ");
    }
};

TEST_F(ScheduleTest, WholeFilesAndHistoriesOfThreeDisks) {
    std::vector<Disk> disks = NumberedDisks(3);
    disks[1].path = "/devices/IDE0";
    agent_.Write(kDevices, DeviceXml(disks));
    agent_.Write(kSettings,
                 "# patrol\r\n[CPUDIAG_EXE]\r\nON\r\n[CPUDIAG_TEST]\r\nRegister\r\n"
                 "[CPUDIAG_TIMEOUT]\r\n10\r\n\r\n[MEMDIAG_EXE]\r\nON\r\n[MEMDIAG_TEST]\r\nBMOVE\r\n"
                 "[MEMDIAG_TIMEOUT]\r\n20\r\n[HDDDIAG_EXE]\r\nON\r\n[HDDDIAG_TEST]\r\nsector\r\n"
                 "[HDDDIAG_TIMEOUT]\r\n30");
    agent_.Write(kParameters,
                 "[CPUDIAG_PARAM]\ntp=old\n[MEMDIAG_PARAM]\nloop=2\n[HDDDIAG_PARAM]\nmax=2");
    agent_.Write("data/padiag.ini", "[cpu]\non\n[mem]\nON\n[hdd]\non\n[level]\n3\n[time]\n7200\n");
    const std::string sevens(100, '7');
    agent_.Write("data/lba_outfile_bup.ini",
                 "[HDD_NEXT_LBA]\n/dev/sdb=0x0000000000001000\n/dev/sdc=" + sevens);
    Rebuild();
    EXPECT_EQ(agent_.Read(kSchedule),
              "[CPU_SCHEDULE]\ncpu_exe=ON\ncpu_next_go=ON\n"
              "[MEM_SCHEDULE]\nmem_exe=ON\nmem_next_go=OFF\n"
              "[HDD_SCHEDULE 0]\nserial_number=SN-0000\nhdd_exe=ON\nhdd_next_go=ON\n"
              "address=0x0000000000000000\ndevice_name=/dev/sda\nhdd_ide=0\n"
              "[HDD_SCHEDULE 1]\nserial_number=SN-0001\nhdd_exe=ON\nhdd_next_go=OFF\n"
              "address=0x0000000000000000\ndevice_name=/dev/sdb\nhdd_ide=1\n"
              "[HDD_SCHEDULE 2]\nserial_number=SN-0002\nhdd_exe=ON\nhdd_next_go=ON\n"
              "address=0x0000000000000000\ndevice_name=/dev/sdc\nhdd_ide=0\n"
              "[TEST_SCHEDULE]\nhdd_all_num=3\nhdd_timeout=30\nhdd_max=2\nhdd_next_gusu=0\n"
              "hdd_next_kisu=1\nhdd_start_kigu=1\ncpu_timeout=10\nmem_timeout=20\n");
    EXPECT_EQ(agent_.Read(kPadiagSchedule),
              "[CPU_SCHEDULE]\ncpu=ON\n[MEM_SCHEDULE]\nmem=ON\n[HDD_SCHEDULE 0]\nhdd=ON\n"
              "address=0x0000000000000000\ndevice_name=/dev/sda\nhdd_ide=0\n[HDD_SCHEDULE 1]\n"
              "hdd=ON\naddress=0x0000000000001000\ndevice_name=/dev/sdb\nhdd_ide=1\n"
              "[HDD_SCHEDULE 2]\nhdd=ON\naddress=" +
                  sevens.substr(0, 63) +
                  "\ndevice_name=/dev/sdc\nhdd_ide=0\n"
                  "[TEST_SCHEDULE]\nhdd_all_num=3\nlevel=3\ntime=7200\n");
    EXPECT_EQ(agent_.Read(kParameters),
              "[CPUDIAG_PARAM]\ntp=Register\n[MEMDIAG_PARAM]\nloop=2\ntp=BMOVE\n"
              "[HDDDIAG_PARAM]\nmax=2\ntp=sector\n");
    for (const char* history : {kHistory, "log/pastat.txt"}) {
        EXPECT_EQ(Join(agent_.History(history)),
                  "[Change Setup] Target Device: CPU,Memory,/dev/sda,/dev/sdb,/dev/sdc\n"
                  "[Change Setup] Target Diagnosis: cputest memtest hddtest\n");
    }
    // The list of targets is cut, the files are not.
    agent_.Write(kDevices, DeviceXml(NumberedDisks(100)));
    Rebuild();
    std::string list = "CPU,Memory";
    for (const Disk& disk : NumberedDisks(100)) list += "," + disk.device;
    EXPECT_EQ(First(agent_.History()), "[Change Setup] Target Device: " + list.substr(0, 511));
    EXPECT_EQ(OfTest("hdd_all_num") + OfDisk(99, "serial_number"), "100SN-0099");
}

TEST_F(ScheduleTest, WithoutSettingsEverythingIsOff) {
    agent_.Write(kDevices, DeviceXml(NumberedDisks(1)));
    agent_.Write(kParameters, "[CPUDIAG_PARAM]\n[MEMDIAG_PARAM]\n[HDDDIAG_PARAM]\nmax=2\n");
    Rebuild();
    EXPECT_EQ(agent_.Read(kSchedule),
              "[CPU_SCHEDULE]\ncpu_exe=OFF\ncpu_next_go=OFF\n"
              "[MEM_SCHEDULE]\nmem_exe=OFF\nmem_next_go=OFF\n"
              "[HDD_SCHEDULE 0]\nserial_number=SN-0000\nhdd_exe=OFF\nhdd_next_go=OFF\n"
              "address=0x0000000000000000\ndevice_name=/dev/sda\nhdd_ide=0\n"
              "[TEST_SCHEDULE]\nhdd_all_num=1\nhdd_timeout=45\nhdd_max=0\nhdd_next_gusu=0\n"
              "hdd_next_kisu=1\nhdd_start_kigu=1\ncpu_timeout=45\nmem_timeout=45\n");
    EXPECT_EQ(agent_.Read(kPadiagSchedule),
              "[CPU_SCHEDULE]\ncpu=OFF\n[MEM_SCHEDULE]\nmem=OFF\n[HDD_SCHEDULE 0]\nhdd=OFF\n"
              "address=0x0000000000000000\ndevice_name=/dev/sda\nhdd_ide=0\n"
              "[TEST_SCHEDULE]\nhdd_all_num=1\nlevel=1\ntime=3600\n");
    EXPECT_EQ(Join(agent_.History()),
              "[Change Setup] Target Device: \n[Change Setup] Target Diagnosis:\n");
}

TEST_F(ScheduleTest, AReloadLeavesItsStepsInTheTrace) {
    agent_.Write(kDevices, DeviceXml({}));
    agent_.Write(kSettings, PatrolSettings("ON", "ON", "OFF"));
    Rebuild();
    const std::string missing = agent_.Path(kSchedule), padiag = agent_.Path("data/padiag.ini");
    EXPECT_TRUE(agent_.Traced("[ReadEnvIni] HDDDIAG_EXE = 0 ( 0->OFF, 1->ON)."));
    std::string steps;
    for (const std::string& line : agent_.Trace()) {
        if (line.find("[ReadEnvIni]") != 0) steps += line + "\n";
    }
    EXPECT_EQ(
        steps,
        "[main] patrol.exe reload .\n[sched_main] Patrol Schedule Creation Started.\n"
        "[UpdateSchedule] Start.\n[UpdateSchedule] Not Found " +
            missing +
            ".\n"
            "[UpdateSchedule] end.( -1 )\n[CreateSchedule] start.\n"
            "[HddScheduleMk] start.\n[HddTblAlloc2] start.\n"
            "[HddTblAlloc2] end.( 0 )\n[HddScheduleMk] end.( 0 )\n[CreateSchedule] end.( 0 )\n"
            "[PadiagCreateSchedule] start.\n[ReadPadiagIni] Start.\n"
            "[ReadPadiagIni] File Open Failed.( " +
            padiag +
            " )\n"
            "[ReadPadiagIni] Default Value Set.\n[ReadPadiagIni] Warning End.\n"
            "[PadiagHddScheduleMk] start.\n[HddTblAlloc2] start.\n[HddTblAlloc2] end.( 0 )\n"
            "[PadiagHddScheduleMk] end.( 0 )\n[PadiagCreateSchedule] end.( 0 )\n"
            "[sched_main] Patrol Schedule Creation Ended.\n");
}

TEST_F(ScheduleTest, SettingsLines) {
    agent_.Write(kDevices, DeviceXml({}));
    const std::string two_pieces = "[CPUDIAG_TIMEOUT]\n#" + std::string(300, '1') + "\n7\n";
    for (const auto& [text, cpu_exe, cpu_timeout] :
         {Row<3>{"", "OFF", "0"},
          {"[CPUDIAG_EXE]\n#OFF\n\n\r\nON\n", "ON", "0"},
          {"[CPUDIAG_EXE]\nONE\n", "ON", "0"},
          {"[CPUDIAG_EXE] ON\nOFF\n", "OFF", "0"},       // a section line, whatever follows
          {"[CPUDIAG_EXE]\n[OTHER]\nON\n", "OFF", "0"},  // an unknown section is a value
          {"[CPUDIAG_EXE]\n[CPUDIAG_TIMEOUT]\n12\nON\n", "OFF", "12"},
          {"[CPUDIAG_TIMEOUT]\n51\n", "OFF", "50"},
          {"[CPUDIAG_TIMEOUT]\n4\n", "OFF", "5"},
          {"[CPUDIAG_TIMEOUT]\n99999999999999999999999\n", "OFF", "50"},
          {two_pieces.c_str(), "OFF", "50"}}) {  // the second piece is no comment
        agent_.Write(kSettings, text);
        Rebuild();
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_exe"), cpu_exe) << text;
        EXPECT_EQ(OfTest("cpu_timeout"), cpu_timeout) << text;
        EXPECT_EQ(OfTest("hdd_max"), "128") << text;
    }
    for (const auto& [text, cpu, level] : {Row<3>{"[cpu]\nOn\n[level]\n-4\n", "OFF", "-4"},
                                           {"[cpu] on\n#\nONE\n[level]\nx", "ON", "0"}}) {
        agent_.Write("data/padiag.ini", text);
        Rebuild();
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu", kPadiagSchedule), cpu) << text;
        EXPECT_EQ(OfTest("level", kPadiagSchedule), level) << text;
    }
    agent_.Write(kSettings, "#\n");
    for (const auto& [text, max] : {Row<2>{"[HDDDIAG_PARAM]\nmax=abc\n", "128"},
                                    {"[HDDDIAG_PARAM]\n\t max=  9\r\n;max=4\nmax=\n", "9"},
                                    {"[HDDDIAG_PARAM]\nmax=-99999999999\n", "-2147483648"}}) {
        agent_.Write(kParameters, text);
        Rebuild();
        EXPECT_EQ(OfTest("hdd_max"), max) << text;
    }
}

TEST_F(ScheduleTest, DueFlags) {
    struct Case {
        const char *cpu, *memory, *cpu_go, *memory_go, *targets;
        int disks;
        const char *limit, *due, *resume;
    };
    for (const Case& rule : {Case{"ON", "ON", "ON", "OFF", "CPU,Memory", 0, "2", "", "0"},
                             {"OFF", "ON", "OFF", "ON", "Memory,/dev/sda", 1, "0", "0", "0"},
                             {"OFF", "OFF", "OFF", "OFF", "/dev/sda,/dev/sdb", 2, "1", "10", "0"},
                             {"ON", "OFF", "ON", "OFF", nullptr, 3, "128", "101", "0"},
                             {"ON", "ON", "ON", "OFF", nullptr, 5, "1", "10000", "4"},
                             {"OFF", "OFF", "OFF", "OFF", nullptr, 3, "-1", "000", nullptr}}) {
        SCOPED_TRACE(rule.due);
        agent_.Write(kDevices, DeviceXml(NumberedDisks(rule.disks)));
        agent_.Write(kSettings, PatrolSettings(rule.cpu, rule.memory, "ON"));
        agent_.Write(kParameters, std::string("[HDDDIAG_PARAM]\nmax=") + rule.limit + "\n");
        Rebuild();
        if (rule.targets != nullptr) {
            EXPECT_EQ(First(agent_.History()),
                      std::string("[Change Setup] Target Device: ") + rule.targets);
        }
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_next_go"), rule.cpu_go);
        EXPECT_EQ(agent_.Key("MEM_SCHEDULE", "mem_next_go"), rule.memory_go);
        std::string due;
        for (int n = 0; n < rule.disks; ++n) due += OfDisk(n, "hdd_next_go") == "ON" ? '1' : '0';
        EXPECT_EQ(due, rule.due);
        EXPECT_TRUE(rule.resume == nullptr || OfTest("hdd_next_gusu") == rule.resume);
    }
}

// One line for each word: "/dev/..." a device line, "HDD" or "TAPE" a type, "S/N=..." and the like
// an attribute, "end" an end line, anything else a status. A word with "<" stands as it is.
std::string Xml(const std::string& words) {
    std::string text;
    for (const std::string& word : Split(words, ' ')) {
        const size_t equals = word.find('=');
        if (word.find('<') != std::string::npos) {
            text += word;
        } else if (word[0] == '/') {
            text += "<dev phypath=\"p " + word + "\">";
        } else if (equals != std::string::npos) {
            text += "<attr name=\"" + word.substr(0, equals) + "\">" + word.substr(equals + 1) +
                    "</attr>";
        } else if (word == "end") {
            text += "</dev>";
        } else {
            const bool type = word == "HDD" || word == "TAPE";
            text += std::string("<attr name=\"") + (type ? "type" : "status") + "\">" + word +
                    "</attr>";
        }
        text += "\r\n";
    }
    return text;
}

TEST_F(ScheduleTest, ScanOfTheDeviceConfiguration) {
    agent_.Write(kNonTargets, "[NON_TARGETLIST]\nnumber=0\n");
    const std::string first = "/dev/sda HDD S/N=SA ok end ";
    const struct {
        const char* rule;
        std::string xml;
        const char* disks;
        const char* padiag = nullptr;  // where the two scans differ
    } cases[] = {
        {"order", first + "/dev/sdb HDD S/N=SB Operational end", "sda/SA sdb/SB "},
        {"not operational", "/dev/sdb HDD oK end /dev/sdc HDD okay end " + first, "sda/SA "},
        {"no disk", "/dev/sdb TAPE HDD ok end " + first, "sda/SA "},
        {"type names", "/dev/sdb scsi_type=HDD ok end /dev/sdc ide_type=HDD ok", "sdb/ sdc/ "},
        {"no device line", "<dev:/dev/sda\" HDD ok phypath\"/dev/sda<\" HDD ok /dev/hda HDD ok",
         ""},
        {"bare device name", "/dev/sdb\"<dev:phypath-LogicalDrive HDD ok", "sdb/ "},
        {"logical drive", "<dev:phypath=\"LogicalDrive0/dev/sdb\" S/N=SB ok end", "sdb/SB "},
        {"software", first + "<dev:type=SOFTWARE> /dev/sdb HDD ok end", "sda/SA "},
        {"no serial number", first + "/dev/sdb HDD ok", "sda/SA sdb/SA "},
        {"empty serial number", first + "/dev/sdb HDD S/N= ok", "sda/SA sdb/ "},
        {"a type outlives its device", "/dev/sdb HDD end /dev/sdt TAPE S/N=ST ok", "sdt/ST "},
        {"no end line", "/dev/sdb HDD S/N=SB ok /dev/sdc HDD S/N=SC ok end " + first,
         "sdb/SB sdb/SC sda/SA ", "sdb sda "},
        // A line is taken in pieces of 4094: the second one here is a line of its own.
        {"long lines",
         "<dev:phypath" + std::string(4090, 'p') + "/dev/sdb\" HDD ok end <" +
             std::string(4093, 'p') + "<dev:phypath/dev/sdc\" HDD ok",
         "sdc/ "},
    };
    for (const auto& [rule, xml, disks, padiag] : cases) {
        SCOPED_TRACE(rule);
        agent_.Write(kDevices, Xml(xml));
        Rebuild();
        EXPECT_EQ(Disks(), disks);
        const std::string devices = std::regex_replace(disks, std::regex("/[A-Z]*"), "");
        EXPECT_EQ(Disks(kPadiagSchedule), padiag == nullptr ? devices : padiag);
    }
    agent_.Write(kDevices, Xml("/dev/sda HDD S/N=" + std::string(600, 's') +
                               " ok end "
                               "<dev:phypath=\"/dev/sdb\"/IDE\" HDD ok end /ide/dev/sdc HDD ok"));
    Rebuild();
    EXPECT_EQ(OfDisk(0, "serial_number"), std::string(511, 's'));
    EXPECT_EQ(OfDisk(0, "hdd_ide") + OfDisk(1, "hdd_ide") + OfDisk(2, "hdd_ide"), "010");
}

TEST_F(ScheduleTest, NonTargetsGetNoSection) {
    std::string words;
    for (const auto& [device, vendor, model] : {Row<3>{"/dev/sda", "", ""},
                                                {"/dev/sdb", "ABC", "ONE"},
                                                {"/dev/sdc", "ABCDE", "ONE"},
                                                {"/dev/sdd", "ABC", "TWO"},
                                                {"/dev/sde", "NO", "NO_D"}}) {
        words += std::string(device) + " HDD vendor=" + vendor + " model=" + model + " ok end ";
    }
    // A match leaves the disk open to a later status.
    words += "/dev/sdf HDD vendor=NO model=NO ok model=YES ok end";
    agent_.Write(kDevices, Xml(words));
    const std::string entry = "\n[LIST0]\nvendor=ABCD\nmodel=ONE-X\n";
    for (const auto& [number, left] : {Row<2>{"", "sdb sdc sdd sdf "},
                                       {"1", "sdc sdd sde sdf "},
                                       {"2", "sdc sdd sdf "},
                                       {"0", "sda sdb sdc sdd sde sdf "}}) {
        if (*number != '\0')
            agent_.Write(kNonTargets, "[NON_TARGETLIST]\nnumber=" + (number + entry));
        Rebuild();
        EXPECT_EQ(Disks(kPadiagSchedule), left) << number;
        EXPECT_EQ(Split(Disks(), ' ').size(), Split(left, ' ').size()) << number;
    }
    // A count that no file can mean ends soon and costs no disk.
    agent_.Write(kNonTargets, "[NON_TARGETLIST]\nnumber=2147483647\n");
    Rebuild();
    EXPECT_NE(Disks().find("sdd"), std::string::npos);
}

}  // namespace
}  // namespace patrol_test
