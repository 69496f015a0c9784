// The two Schedule files: building them from the settings and the device configuration, and what
// reload, confchg and KVXstart make of those that are there.

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include "records.h"

namespace patrol_test {
namespace {

constexpr char kSettings[] = "data/pat_env0.ini";
constexpr char kPadiagSettings[] = "data/padiag.ini";
constexpr char kParameters[] = "data/pat_new_para.ini";
constexpr char kDevices[] = "data/devconf_new.xml";
constexpr char kNonTargets[] = "data/pat_nontarget.ini";
constexpr char kFirst[] = "/dev/sda HDD S/N=SA ok end";
constexpr char kZero[] = "0x0000000000000000";

class ScheduleTest : public AgentTest {
 protected:
    int RunMode(const char* mode) { return agent_.Run({mode}).status; }
    // Builds both files afresh.
    void Rebuild() {
        for (const char* file : {kSchedule, kPadiagSchedule, kHistory}) agent_.Remove(file);
        EXPECT_EQ(RunMode("reload"), 0);
    }
    std::string OfDisk(int n, const char* key, const char* file = kSchedule) const {
        return agent_.Key("HDD_SCHEDULE " + std::to_string(n), key, file);
    }
    std::string OfTest(const char* key, const char* file = kSchedule) const {
        return agent_.Key("TEST_SCHEDULE", key, file);
    }
    // What a key holds for each of the disks, from the last "/" on, with a blank behind it.
    std::string OfDisks(const char* key, const char* file = kSchedule) const {
        std::string values;
        for (int n = 0; n < std::stoi(OfTest("hdd_all_num", file)); ++n) {
            const std::string value = OfDisk(n, key, file);
            values += value.substr(value.rfind('/') + 1) + " ";
        }
        return values;
    }
    // An old Schedule file of disks "serial=address"; without "=" a disk has no address.
    void WriteOld(const std::string& disks) {
        std::string text = "[CPU_SCHEDULE]\n[MEM_SCHEDULE]\n";
        const Strings words = Split(disks, ' ');
        for (size_t n = 0; n < words.size(); ++n) {
            text += "[HDD_SCHEDULE " + std::to_string(n) +
                    "]\nserial_number=" + Replaced(words[n], "=", "\naddress=") + "\n";
        }
        agent_.Write(kSchedule,
                     text + "[TEST_SCHEDULE]\nhdd_all_num=" + std::to_string(words.size()) + "\n");
    }
    void WriteDisks(const std::string& serials) {
        const Strings words = Split(serials, ' ');
        std::vector<Disk> disks = NumberedDisks(static_cast<int>(words.size()));
        for (size_t n = 0; n < disks.size(); ++n) disks[n].serial = words[n];
        agent_.Write(kDevices, DeviceXml(disks));
    }
};

TEST_F(ScheduleTest, WithoutSettingsEverythingIsOff) {
    agent_.Write(kDevices, DeviceXml(NumberedDisks(1)));
    Rebuild();
    std::string values;
    for (const char* file : {kSchedule, kPadiagSchedule}) {
        for (const std::string& line : agent_.Lines(file)) {
            if (line[0] != '[') values += line.substr(line.find('=') + 1) + " ";
        }
    }
    EXPECT_EQ(values,
              "OFF OFF OFF OFF SN-0000 OFF OFF 0x0000000000000000 /dev/sda 0 1 45 0 0 1 1 45 45 "
              "OFF OFF OFF 0x0000000000000000 /dev/sda 0 1 1 3600 ");
    EXPECT_EQ(Join(agent_.History()),
              "[Change Setup] Target Device: \n[Change Setup] Target Diagnosis:\n");
}

TEST_F(ScheduleTest, TextsAreCutAtTheirFields) {
    const std::string sevens(100, '7');
    agent_.Write(kDevices, DeviceXml(NumberedDisks(100)));
    agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
    agent_.Write(kPadiagSettings, "[cpu]\non\n[mem]\non\n[hdd]\non\n[level]\n3\n");
    agent_.Write(kParameters, "[CPUDIAG_PARAM]\ntp=old\n[MEMDIAG_PARAM]\nloop=2\n[HDDDIAG_PARAM]");
    agent_.Write("data/lba_outfile_bup.ini",
                 "[HDD_NEXT_LBA]\n/dev/sdb=0x0000000000001000\n/dev/sdc=" + sevens);
    Rebuild();
    std::string list = "CPU,Memory";
    for (const Disk& disk : NumberedDisks(100)) list += "," + disk.device;
    for (const char* history : {kHistory, "log/pastat.txt"}) {
        EXPECT_EQ(First(agent_.History(history)),
                  "[Change Setup] Target Device: " + list.substr(0, 511));
    }
    EXPECT_EQ(OfTest("hdd_all_num") + OfDisk(99, "serial_number"), "100SN-0099");
    EXPECT_EQ(OfDisk(1, "address", kPadiagSchedule), "0x0000000000001000");
    EXPECT_EQ(OfDisk(2, "address", kPadiagSchedule), sevens.substr(0, 63));
    EXPECT_EQ(agent_.Read(kParameters),
              "[CPUDIAG_PARAM]\ntp=Instruction+Register\n[MEMDIAG_PARAM]\nloop=2\ntp=BMOVE\n"
              "[HDDDIAG_PARAM]\ntp=sector\n");
}

TEST_F(ScheduleTest, SettingsLines) {
    // A file, its text with "\" as the line feed, whether processors are on, and the number that
    // the file has: their time-out, the level, the limit of disks.
    const char table[] = R"(pat_env0.ini|\|OFF|0
pat_env0.ini|[CPUDIAG_EXE]\#OFF\\~\ON~\|ON|0
pat_env0.ini|[CPUDIAG_EXE]\ONE\|ON|0
pat_env0.ini|[CPUDIAG_EXE] ON\OFF\|OFF|0
pat_env0.ini|[CPUDIAG_EXE]\[OTHER]\ON\|OFF|0
pat_env0.ini|[CPUDIAG_EXE]\[CPUDIAG_TIMEOUT]\12\ON\|OFF|12
pat_env0.ini|[CPUDIAG_TIMEOUT]\51\|OFF|50
pat_env0.ini|[CPUDIAG_TIMEOUT]\4\|OFF|5
pat_env0.ini|[CPUDIAG_TIMEOUT]\99999999999999999999999\|OFF|50
pat_env0.ini|[CPUDIAG_TIMEOUT]\#@1\7\|OFF|50
padiag.ini|[cpu]\On\[level]\-4\|OFF|-4
padiag.ini|[cpu] on\#\ONE\[level]\x|ON|0
pat_new_para.ini|[HDDDIAG_PARAM]\max=abc\|OFF|128
pat_new_para.ini|[HDDDIAG_PARAM]\ max=  9~\;max=4\max=\|OFF|9
pat_new_para.ini|[HDDDIAG_PARAM]\max=-99999999999\|OFF|-2147483648)";
    agent_.Write(kDevices, DeviceXml({}));
    for (const Strings& row : Rows(table)) {
        // The second piece of a line that is too long is no comment.
        const std::string text = Replaced(Unescaped(row[1]), "@", Repeat("1", 299));
        agent_.Write("data/" + row[0], text);
        Rebuild();
        const bool padiag = row[0] == "padiag.ini";
        const char* file = padiag ? kPadiagSchedule : kSchedule;
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", padiag ? "cpu" : "cpu_exe", file), row[2]) << text;
        const char* number = padiag                     ? "level"
                             : row[0] == "pat_env0.ini" ? "cpu_timeout"
                                                        : "hdd_max";
        EXPECT_EQ(OfTest(number, file), row[3]) << text;
    }
}

TEST_F(ScheduleTest, DueFlags) {
    // CPU, memory, their due flags, the targets, disks, the limit, those that are due, where the
    // even ones go on.
    const char table[] = R"(ON|ON|ON|OFF|CPU,Memory|0|2||0
OFF|ON|OFF|ON|Memory,/dev/sda|1|0|0|0
OFF|OFF|OFF|OFF|/dev/sda,/dev/sdb|2|1|10|0
ON|OFF|ON|OFF|CPU,/dev/sda,/dev/sdb,/dev/sdc|3|128|101|0
ON|ON|ON|OFF|CPU,Memory,/dev/sda,/dev/sdb,/dev/sdc,/dev/sdd,/dev/sde|5|1|10000|4
OFF|OFF|OFF|OFF|/dev/sda,/dev/sdb,/dev/sdc|3|-1|000|0)";
    for (const Strings& row : Rows(table)) {
        SCOPED_TRACE(row[7]);
        agent_.Write(kDevices, DeviceXml(NumberedDisks(std::stoi(row[5]))));
        agent_.Write(kSettings, PatrolSettings(row[0], row[1], "ON"));
        agent_.Write(kParameters, "[HDDDIAG_PARAM]\nmax=" + row[6] + "\n");
        Rebuild();
        EXPECT_EQ(First(agent_.History()), "[Change Setup] Target Device: " + row[4]);
        EXPECT_EQ(agent_.Key("CPU_SCHEDULE", "cpu_next_go"), row[2]);
        EXPECT_EQ(agent_.Key("MEM_SCHEDULE", "mem_next_go"), row[3]);
        std::string due;
        for (const char flag : row[7]) due += flag == '1' ? "ON " : "OFF ";
        EXPECT_EQ(OfDisks("hdd_next_go"), due);
        EXPECT_EQ(OfTest("hdd_next_gusu"), row[8]);
    }
}

