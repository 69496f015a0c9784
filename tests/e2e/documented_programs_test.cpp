// The complete programs that docs/test-programs.md shows do what it says.

#include <filesystem>

#include "padiag.h"

namespace patrol_test {
namespace {

using Lines = Strings;

// What stands between "```sh" and "```".
std::string ShellProgram() {
    const std::string text = ReadFile(TEST_PROGRAMS_DOCUMENT);
    const size_t start = text.find("```sh\n") + 6;
    return text.substr(start, text.find("```", start) - start);
}

using DocumentedProgramTest = PadiagFixture;

TEST_F(DocumentedProgramTest, ShellProgramAddsUp) {
    std::string program = ShellProgram();
    const size_t sum = program.find("-eq 5050");
    ASSERT_NE(sum, std::string::npos);
    agent_.Script("cputest", program);
    Plan(1, "ON", "OFF", {});
    Diagnose();
    EXPECT_EQ(History(), Lines{"OK      cputest CPU [1s] pass=0"});
    agent_.Script("cputest", program.replace(sum, 8, "-eq 5051"));
    PassTest::Plan("ON", "OFF", {});
    Pass();
    ExpectHistory({"ERROR   cputest CPU [1s] the sum is 5050, not 5050"});
    EXPECT_NE(agent_.Read("log/pat_trc0.log").find("TITLE   : Addition"), std::string::npos);
}

TEST_F(DocumentedProgramTest, LibraryProgramAddsUp) {
    std::filesystem::copy_file(DOCUMENTED_PROGRAM, agent_.Path("bin/cputest"));
    Plan(1, "ON", "OFF", {}, "1");
    Diagnose();
    EXPECT_EQ(Masked(First(History()), "[0-9]+s|[1-9][0-9]*", "#"),
              "OK      cputest CPU [#] pass=#");
}

}  // namespace
}  // namespace patrol_test
