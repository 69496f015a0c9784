// What is said of the records of a test program.

#include "patrolctl.h"

namespace patrol_test {
namespace {

// A status record with a complete result block.
std::string Good(int code = 1, int flags = 2, const std::string& error = "x") {
    return Framed(Head("0x02", "hddtest", "0x07") +
                  StatusBody(code, flags, ResultBlock("hddtest", "/dev/sda", error), "0x00000040"));
}

std::string With(std::string text, size_t at, const std::string& by) {
    return text.replace(at, by.size(), by);
}

TEST_F(PatrolctlTest, NamesTheByteAndTheRuleOfEachFault) {
    const std::string log = LogRecord(1, "00000", "text");
    const std::string rule = Repeat("-", 600);
    const struct {
        std::string records;
        const char* says;
    } rows[] = {
        {"", "byte 0: fault: end: expected a status record"},
        {"noise" + Good(), "byte 0: fault: prefix: expected \"ONLPTL,\", found \"noiseONLPTL"},
        {Good().substr(0, 100), " bytes behind the prefix, found 82; the record is lost"},
        {With(log, 6, ";") + Good(), "byte 6: fault: prefix: expected a comma, found \";\""},
        {With(log, 7, "0x0000zzzz") + Good(), "byte 7: fault: size: expected a number"},
        {With(log, 7, "0x7fffffff") + Good(),
         "byte 7: fault: size: expected at most 1073741824 bytes"},
        {"ONLPTL,0x00000003,abc" + Good(), "byte 7: fault: size: expected at least 45 bytes"},
        {Framed(Head("0x09") + "x\n") + Good(), "byte 18: fault: type: expected one of 0x01"},
        {Framed(Head("0x09") + "x\n") + Good(), "end: a pass has no result of this test"},
        {With(log, 22, ";") + Good(), "byte 22: fault: header: expected a comma, found \";\""},
        {Framed(Head("0x01", "hddtest", "0x00") + "x\n"),
         "byte 23: fault: lines: expected a number"},
        {Framed(Head("0x01", "hddtest", "0x05") + "0x01,00000,T,x\n") + Good(),
         "byte 23: fault: lines: expected 1 as the body has, found \"0x05\""},
        {Framed(Head("0x01", "mytest") + "0x01,00000,T,x\n") + Good(),
         "byte 28: fault: program: expected cputest, memtest or hddtest, found \"mytest  "},
        {With(log, 62, "x") + Good(), "byte 62: fault: header: expected a line feed"},
        {Framed(Head("0x01") + "0x01,00000,T,x") + Good(), "fault: body: expected a line feed at"},
        {Framed(Head("0x01") + "0x01,00000,T," + std::string(1, '\0') + "\n") + Good(),
         "byte 76: fault: body: expected no NUL"},
        {LogRecord(3, "00000", "x") + Good(), "byte 63: fault: log level: expected 0x01 or 0x02"},
        {Framed(Head("0x03") + "soon,0,0,0,Pass=1\n") + Good(),
         "byte 63: fault: progress seconds: expected a number"},
        {Framed(Head("0x03") + "0x1,0,0,0\n") + Good(), "fault: progress: expected \"Pass=\""},
        {Framed(Head("0x04") + "0x00000000,0x0200,\n") + Good(), "byte 63: fault: capacity"},
        {Framed(Head("0x04") + "0x00000001,0x0000,\n") + Good(), "byte 74: fault: bytes a sector"},
        {ProcessRecord(3) + Good(), "byte 63: fault: process: expected 1 or 2"},
        {Good(7), "byte 63: fault: end code: expected 0x01 to 0x06, found \"0x07\""},
        {Good(1, 9), "byte 68: fault: flags: expected a sum of 1, 2 and 4, found \"0x09\""},
        {StatusRecord(1, 1, "", "not a numb"), "byte 73: fault: next address: expected a number"},
        {StatusRecord(1, 2, "[[[[ no end"), "byte 84: fault: result block: expected a line that"},
        {StatusRecord(4, 6, "[[[[\n====="), "fault: result block: expected a line \"ERROR   : \""},
        {StatusRecord(4, 6, "[[[[\n====="), "fault: result block: expected a line \"PROGRAM : \""},
        {StatusRecord(1, 2, "[[[[\n" + rule + "\n====="),
         "byte 89: fault: result block: expected lines"},
        {Good() + log, "fault: order: expected nothing behind the status record"},
    };
    for (const auto& row : rows) {
        agent_.Write("records", row.records);
        const Result result = Ctl({"validate", agent_.Path("records")});
        EXPECT_EQ(result.status, 1) << row.says;
        EXPECT_NE(result.out.find(row.says), std::string::npos) << row.says << "\n" << result.out;
    }
}

TEST_F(PatrolctlTest, SaysWhatTheControllerMakesOfEachRecord) {
    const std::string log = LogRecord(1, "E0001", std::string(107, 'x'));
    agent_.Write("records", log + ProgressRecord(7) + HddInfoRecord() + ProcessRecord(1) +
                                Good(4, 6, "block 3 is bad"));
    EXPECT_EQ(Shown({"validate", agent_.Path("records")}),
              "byte 206: the logs keep 106 characters of this text\n"
              "byte 0: log record E0001, to the agent and the system log: " +
                  std::string(106, 'x') +
                  "\n"
                  "byte 208: progress: 7 s, passes 1\n"
                  "byte 310: disk information: passed over\n"
                  "byte 418: process notice: traced\n"
                  "byte 492: status: enters ERROR with the text \" block 3 is bad\"; the next test "
                  "begins at address 0x00000040; a part report goes to the agent\n"
                  "5 records, 0 faults.\n");
    EXPECT_EQ(Ctl({"validate", agent_.Path("none")}).status, 1);
}

// The test programs here keep to every rule; what a command prints astray is seen, too.
TEST_F(PatrolctlTest, StartsATestProgramAsAPassDoes) {
    const std::string programs = TESTPROG_DIR;
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"cputest", "-dev", "CPU", "-tp", "register"},
          {"memtest", "-dev", "mem", "-tp", "BMOVEX", "-size", "1MB"},
          {"hddtest", "-dev", "/dev/none"}}) {
        std::vector<std::string> all = {"validate", "--"};
        all.insert(all.end(), words.begin(), words.end());
        all[2].insert(0, programs + "/");
        EXPECT_NE(Shown(all).find(" 0 faults.\n"), std::string::npos) << words[0];
    }
    const std::string noisy = agent_.Script("noisy", "echo astray >&2; exit 3");
    const std::string text = Shown({"validate", "--", noisy}, 1);
    EXPECT_NE(text.find("found \"astray\\x0a\""), std::string::npos) << text;
    EXPECT_NE(text.find("The command has ended with status 3.\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace patrol_test
