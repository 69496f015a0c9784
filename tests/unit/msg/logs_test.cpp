// The buffered log streams and the trace ring.

#include <sys/resource.h>

#include "../support.h"

namespace patrol_test {
namespace {

class LogTest : public UnitTest {
 protected:
    // The other fields and the line feed take 71 bytes, and are counted as 73.
    static int Add(size_t size, const char* stream = "pat_log") {
        const std::string text(size, 't');
        return ptl_output_logfile(stream, {"", "stamp", "p", "L1000", "p", text.c_str()});
    }
};

TEST_F(LogTest, ALineThatMightNotFitFlushesFirstAndAnOverlongOneIsCut) {
    const char* file = "log/pat_log0.log";
    Add(1000);
    EXPECT_EQ(Add(4095 - 1071 - 73), 0);
    EXPECT_FALSE(agent_.Exists(file));
    ClearLogBuffers();
    Add(1000);
    Add(4095 - 1071 - 73 + 1);
    EXPECT_EQ(agent_.Read(file).size(), 1071U);
    ClearLogBuffers();
    Add(4095 - 73);
    EXPECT_EQ(Add(4095 - 73 + 1), 0);
    EXPECT_EQ(agent_.Read(file).substr(1071 + 71 + 4022), "sta");
    for (const char* stream : {"", "pat_lo", "pat_logs"}) EXPECT_EQ(Add(1, stream), -1) << stream;
}

TEST_F(LogTest, AFullFileIsToldOfOnceAndTheNewestLinesAreKept) {
    EventPipe pipe(agent_);
    const char* file = "log/pat_log0.log";
    agent_.Write(file, std::string(100, 'x'));
    Fork([] {
        rlimit size = {};
        getrlimit(RLIMIT_FSIZE, &size);
        rlimit full = size;
        full.rlim_cur = 100;
        setrlimit(RLIMIT_FSIZE, &full);
        for (size_t i = 1; i <= 300; ++i) Add(i);
        setrlimit(RLIMIT_FSIZE, &size);
        FlushLogBuffers();
        return 0;
    }).Wait();
    EXPECT_EQ(Join(pipe.Lines()),
              "E3895:System call error <<write>>, errno:<<27>>\nE3899:<<file name = " +
                  agent_.Path(file) + ">>\n");
    const Strings lines = Split(agent_.Read(file).substr(100));
    ASSERT_GT(lines.size(), 2U);
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].size(), 70 + 300 - (lines.size() - 1 - i));
}

TEST_F(LogTest, CopiesThePartBetweenTwoMarks) {
    const std::string long_line(1200, 'l'), four = "alpha\nbeta\ngamma\ndelta";
    const std::tuple<std::string, const char*, const char*, int, std::string> cases[] = {
        {four, "be", "del", 2, "beta\ngamma\n"},
        {four, "gamma", "beta", 2, "gamma\ndelta"},
        {"m1\nm2\nm3\n", "m", "m", 1, "m1\n"},
        {"x\n" + long_line + "\n", "l", nullptr, 3, long_line + "\n"}};
    for (const auto& [text, start, end, count, part] : cases) {
        agent_.Write("temp/from", text);
        EXPECT_EQ(
            copy_part_of_file(OpenForWriting(agent_.Path("temp/to").c_str()).get(),
                              OpenForReading(agent_.Path("temp/from").c_str()).get(), start, end),
            count);
        EXPECT_EQ(agent_.Read("temp/to"), part);
    }
}

TEST_F(LogTest, TheNewestTraceLinesOutliveAFailedFlushInTheirOrder) {
    const char* file = "log/later/trace";
    ASSERT_EQ(trinit(agent_.Path(file).c_str(), 300, 3), 0);
    for (const char* line : {"1", "2", "3", "4"}) EXPECT_EQ(Ptltrprintf("%s\n", line), -1);
    agent_.MakeDir("log/later");
    EXPECT_EQ(Ptltrprintf("5\n"), 0);
    trprintf("purged\n");
    EXPECT_EQ(trpurge(), 0);
    EXPECT_EQ(Ptltrprintf("6\n"), 0);
    EXPECT_EQ(agent_.Trace(file), (Strings{"3", "4", "5", "6"}));
    setenv("REMOTEHOST", std::string(120000, 'r').c_str(), 1);
    // The head is made once a second, and anew in another process.
    Fork([] { return Ptltrprintf("%s", std::string(4095, 't').c_str()); }).Wait();
    unsetenv("REMOTEHOST");
    const Strings lines = agent_.Trace(file);
    ASSERT_EQ(lines.size(), 5U);
    const std::string last = agent_.Lines(file).back();
    EXPECT_EQ(last.size(), 299U) << "a line is bounded by its slot";
    EXPECT_EQ(last.substr(299 - 149), std::string(149, 't')) << "the head gives way to the text";
    trinit(agent_.Path(file).c_str(), 300, 0);
    EXPECT_EQ(Ptltrprintf("7\n") + trprintf("7\n") + trflush() + trpurge(), -4);
}

TEST_F(LogTest, TheSecondTraceTakesOverUntilItsEnd) {
    EXPECT_EQ(inttrace(2), 2);
    unsetenv("KVX_log");
    EXPECT_EQ(inttrace(1), 0);
    setenv("KVX_log", "", 1);
    EXPECT_EQ(inttrace(1), 0);
    Ptltrprintf("first\n");
    setenv("KVX_log", agent_.Path("log").c_str(), 1);
    EXPECT_EQ(inttrace(0), 0);
    outtrace("%s");
    trprintf("kept\n");
    EXPECT_EQ(inttrace(1), 1) << "on already";
    trflush();
    trprintf("dropped\n");
    endtrace();
    trflush();
    trprintf("kept too\n");
    endtrace();
    trflush();
    EXPECT_EQ(agent_.Trace(), Strings{"first"});
    EXPECT_EQ(agent_.Trace("log/ana_io.trc"), (Strings{"[for parts], %s", "kept", "kept too"}));
}

}  // namespace
}  // namespace patrol_test
