#include "report/records.h"

#include "../support.h"
#include "report/status_record.h"

namespace patrol_test {
namespace {

// Bytes as a reader hands them over, in a block of their own so that a sanitizer sees its ends.
std::unique_ptr<char[]> Body(const std::string& text) {
    auto bytes = std::make_unique<char[]>(text.size() + kRecordSlack);
    text.copy(bytes.get(), text.size());
    return bytes;
}

class RecordsTest : public UnitTest {};

TEST_F(RecordsTest, OddBytesAreJudgedWithinTheirBounds) {
    const std::string tail = ",0x01,SERIAL          ,FW01\n", odd(22, '\xff');
    const std::tuple<std::string, int, uint32_t> disks[] = {{"0000001000,   512" + tail, 0, 512},
                                                            {"0x00000000,0x0200" + tail, -1, 0},
                                                            {"0x00001000,0x0000" + tail, -1, 4096},
                                                            {"0xffffffff", -1, 0xffffffff},
                                                            {odd, -1, 0}};
    for (const auto& [body, result, expected] : disks) {
        uint32_t capacity = 99;
        EXPECT_EQ(check_testdata_hddinfo(Body(body).get(), {}, &capacity), result) << body;
        EXPECT_EQ(capacity, expected) << body;
    }
    for (const std::string& body : {std::string(), odd, std::string("-001,00000,s,t\n")}) {
        RecordContext context;
        EXPECT_EQ(check_testdata_head(Body(body).get(), "CPU", &context), -1) << body;
        EXPECT_EQ(check_testdata_log(Body(body).get(), {}), -1) << body;
        EXPECT_EQ(check_testdata_proc(Body(body).get()), -1) << body;
        EXPECT_EQ(check_testdata_status(Body(body).get(), {}, &cpu_test, kRunPatrol), -1) << body;
    }
    EXPECT_EQ(agent_.History(), Strings());
}

TEST_F(RecordsTest, ProgressNamesItsPassByTheProgram) {
    ASSERT_TRUE(AllocateDiskTable(1));
    hdd_exec_use = 1;
    RunningTest& disk = hdd_exec_tbl[0];
    // Body, program, test; run times of processors and disk; passes of all three.
    const std::tuple<const char*, const char*, RunningTest*, Strings> cases[] = {
        {"0x00000010,0x00,Pass=5\n", "cputest", &cpu_test, {"16", "9", "5", "9", "9"}},
        {"7,Pass=2", "padiagcputest", &cpu_test, {"7", "9", "9", "9", "9"}},
        {"7,Pass=2", "memtest", &cpu_test, {"7", "9", "9", "2", "9"}},
        {"7,Pass=2", "hddtest", &disk, {"9", "7", "9", "9", "2"}},
        {"7,Pass=2", "hddtest", &cpu_test, {"7", "9", "9", "9", "2"}},
        {"Pass=3,5", "cputest", &cpu_test, {"0", "9", "9", "9", "9"}},
        {"5,Pass=-3", "cputest", &cpu_test, {"5", "9", "0", "9", "9"}},
        {"5", "cputest", &cpu_test, {"9", "9", "9", "9", "9"}}};
    for (const auto& [body, program, test, expected] : cases) {
        cpu_run_time = disk.run_time = 9;
        cpu_pass_num = mem_pass_num = disk.pass_count = 9;
        RecordContext context;
        context.program.Assign(program);
        CheckTestdataProgress(Body(body).get(), context, test);
        const Strings found = {std::to_string(cpu_run_time), std::to_string(disk.run_time),
                               std::to_string(cpu_pass_num), std::to_string(mem_pass_num),
                               std::to_string(disk.pass_count)};
        EXPECT_EQ(found, expected) << body << " from " << program;
    }
}

}  // namespace
}  // namespace patrol_test