TEST_F(ScheduleTest, ScanOfTheDeviceConfiguration) {
    // The words, the names and serial numbers of the disks, and the names where the scan for the
    // padiag file differs.
    const std::string table = R"(first /dev/sdb HDD S/N=SB Operational end|sda sdb |SA SB |
/dev/sdb HDD oK end /dev/sdc HDD okay end first|sda |SA |
/dev/sdb TAPE HDD ok end first|sda |SA |
/dev/sdb scsi_type=HDD ok end /dev/sdc ide_type=HDD ok|sdb sdc |  |
<dev:/dev/sda" HDD ok phypath"/dev/sda<" HDD ok /dev/hda HDD ok|||
/dev/sdb"<dev:phypath-LogicalDrive HDD ok|sdb | |
<dev:phypath="LogicalDrive0/dev/sdb" S/N=SB ok end|sdb |SB |
first <dev:type=SOFTWARE> /dev/sdb HDD ok end|sda |SA |
first /dev/sdb HDD ok|sda sdb |SA SA |
first /dev/sdb HDD S/N= ok|sda sdb |SA  |
/dev/sdb HDD end /dev/sdt TAPE S/N=ST ok|sdt |ST |
/dev/sdb HDD S/N=SB ok /dev/sdc HDD S/N=SC ok end first|sdb sdb sda |SB SC SA |sdb sda |
<dev:phypath@/dev/sdb" HDD ok end <@ppp<dev:phypath/dev/sdc" HDD ok|sdc | |)";
    agent_.Write(kNonTargets, "[NON_TARGETLIST]\nnumber=0\n");
    for (const Strings& row : Rows(table)) {
        SCOPED_TRACE(row[0]);
        // A line is taken in pieces of 4094: the second one is a line of its own.
        agent_.Write(kDevices,
                     Xml(Replaced(Replaced(row[0], "first", kFirst), "@", std::string(4090, 'p'))));
        Rebuild();
        EXPECT_EQ(OfDisks("device_name"), row[1]);
        EXPECT_EQ(OfDisks("serial_number"), row[2]);
        EXPECT_EQ(OfDisks("device_name", kPadiagSchedule), row[row[3].empty() ? 1 : 3]);
    }
    agent_.Write(kDevices, Xml("/dev/sda HDD S/N=" + std::string(600, 's') +
                               " ok end <dev:phypath=\"/dev/sdb\"/IDE\" HDD ok end "
                               "/ide/dev/sdc HDD ok"));
    Rebuild();
    EXPECT_EQ(OfDisk(0, "serial_number"), std::string(511, 's'));
    EXPECT_EQ(OfDisks("hdd_ide"), "0 1 0 ");
}

