// Rules of records, histories and events that have many inputs.

#include <ctime>

#include "../support.h"
#include "base/clocks.h"
#include "base/kinds.h"
#include "base/settings.h"
#include "report/history.h"
#include "report/record_stream.h"
#include "report/records.h"
#include "report/system_event_settings.h"

namespace patrol_test {
namespace {

class ReportTest : public UnitTest {};

// Bytes as a reader hands them over, in a block of their own so that a sanitizer sees its ends.
std::unique_ptr<char[]> Body(const std::string& text) {
    auto bytes = std::make_unique<char[]>(text.size() + kRecordSlack);
    text.copy(bytes.get(), text.size());
    return bytes;
}

TEST_F(ReportTest, ASavedStreamIsSearchedForTheNextMarker) {
    // Where the search begins, the bytes ("@" is a long line), length, and where it ended.
    const char table[] = R"(0|ab\cdONLPTL,0x00000007,|7|23
1|ONLPTL,0x00000020,ONLPTL,0x00000007,|7|36
0|ONLPTL,0x00000000,\ONLPTL,      0017,|15|37
0|ONLPTL,text\ONLPTL\ONLPTL|0|0
0|ONLPTL,99999999999,|2147483647|18
0|@\@\yONLPTL,5,|5|1021
-1|ONLPTL,0x00000020,|-1|-1)";
    long offset = 0;
    EXPECT_EQ(check_pipedata(&offset), -1) << "not open";
    FileEntry* file = FindFile(kFileTmp);
    for (const Strings& row : Rows(table)) {
        agent_.Write("data/pat_temp.txt", Unescaped(Replaced(row[1], "@", std::string(500, 'x'))));
        const Stream stream(fopen(file->path, "r"));
        file->stream = stream.get();
        offset = std::stol(row[0]);
        EXPECT_EQ(std::to_string(check_pipedata(&offset)), row[2]) << row[1];
        EXPECT_EQ(std::to_string(offset), row[3]) << row[1];
        file->stream = nullptr;
    }
}

TEST_F(ReportTest, DiskInformationIsJudgedWithinItsBounds) {
    const std::string tail = ",0x01,SERIAL          ,FW01\n";
    const std::tuple<std::string, int, uint32_t> disks[] = {{"0000001000,   512" + tail, 0, 512},
                                                            {"0x00000000,0x0200" + tail, -1, 0},
                                                            {"0x00001000,0x0000" + tail, -1, 4096},
                                                            {"0xffffffff", -1, 0xffffffff},
                                                            {std::string(22, '\xff'), -1, 0}};
    for (const auto& [body, result, expected] : disks) {
        uint32_t capacity = 99;
        EXPECT_EQ(check_testdata_hddinfo(Body(body).get(), {}, &capacity), result) << body;
        EXPECT_EQ(capacity, expected) << body;
    }
}

TEST_F(ReportTest, ProgressNamesItsPassByTheProgram) {
    ASSERT_TRUE(AllocateDiskTable(1));
    hdd_exec_use = 1;
    RunningTest& disk = hdd_exec_tbl[0];
    // Body, program, test; run times of processors and disk; passes of all three.
    for (const Strings& row : Rows(R"(0x00000010,0x00,Pass=5\|cputest|cpu|16 9 5 9 9
7,Pass=2|padiagcputest|cpu|7 9 9 9 9
7,Pass=2|memtest|cpu|7 9 9 2 9
7,Pass=2|hddtest|disk|9 7 9 9 2
7,Pass=2|hddtest|cpu|7 9 9 9 2
Pass=3,5|cputest|cpu|0 9 9 9 9
5,Pass=-3|cputest|cpu|5 9 0 9 9
5|cputest|cpu|9 9 9 9 9)")) {
        cpu_run_time = disk.run_time = 9;
        cpu_pass_num = mem_pass_num = disk.pass_count = 9;
        RecordContext context;
        context.program.Assign(row[1]);
        CheckTestdataProgress(Body(Unescaped(row[0])).get(), context,
                              row[2] == "cpu" ? &cpu_test : &disk);
        std::ostringstream found;
        found << cpu_run_time << ' ' << disk.run_time << ' ' << cpu_pass_num << ' ' << mem_pass_num
              << ' ' << disk.pass_count;
        EXPECT_EQ(found.str(), row[3]) << row[0] << " from " << row[1];
    }
}

TEST_F(ReportTest, SwitchAndFacilityAreReadInTheirSectionAlone) {
    SystemEventSettings settings;
    for (const Strings& row : Rows(R"([sdb]\enable = 1\facility = 3|1 3
enable=1\[other]\enable=1\[sdb2]\facility=2\|0 0
[sdb] x\enable=-7\[a]\enable=0\[sdb]\facility=5\|-7 5
[sdb]\ enable=1\Enable=1\enabled=1\facility=x\|0 0
[sdb]\enable=99999999999999999999\facility=1x\|2147483647 1)")) {
        agent_.Write("config/common.ini", Unescaped(row[0]));
        EXPECT_EQ(check_config_file(&settings), 0);
        EXPECT_EQ(std::to_string(settings.enable) + " " + std::to_string(settings.facility),
                  row[1]);
    }
    agent_.Remove("config/common.ini");
    EXPECT_EQ(check_config_file(&settings), -1);
    EXPECT_EQ(settings.enable, 0) << "the settings before are forgotten";
}

TEST_F(ReportTest, HistoryLinesCountWhatTheTestReported) {
    agent_.Write("data/lba_outfile.ini",
                 "[HDD_MAX_LBA]\nd1=0x64\nd2=100\nd3=0x64\n[HDD_NEXT_LBA]\nd1=0x32\nd2=0x63\n"
                 "d3=0x64\nd5=1\n");
    clock_now = [] { return std::time_t{1'000'000}; };
    // The result, the test and its device, the level, the limit, its run time, the message, the
    // line.
    for (const Strings& row : Rows(R"(0|cpu|CPU|1|100|0|none|OK      cputest CPU [1s] pass=7
1|cpu|CPU|3|100|99| bad|ERROR   cputest CPU [99s] pass=7  bad
4|mem|Memory|3|100|101||CANCEL  memtest Memory [100s] pass=7 
3|hdd|d1|2|100|2|none|TIMEOUT hddtest d1 [2s] pass=7
0|hdd|d1|3|100|1|none|OK      hddtest d1 [1s] 20[%] -> 50[%](pass=7)
1|hdd|d2|4|9|100|e|ERROR   hddtest d2 [9s] 20[%] -> 99[%](pass=7) e
2|hdd|d3|3|9|5|none|ABORT   hddtest d3 [5s] pass=7
0|cpu|CPU|1|0|1|none|OK      cputest CPU [0s] pass=7
0|hdd|d1|1|0|1|none|OK      hddtest d1 [1s] pass=7
9|odd|x|3|9|5|none|        unknow x [0s] )")) {
        const std::map<std::string, int> kinds = {
            {"cpu", kKindCpu}, {"mem", kKindMemory}, {"hdd", kKindHdd}, {"odd", 8}};
        padiag_level = std::stoi(row[3]);
        padiag_time = std::stoi(row[4]);
        RunningTest test;
        test.kind = kinds.at(row[1]);
        test.device_name.Assign(row[2]);
        test.run_time = static_cast<uint32_t>(std::stoul(row[5]));
        test.pass_count = 7;
        test.padiag.progress = 20;
        agent_.Remove("log/pastat.txt");
        const char* message = row[6] == "none" ? nullptr : row[6].c_str();
        EXPECT_EQ(PadiagHistory(std::stoi(row[0]), &test, message), 0);
        EXPECT_EQ(Join(agent_.History("log/pastat.txt")), row[7] + "\n");
    }
    clock_now = [] { return std::time(nullptr); };
}

}  // namespace
}  // namespace patrol_test
