// The event pipe, the message catalogue, the log files with their generations, the trace file.

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <time.h>
#include <unistd.h>

#include "agent_dir.h"

namespace patrol_test {
namespace {

using MessageTest = AgentTest;

const std::string kParameterError = "W2896:Execution parameter error\n";

std::string HostName() {
    char name[65] = "";
    gethostname(name, 62);
    return name;
}

TEST_F(MessageTest, OnlyAReaderGetsTheMessageAndNobodyWaits) {
    EXPECT_EQ(agent_.Run({"bogus"}).status, 3);  // no pipe at all
    {
        EventPipe pipe(agent_);
        for (const std::string type : {"", "MB"}) {
            agent_.Run({"bogus"}, {{{"KVX_SVTYPE", type}}});
            EXPECT_EQ(Join(pipe.Lines()), (type.empty() ? "" : "MB;") + kParameterError);
        }
        pipe.Leave();
        EXPECT_EQ(agent_.Run({"bogus"}).status, 3);
    }
    agent_.Remove("event_pipe");
    agent_.MakeDir("event_pipe");
    EXPECT_EQ(agent_.Run({"bogus"}).status, 3);
    agent_.Remove("event_pipe");
    agent_.Write("file", "kept as it is, whoever put a link in the place of the pipe");
    EXPECT_EQ(symlink(agent_.Path("file").c_str(), agent_.Path("event_pipe").c_str()), 0);
    // Of a device, the opening alone may be too much.
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    EXPECT_GE(inotify_add_watch(watch, agent_.Path("file").c_str(), IN_OPEN), 0);
    EXPECT_EQ(agent_.Run({"bogus"}).status, 3);
    char opened[4096];
    EXPECT_EQ(read(watch, opened, sizeof opened), -1);
    close(watch);
    EXPECT_EQ(agent_.Read("file").substr(0, 4), "kept");
}

TEST_F(MessageTest, OnlyLinesOfThisProgramsFormAreTaken) {
    const std::string other = "\"E3895\",\"filler\";\n";
    const std::string foreign = "\"E3195\",\"f\";\n\"E3815\",\"f\";\n#\n\n\"\n";
    std::string almost_full;
    for (int i = 0; i < 127; ++i) almost_full += foreign + other;
    const std::string own = "\"W2896\",\"text\";\n", widest(79, 'w'), none = "(none)";
    const std::pair<std::string, std::string> cases[] = {
        {"\"W2896\",\"text\";\r\n", "text"},
        {own + "\"W2896\",\"later\";\n", "text"},
        {" " + own, none},
        {"\"W2796\",\"text\";\n\"W2816\",\"text\";\n", none},  // numbers of other programs
        {"\"W2896\",\"text\"\n", ""},
        {"\"W2896\",\"" + widest + "w\";\n", ""},  // its semicolon is the 82nd character
        {"\"W2896\",\"100%% done\";\n", "100% done"},
        {almost_full + own, "text"},
        {almost_full + other + own, none},  // 128 entries are all there is room for
    };
    EventPipe pipe(agent_);
    for (const auto& [catalogue, text] : cases) {
        agent_.Write("data/pat_msge.txt", catalogue);
        EXPECT_EQ(agent_.Run({"bogus"}).status, 3);
        EXPECT_EQ(Join(pipe.Lines()), text == none ? "" : "W2896:" + text + "\n")
            << catalogue.substr(0, 200);
    }
}

TEST_F(MessageTest, AMissingCatalogueEndsTheRunWithFiveMessages) {
    agent_.Remove("data/pat_msge.txt");
    EventPipe pipe(agent_);
    EXPECT_EQ(agent_.Run({"reload"}).status, 1);
    const std::string path = agent_.Path("data/pat_msge.txt");
    EXPECT_EQ(Join(pipe.Lines()), "E3899:<<file name = " + path + ">>\n");
    EXPECT_EQ(Join(agent_.Log()),
              "E3895 System call error <<fopen>>, errno:<<2>>\n"
              "L1950   cause     : No such file or directory\n"
              "L1951   file name : " +
                  path + "\nL1952   open mode : \"r\"\n");
    EXPECT_EQ(agent_.Read("log/pat_trce.log"), agent_.Read("log/pat_trc0.log"));
}

// A run without KVX_data writes exactly one log line, always of the same length, and ends with 1.
class LogFileTest : public AgentTest {
 protected:
    void WriteOneLine() {
        EXPECT_EQ(agent_.Run({"reload"}, {{{"KVX_data", std::nullopt}}}).status, 1);
    }
    static std::string Name(int n) { return "log/pat_trc" + std::to_string(n) + ".log"; }
    // The generations that are there, each as its first character.
    std::string Generations() const {
        std::string all;
        for (int n = 0; n < 5; ++n) all += agent_.Exists(Name(n)) ? agent_.Read(Name(n))[0] : '-';
        return all;
    }
    static constexpr size_t kLimit = 512 * 1024;
};

TEST_F(LogFileTest, AFileIsFilledToExactlyItsLimitAndFourGenerationsAreKept) {
    WriteOneLine();
    const std::string line = agent_.Read(Name(0));
    EXPECT_EQ(Masked(line, R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d \d{3}\.\d{3})", "TIME"),
              HostName() + ",TIME,patrol" + std::string(14, ' ') + ",W2895,patrol" +
                  std::string(10, ' ') + ",Environment variable<<KVX_data>> not found\n");
    agent_.Write(Name(0), std::string(kLimit - line.size(), 'x'));
    WriteOneLine();
    EXPECT_EQ(agent_.Read(Name(0)).size(), kLimit);
    EXPECT_EQ(Generations(), "x----");

    // Four generations are kept: a full set first loses its oldest, and the line that does not fit,
    // and moves with the next one, which is lost too.
    agent_.Write(Name(0), std::string(kLimit - line.size() + 1, 'a'));
    for (int n = 1; n < 4; ++n) agent_.Write(Name(n), std::string(1, static_cast<char>('a' + n)));
    WriteOneLine();
    EXPECT_EQ(Generations(), "abc--");
    WriteOneLine();
    EXPECT_EQ(Generations(), "-abc-");
    WriteOneLine();
    EXPECT_EQ(agent_.Log().size(), 1U);
    // A file that cannot be opened is told to the agent.
    agent_.Remove(Name(0));
    agent_.MakeDir(Name(0));
    EventPipe pipe(agent_);
    WriteOneLine();
    EXPECT_EQ(Join(pipe.Lines()),
              "E3895:System call error <<fopen>>, errno:<<21>>\n"
              "E3899:<<file name = " +
                  agent_.Path(Name(0)) + ">>\n");
}

TEST_F(LogFileTest, OnlyStatusOneSavesExactCopies) {
    const std::string odd = std::string(2000, 'l') + "\n\nlast line without its end";
    const std::string older(9000, 'o');
    const std::pair<const char*, const char*> copies[] = {{"log/pat_log0.log", "log/pat_loge.log"},
                                                          {"log/pat_log1.log", "log/pat_logb.log"},
                                                          {"log/pat_trc1.log", "log/pat_trcb.log"}};
    for (const auto& [source, target] : copies) {
        agent_.Write(source, source + odd);
        agent_.Write(target, older);
    }
    EXPECT_EQ(agent_.Run({"KVXstart"}).status, 0);
    EXPECT_EQ(agent_.Run({"bogus"}).status, 3);
    for (const auto& [source, target] : copies) EXPECT_EQ(agent_.Read(target), older);
    WriteOneLine();
    for (const auto& [source, target] : copies) EXPECT_EQ(agent_.Read(target), source + odd);
}

TEST_F(MessageTest, EachLineBearsLocalTimeProcessHostAndRemoteHost) {
    for (const char* remote : {"", "10.0.0.1"}) {
        Launch launch;
        launch.env["TZ"] = "XXX+5";  // five hours west
        if (*remote != '\0') launch.env["REMOTEHOST"] = remote;
        const time_t before = time(nullptr);
        const auto process = agent_.Start({"KVXstart"}, launch);
        EXPECT_EQ(process->Wait().status, 0);
        tm local = {};
        const std::string line = First(agent_.Lines(kTrace));
        const char* rest = strptime(line.c_str(), "%Y/%m/%d %H:%M:%S", &local);
        ASSERT_NE(rest, nullptr) << line;
        EXPECT_GE(timegm(&local) + 5 * 3600, before);
        EXPECT_LE(timegm(&local) + 5 * 3600, time(nullptr));
        EXPECT_EQ(rest, " " + std::to_string(process->pid()) + " " + HostName() + " (" + remote +
                            "):[main] patrol.exe KVXstart .");
        agent_.Remove(kTrace);
    }
}

TEST_F(MessageTest, AFileAboveItsLimitMovesThroughSixGenerations) {
    const auto name = [](int n) { return std::string(kTrace) + "." + std::to_string(n); };
    for (int n : {0, 1, 3, 4, 5}) agent_.Write(name(n), std::to_string(n));
    const std::string exact = std::string(65535, 'x') + "\n";
    agent_.Write(kTrace, exact);
    EXPECT_EQ(agent_.Run({"KVXstart"}).status, 0);
    // 65,536 bytes take one line more, the next one finds the limit passed.
    EXPECT_EQ(Join(agent_.Trace(name(0))), exact + "[main] patrol.exe KVXstart .\n");
    EXPECT_EQ(First(agent_.Trace()), "[sched_main] Patrol Schedule Creation Started.");
    std::string generations;
    for (int n = 1; n < 6; ++n) generations += agent_.Exists(name(n)) ? agent_.Read(name(n)) : "-";
    EXPECT_EQ(generations, "01-34");  // 5 is lost, and 2 was not there to move
}

}  // namespace
}  // namespace patrol_test