TEST_F(ScheduleTest, NonTargetsGetNoSection) {
    std::string words;
    for (const Strings& disk : Rows("a||\nb|ABC|ONE\nc|ABCDE|ONE\nd|ABC|TWO\ne|NO|NO_D")) {
        words += "/dev/sd" + disk[0] + " HDD vendor=" + disk[1] + " model=" + disk[2] + " ok end ";
    }
    // A match leaves the disk open to a later status.
    agent_.Write(kDevices, Xml(words + "/dev/sdf HDD vendor=NO model=NO ok model=YES ok end"));
    // A count that no file can mean ends soon and costs no disk.
    for (const Strings& row :
         Rows("none|sdb sdc sdd sdf \n1|sdc sdd sde sdf \n2|sdc sdd sdf \n"
              "0|sda sdb sdc sdd sde sdf \n2147483647|sda sdb sdc sdd sde sdf ")) {
        const std::string entry = "\n[LIST0]\nvendor=ABCD\nmodel=ONE-X\n";
        if (row[0] != "none") {
            agent_.Write(kNonTargets, "[NON_TARGETLIST]\nnumber=" + row[0] + entry);
        }
        Rebuild();
        EXPECT_EQ(OfDisks("device_name"), row[1]) << row[0];
        EXPECT_EQ(OfDisks("device_name", kPadiagSchedule), row[1]) << row[0];
    }
}

