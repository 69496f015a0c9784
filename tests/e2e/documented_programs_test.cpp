// The complete programs that docs/test-programs.md shows do what it says.

#include <filesystem>

#include "records.h"

namespace patrol_test {
namespace {

// What stands between "```sh" and "```".
std::string ShellProgram() {
    const std::string text = ReadFile(TEST_PROGRAMS_DOCUMENT);
    const size_t start = text.find("```sh\n") + 6;
    return text.substr(start, text.find("```", start) - start);
}

class DocumentedProgramTest : public PassTest {
 protected:
    // A pass and an on-request run, with bin/cputest as the processor test.
    void ExpectResults(const std::string& result, const std::string& passes,
                       const std::string& error, size_t reports) {
        Forget();
        agent_.Remove(kPadiagHistory);
        agent_.Script("parts", "echo >> $KVX_data/calls");
        Plan("ON", "OFF", {});
        Pass();
        ExpectHistory({result + " cputest CPU [1s]" + error});
        EXPECT_NE(agent_.Read("log/pat_trc0.log").find("TITLE   : Addition"), std::string::npos);
        EXPECT_EQ(agent_.Lines("data/calls").size(), reports);

        agent_.Write(kPadiagSchedule,
                     "[CPU_SCHEDULE]\ncpu=ON\n[TEST_SCHEDULE]\nlevel=1\ntime=1\nhdd_all_num=0\n");
        EXPECT_EQ(agent_.Run({"pastart"}).status, 0);
        const std::regex line(result + " cputest CPU \\[1s\\] pass=" + passes +
                              (error.empty() ? "" : " " + error));
        EXPECT_TRUE(std::regex_match(First(agent_.History(kPadiagHistory)), line))
            << agent_.Read(kPadiagHistory);
        EXPECT_EQ(agent_.Lines("data/calls").size(), 2 * reports);
    }
    static constexpr char kPadiagHistory[] = "log/pastat.txt";
};

TEST_F(DocumentedProgramTest, ShellProgramAddsUp) {
    std::string program = ShellProgram();
    const size_t sum = program.find("-eq 5050");
    ASSERT_NE(sum, std::string::npos);
    agent_.Script("cputest", program);
    ExpectResults("OK     ", "0", "", 0);
    agent_.Script("cputest", program.replace(sum, 8, "-eq 5051"));
    ExpectResults("ERROR  ", "0", " the sum is 5050, not 5050", 1);
}

TEST_F(DocumentedProgramTest, LibraryProgramAddsUp) {
    std::filesystem::copy_file(DOCUMENTED_PROGRAM, agent_.Path("bin/cputest"));
    ExpectResults("OK     ", "[1-9][0-9]*", "", 0);
}

}  // namespace
}  // namespace patrol_test
