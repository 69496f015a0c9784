// What reload, confchg and KVXstart make of a Schedule file that is there or not, and the ageing
// of the histories that stands before them.

#include <gtest/gtest.h>

#include "agent_dir.h"

namespace patrol_test {
namespace {

using Texts = std::vector<std::string>;
constexpr char kSettings[] = "data/pat_env0.ini";
constexpr char kDevices[] = "data/devconf_new.xml";
constexpr char kFresh[] = "0x0000000000000000";

class UpdateTest : public AgentTest {
 protected:
    // An old Schedule file of disks "serial=address"; without "=" a disk has no address.
    void WriteOld(const Texts& disks) {
        std::string text = "[CPU_SCHEDULE]\n[MEM_SCHEDULE]\n";
        for (size_t n = 0; n < disks.size(); ++n) {
            const size_t equals = disks[n].find('=');
            text += "[HDD_SCHEDULE " + std::to_string(n) +
                    "]\nserial_number=" + disks[n].substr(0, equals) + "\n";
            if (equals != std::string::npos) text += "address" + disks[n].substr(equals) + "\n";
        }
        text += "[TEST_SCHEDULE]\nhdd_all_num=" + std::to_string(disks.size()) + "\n";
        agent_.Write(kSchedule, text);
    }
    void WriteDisks(const Texts& serials) {
        std::vector<Disk> disks = NumberedDisks(static_cast<int>(serials.size()));
        for (size_t n = 0; n < disks.size(); ++n) disks[n].serial = serials[n];
        agent_.Write(kDevices, DeviceXml(disks));
    }
    Texts Addresses() const {
        Texts addresses;
        const int count = std::stoi(agent_.Key("TEST_SCHEDULE", "hdd_all_num"));
        for (int n = 0; n < count; ++n) {
            addresses.push_back(agent_.Key("HDD_SCHEDULE " + std::to_string(n), "address"));
        }
        return addresses;
    }
    int RunMode(const char* mode) { return agent_.Run({mode}).status; }
};

TEST_F(UpdateTest, ReloadChangesOnlyTheFlagsInPlace) {
    const std::string disk_0 = "address=0x10\ndevice_name=/dev/sdx\nhdd_ide=1\nforeign\n";
    const std::string back = "hdd_start_kigu=1\ncpu_timeout=8\nmem_timeout=9";
    agent_.Write(kSchedule,
                 "; kept\n# kept too\n\n[CPU_SCHEDULE]\r\ncpu_exe=OFF\r\n"
                 "[MEM_SCHEDULE]\nmem_exe=OFF\nmem_next_go=ON\nmem_exe=OFF\n"
                 "[HDD_SCHEDULE 0]\nserial_number=S0\nhdd_exe=OFF\nhdd_next_go=OFF\n" +
                     disk_0 +
                     "[HDD_SCHEDULE 1]\n hdd_exe=OFF\nhdd_next_go=ON\naddress=0x20\n"
                     "[HDD_SCHEDULE "
                     "2]\nhdd_exe=OFF\n[TEST_SCHEDULE]\nhdd_all_num=3\nhdd_timeout=7\nhdd_max="
                     "1\nhdd_next_gusu=4\n"
                     "hdd_next_kisu=7\n" +
                     back);
    agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
    agent_.Write(kDevices, DeviceXml(NumberedDisks(5)));
    EXPECT_EQ(RunMode("reload"), 0);
    const std::string front =
        "; kept\n# kept too\n\n[CPU_SCHEDULE]\r\ncpu_exe=ON\ncpu_next_go=ON\n"
        "[MEM_SCHEDULE]\nmem_exe=ON\nmem_next_go=OFF\nmem_exe=ON\n"
        "[HDD_SCHEDULE 0]\nserial_number=S0\nhdd_exe=ON\nhdd_next_go=ON\n" +
        disk_0 +
        "[HDD_SCHEDULE 1]\n hdd_exe=OFF\nhdd_next_go=OFF\naddress=0x20\nhdd_exe=ON\n"
        "[HDD_SCHEDULE 2]\nhdd_exe=ON\nhdd_next_go=OFF\n"
        "[TEST_SCHEDULE]\nhdd_all_num=3\nhdd_timeout=7\nhdd_max=1\nhdd_next_gusu=2\n";
    EXPECT_EQ(agent_.Read(kSchedule), front + "hdd_next_kisu=1\n" + back);
    // The file as it was before the last write.
    EXPECT_EQ(agent_.Read(std::string(kSchedule) + ".old"), front + "hdd_next_kisu=7\n" + back);
    EXPECT_FALSE(agent_.Exists(std::string(kSchedule) + ".new"));
    EXPECT_EQ(Join(agent_.History()), "[Change Setup] Target Diagnosis: cputest memtest hddtest\n");
    EXPECT_TRUE(agent_.Traced("[PatrolUpdateSchedule] Hdd Update OK."));
    // Where sections are missing, and the last line has no end, keys are added at the end.
    agent_.Write(kSchedule, "[foreign]");
    agent_.Remove(kSettings);
    EXPECT_EQ(RunMode("reload"), 0);
    EXPECT_EQ(agent_.Read(kSchedule),
              "[foreign]\ncpu_exe=OFF\ncpu_next_go=OFF\nmem_exe=OFF\nmem_next_go=OFF\n"
              "hdd_next_gusu=0\nhdd_start_kigu=1\nhdd_next_kisu=1\n");
}

TEST_F(UpdateTest, EachModeWithAndWithoutASchedule) {
    WriteDisks({"S"});
    const struct {
        const char* mode;
        bool creates;  // a patrol file where there was none
        bool padiag;   // builds the padiag file, and only updates the patrol file
        const char* entry;
        const char* trace;  // with a Schedule file
    } cases[] = {
        {"reload", true, true, "Change Setup", "[UpdateSchedule] end.( 0 )"},
        {"confchg", true, false, "Change Configuration", "[sched_main] Patrol Confchg Succedd."},
        {"KVXstart", false, false, "KVX Start", "[sched_main] Patrol KVXstart Create Schedule."},
    };
    for (const auto& [mode, creates, padiag, entry, trace] : cases) {
        SCOPED_TRACE(mode);
        for (const char* file : {kSchedule, kPadiagSchedule, kHistory}) agent_.Remove(file);
        EXPECT_EQ(RunMode(mode), 0);
        EXPECT_EQ(agent_.Exists(kSchedule), creates);
        EXPECT_EQ(agent_.Exists(kPadiagSchedule), padiag);
        const std::string target = std::string("[") + entry + "] Target ";
        const std::string built = target + "Device: \n" + target + "Diagnosis:\n";
        EXPECT_EQ(Join(agent_.History()), creates ? built : "");
        for (const char* file : {kPadiagSchedule, kHistory}) agent_.Remove(file);
        WriteOld({"S=0x77"});
        EXPECT_EQ(RunMode(mode), 0);
        EXPECT_EQ(Addresses(), Texts{"0x77"});
        EXPECT_EQ(agent_.Exists(kPadiagSchedule), padiag);
        EXPECT_TRUE(agent_.Traced(trace));
        EXPECT_EQ(Join(agent_.History()), padiag ? target + "Diagnosis:\n" : built);
    }
}

TEST_F(UpdateTest, AddressesFollowTheSerialNumber) {
    const struct {
        Texts old, serials, addresses;
    } cases[] = {
        {{"S1=0x1", "S2=0x2"}, {"S0", "S1", "S2"}, {kFresh, "0x1", "0x2"}},
        {{"S1=0x1"}, {"S12", "S"}, {"0x1", kFresh}},  // the old one may be a beginning
        {{"S1=0x1", "S12=0x2", "S1=0x3"}, {"S12"}, {"0x1"}},
        {{"S1=0x1", "=0x2", "S3=0x3"}, {"S1", "S2", "S3"}, {"0x1", "0x2", "0x2"}},
        {{"S1"}, {"S1"}, {"0x00000000"}},
    };
    for (const auto& [old, serials, addresses] : cases) {
        for (const char* mode : {"confchg", "KVXstart"}) {
            WriteOld(old);
            WriteDisks(serials);
            EXPECT_EQ(RunMode(mode), 0);
            EXPECT_EQ(Addresses(), addresses) << Join(old, " ") << mode;
        }
    }
    EXPECT_TRUE(agent_.Traced("[HddCompareData] HDD(1) match!!"));
}

TEST_F(UpdateTest, AMissingDeviceConfigurationFailsTheBuild) {
    const std::string partial =
        "[CPU_SCHEDULE]\ncpu_exe=ON\ncpu_next_go=ON\n"
        "[MEM_SCHEDULE]\nmem_exe=ON\nmem_next_go=OFF\n";
    agent_.Write(kSettings, PatrolSettings("ON", "ON", "ON"));
    EventPipe pipe(agent_);
    for (const char* mode : {"reload", "confchg"}) {
        EXPECT_EQ(RunMode(mode), 1);
        EXPECT_EQ(agent_.Read(kSchedule), partial);
        EXPECT_EQ(Join(pipe.Lines()), "E3823:Patrol schedule could not be created\n");
        EXPECT_EQ(Last(agent_.Trace()), "[sched_main] Error:Patrol Schedule Creation Error Ended.");
        WriteOld({"S=0x1"});
    }
    EXPECT_TRUE(agent_.Traced("[HddScheduleMk] Can't Open " + agent_.Path(kDevices) + "."));
    EXPECT_FALSE(agent_.Exists(kHistory));
    // At agent start a failure is no error; an update fails only behind the patrol file.
    EXPECT_EQ(RunMode("KVXstart"), 0);
    EXPECT_TRUE(agent_.Traced("[sched_main] Patrol KVXstart Not Create Schedule."));
    EXPECT_EQ(RunMode("reload"), 1);
    EXPECT_EQ(Last(agent_.Trace()), "[sched_main] Error:Padiag Schedule Creation Error Ended.");
    EXPECT_EQ(Join(pipe.Lines()), "");
}

TEST_F(UpdateTest, AnAbsurdOldDiskCountLeavesTheFileAlone) {
    WriteDisks({"S"});
    WriteOld({"S=0x1"});
    EventPipe pipe(agent_);
    for (const char* count : {"2147483647", "-1"}) {
        agent_.SetKey("TEST_SCHEDULE", "hdd_all_num", count);
        const std::string old = agent_.Read(kSchedule);
        EXPECT_EQ(RunMode("KVXstart"), 0);
        EXPECT_EQ(agent_.Read(kSchedule), old);
        EXPECT_EQ(Join(pipe.Lines()), "");
        EXPECT_EQ(RunMode("confchg"), 1);
        EXPECT_EQ(agent_.Read(kSchedule), old);
        EXPECT_EQ(Join(pipe.Lines()), "E3823:Patrol schedule could not be created\n");
    }
    EXPECT_NE(agent_.Read(kTrace).find("[HddTblAlloc] hdd_type Alloc Error.(size= "),
              std::string::npos);
}

// The file that is to move is one that the ageing itself has just deleted, so the large history
// stays under its name and goes on growing.
TEST_F(UpdateTest, AgeingDeletesTheOldestGenerationAndMovesNothing) {
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