TEST_F(ScheduleTest, ReloadChangesOnlyTheFlagsInPlace) {
    const std::string disk_0 = "address=0x10\ndevice_name=/dev/sdx\nhdd_ide=1\nforeign\n";
    const std::string back = "hdd_start_kigu=1\ncpu_timeout=8\nmem_timeout=9";
    const std::string test = "[TEST_SCHEDULE]\nhdd_all_num=3\nhdd_timeout=7\nhdd_max=1\n";
    agent_.Write(kSchedule,
                 "; kept\n# kept too\n\n[CPU_SCHEDULE]\r\ncpu_exe=OFF\r\n"
                 "[MEM_SCHEDULE]\nmem_exe=OFF\nmem_next_go=ON\nmem_exe=OFF\n"
                 "[HDD_SCHEDULE 0]\nserial_number=S0\nhdd_exe=OFF\nhdd_next_go=OFF\n" +
                     disk_0 +
                     "[HDD_SCHEDULE 1]\n hdd_exe=OFF\nhdd_next_go=ON\naddress=0x20\n"
                     "[HDD_SCHEDULE 2]\nhdd_exe=OFF\n" +
                     test + "hdd_next_gusu=4\nhdd_next_kisu=7\n" + back);
    agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
    agent_.Write(kDevices, DeviceXml(NumberedDisks(5)));
    const auto mode = [this] {
        struct stat status = {};
        return stat(agent_.Path(kSchedule).c_str(), &status) == 0 ? status.st_mode & 0777U : 0U;
    };
    EXPECT_EQ(chmod(agent_.Path(kSchedule).c_str(), 0646), 0);
    EXPECT_EQ(RunMode("reload"), 0);
    EXPECT_EQ(mode(), 0644U) << "the permissions of the file that was replaced, but for others";
    const std::string front =
        "; kept\n# kept too\n\n[CPU_SCHEDULE]\r\ncpu_exe=ON\ncpu_next_go=ON\n"
        "[MEM_SCHEDULE]\nmem_exe=ON\nmem_next_go=OFF\nmem_exe=ON\n"
        "[HDD_SCHEDULE 0]\nserial_number=S0\nhdd_exe=ON\nhdd_next_go=ON\n" +
        disk_0 +
        "[HDD_SCHEDULE 1]\n hdd_exe=OFF\nhdd_next_go=OFF\naddress=0x20\nhdd_exe=ON\n"
        "[HDD_SCHEDULE 2]\nhdd_exe=ON\nhdd_next_go=OFF\n" +
        test + "hdd_next_gusu=2\nhdd_next_kisu=";
    EXPECT_EQ(agent_.Read(kSchedule), front + "1\n" + back);
    // The file as it was before the last write.
    EXPECT_EQ(agent_.Read(std::string(kSchedule) + ".old"), front + "7\n" + back);
    EXPECT_EQ(Join(agent_.History()), "[Change Setup] Target Diagnosis: cputest memtest hddtest\n");
    EXPECT_EQ(chmod(agent_.Path(kSchedule).c_str(), 0640), 0);
    EXPECT_EQ(RunMode("confchg"), 0);
    EXPECT_EQ(mode(), 0640U);
    // Where sections are missing, and the last line has no end, keys are added at the end.
    agent_.Write(kSchedule, "[foreign]");
    agent_.Remove(kSettings);
    EXPECT_EQ(RunMode("reload"), 0);
    EXPECT_EQ(agent_.Read(kSchedule),
              "[foreign]\ncpu_exe=OFF\ncpu_next_go=OFF\nmem_exe=OFF\nmem_next_go=OFF\n"
              "hdd_next_gusu=0\nhdd_start_kigu=1\nhdd_next_kisu=1\n");
}

TEST_F(ScheduleTest, EachModeWithAndWithoutASchedule) {
    WriteDisks("S");
    // The mode, whether it makes a patrol file where there was none, and whether it builds the
    // padiag file and then only updates the other; its entry in the history.
    for (const Strings& row :
         Rows("reload|yes|yes|Change Setup\nconfchg|yes||Change Configuration\n"
              "KVXstart|||KVX Start")) {
        SCOPED_TRACE(row[0]);
        const std::string target = "[" + row[3] + "] Target ";
        const std::string built = target + "Device: \n" + target + "Diagnosis:\n";
        for (const bool there : {false, true}) {
            for (const char* file : {kSchedule, kPadiagSchedule, kHistory}) agent_.Remove(file);
            if (there) WriteOld("S=0x77");
            EXPECT_EQ(RunMode(row[0].c_str()), 0);
            EXPECT_EQ(agent_.Exists(kSchedule), there || !row[1].empty());
            EXPECT_EQ(agent_.Exists(kPadiagSchedule), !row[2].empty());
            EXPECT_EQ(OfDisk(0, "address"), there ? "0x77" : row[1].empty() ? "(none)" : kZero);
            EXPECT_EQ(Join(agent_.History()), there && !row[2].empty()   ? target + "Diagnosis:\n"
                                              : there || !row[1].empty() ? built
                                                                         : "");
        }
    }
}

TEST_F(ScheduleTest, AddressesFollowTheSerialNumber) {
    // The old disks, the new ones (an old number may be a beginning), the addresses, and those that
    // the file before the last of them was written has.
    const char table[] = R"(S1=0x1 S2=0x2|S0 S1 S2|Z 0x1 0x2|Z 0x1 Z
S1=0x1|S12 S|0x1 Z|Z Z
S1=0x1 S12=0x2 S1=0x3|S12|0x1|Z
S1=0x1 =0x2 S3=0x3|S1 S2 S3|0x1 0x2 0x2|0x1 0x2 Z
S1|S1|0x00000000|Z)";
    for (const Strings& row : Rows(table)) {
        for (const char* mode : {"confchg", "KVXstart"}) {
            WriteOld(row[0]);
            WriteDisks(row[1]);
            EXPECT_EQ(RunMode(mode), 0);
            for (const auto& [suffix, column] : {std::pair("", 2U), std::pair(".old", 3U)}) {
                const std::string file = std::string(kSchedule) + suffix;
                EXPECT_EQ(OfDisks("address", file.c_str()), Replaced(row[column], "Z", kZero) + " ")
                    << row[0] << mode << suffix;
            }
        }
    }
}

TEST_F(ScheduleTest, AFailedBuildIsToldAndCostsNoAddress) {
    const std::string partial =
        "[CPU_SCHEDULE]\ncpu_exe=ON\ncpu_next_go=ON\n"
        "[MEM_SCHEDULE]\nmem_exe=ON\nmem_next_go=OFF\n";
    const std::string told = "E3823:Patrol diagnosis schedule could not be created\n";
    agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
    EventPipe pipe(agent_);
    for (const char* mode : {"reload", "confchg"}) {  // no device configuration
        EXPECT_EQ(RunMode(mode), 1);
        EXPECT_EQ(agent_.Read(kSchedule), partial);
        EXPECT_EQ(Join(pipe.Lines()), told);
        EXPECT_EQ(Last(agent_.Trace()), "[sched_main] Error:Patrol Schedule Creation Error Ended.");
        WriteOld("S=0x1");
    }
    EXPECT_TRUE(agent_.Traced("[HddScheduleMk] Can't Open " + agent_.Path(kDevices) + "."));
    EXPECT_FALSE(agent_.Exists(kHistory));
    // At agent start a failure is no error; an update fails only behind the patrol file.
    EXPECT_EQ(RunMode("KVXstart"), 0);
    EXPECT_TRUE(agent_.Traced("[sched_main] Patrol KVXstart Not Create Schedule."));
    EXPECT_EQ(OfDisk(0, "address", "data/pat_new_sche.txt.old"), "0x1") << "where it was kept";
    EXPECT_EQ(RunMode("reload"), 1);
    EXPECT_EQ(Last(agent_.Trace()), "[sched_main] Error:Padiag Schedule Creation Error Ended.");
    EXPECT_EQ(Join(pipe.Lines()), "");
    // A file that is read-only stays, also for a root that may not override it.
    WriteDisks("S");
    const std::string read_only = agent_.Read(kSchedule);
    EXPECT_EQ(chmod(agent_.Path(kSchedule).c_str(), 0444), 0);
    Launch bound;
    bound.in_child = [] { prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); };
    EXPECT_EQ(agent_.Run({"confchg"}, bound).status, 1);
    EXPECT_EQ(agent_.Read(kSchedule), read_only);
    EXPECT_NE(Join(pipe.Lines()).find(told), std::string::npos);
    EXPECT_EQ(chmod(agent_.Path(kSchedule).c_str(), 0644), 0);
    // An absurd count of disks leaves the file alone.
    WriteOld("S=0x1");
    for (const char* count : {"2147483647", "-1"}) {
        agent_.SetKey("TEST_SCHEDULE", "hdd_all_num", count);
        const std::string old = agent_.Read(kSchedule);
        for (const char* mode : {"KVXstart", "confchg"}) {
            EXPECT_EQ(RunMode(mode), mode[0] == 'c' ? 1 : 0);
            EXPECT_EQ(agent_.Read(kSchedule), old);
            EXPECT_EQ(Join(pipe.Lines()), mode[0] == 'c' ? told : "");
        }
    }
    agent_.Write("data/pat_nontarget.ini", "[NON_TARGETLIST]\nnumber=-1\n");
    EXPECT_EQ(RunMode("start"), 0);
    agent_.Remove(kSchedule);
    EXPECT_EQ(RunMode("confchg"), 0);
    for (const char* refused :
         {"[HddTblAlloc] hdd_type", "[HddTestExec] hdd_exec_go", "[HddTblAlloc2] hdd_non"}) {
        const std::string line = std::string(refused) + " Alloc Error.(size= -";
        EXPECT_NE(agent_.Read(kTrace).find(line), std::string::npos) << line;
    }
}

// The file that is to move is one that the ageing itself has just deleted, so the large history
// stays under its name and goes on growing.
TEST_F(ScheduleTest, AgeingDeletesTheOldestGenerationAndMovesNothing) {
    const std::string limit(1048447, 'h'), oldest = "log/patstat3.txt", padiag = "log/pastat.txt";
    agent_.Write(oldest, "oldest");
    for (const std::string& text : {limit, limit + "h"}) {
        EXPECT_TRUE(agent_.Exists(oldest));
        agent_.Write(kHistory, text);
        agent_.Write(padiag, text);
        EXPECT_EQ(RunMode("KVXstart"), 0);
        EXPECT_EQ(agent_.Read(kHistory), text);
        EXPECT_EQ(agent_.Read(padiag), text);
    }
    EXPECT_FALSE(agent_.Exists(oldest));
    const std::string name = "L1951   file name : " + agent_.Path(oldest);
    std::string renames;
    for (const char* number : {"3", "2", "1"}) {
        renames += "E3895 System call error <<rename>>, errno:<<2>>\n" + name + "(old)\n" + name +
                   number + "(new)\n";
    }
    // The padiag history comes second and finds the oldest generation gone.
    EXPECT_EQ(Join(agent_.Log()), renames + "E3895 System call error <<unlink>>, errno:<<2>>\n" +
                                      name + "\n" + renames);
}

}  // namespace
}  // namespace patrol_test
