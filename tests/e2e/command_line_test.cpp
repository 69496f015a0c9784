// Mode words, parameter errors, environment variables and the state that a run starts in.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "agent_dir.h"

namespace patrol_test {
namespace {

class CommandLineTest : public AgentTest {
 protected:
    Result RunLine(const std::string& line, const Env& env = {}) {
        return agent_.Run(Split(line, ' '), {env});
    }
};

TEST_F(CommandLineTest, VersionAndEndNeedNoEnvironment) {
    Env bare;
    for (const auto& [name, value] : agent_.Environment()) {
        if (name.compare(0, 4, "KVX_") == 0) bare[name] = std::nullopt;
    }
    const char version[] = "3.6.1-100407162353\n";
    const std::pair<const char*, const char*> cases[] = {{"version", version},
                                                         {"start version", version},
                                                         {"debug point=3 version bogus", version},
                                                         {"KVXend", ""},
                                                         {"debug KVXend bogus", ""}};
    for (const auto& [line, out] : cases) {
        for (const Env& env : {Env{}, bare}) {
            const Result result = RunLine(line, env);
            EXPECT_EQ(result.status, 0) << line;
            EXPECT_EQ(result.out, out) << line;
            EXPECT_FALSE(agent_.Exists(kTrace)) << line;
        }
    }
}

TEST_F(CommandLineTest, ParameterErrorsEndWithThreeAndTellTheTwoKindsApart) {
    const Strings unknown = {"",       "point=3 debug", "startx", "Start",
                             "pastar", "debugx",        "point",  "bogus version"};
    const Strings too_many = {"reload reload", "start bogus version", "confchg debug debugx",
                              "KVXstart KVXend", "pastart bogus"};
    EventPipe pipe(agent_);
    for (const auto& [lines, stop] : {std::pair(unknown, "."), std::pair(too_many, "")}) {
        for (const std::string& line : lines) {
            SCOPED_TRACE(line);
            const Result result = RunLine(line);
            EXPECT_EQ(result.status, 3);
            EXPECT_EQ(result.out, "");
            const char* trace = line == "pastart bogus" ? "log/padiag_log" : kTrace;
            EXPECT_EQ(Join(agent_.Trace(trace)),
                      std::string("[main] Warning:Execution Parameter Error") + stop +
                          "\n[main] execute   : patrol.exe " + line + (line.empty() ? "" : " ") +
                          "\n[main] usage     : patrol.exe "
                          "{KVXstart|KVXend|reload|confchg|start|pastart|version} [debug]\n");
            EXPECT_EQ(Join(pipe.Lines()), "W2896:Execution parameter error\n");
            agent_.Remove(trace);
        }
    }
    // The message goes to the agent alone, and status 3 saves no logs.
    EXPECT_FALSE(agent_.Exists("log/pat_trc0.log"));
    EXPECT_FALSE(agent_.Exists("log/pat_trce.log"));
}

TEST_F(CommandLineTest, FlagsMayStandOnEitherSideOfTheMode) {
    for (const char* line :
         {"debug KVXstart", "KVXstart debug debug", "point=0x10 KVXstart",
          "KVXstart point=", "point=junk KVXstart", "KVXstart point=-99999999999999999999"}) {
        EXPECT_EQ(RunLine(line).status, 0) << line;
        EXPECT_EQ(First(agent_.Trace()), std::string("[main] patrol.exe ") + line + " .");
        agent_.Remove(kTrace);
    }
    // A line that is too long is cut in the trace only.
    const std::string line = "patrol.exe point=" + std::string(600, '0');
    EXPECT_EQ(agent_.Run({line.substr(11), "KVXstart", "debug"}).status, 0);
    EXPECT_EQ(First(agent_.Trace()), "[main] " + line.substr(0, 512) + ".");
    EXPECT_TRUE(agent_.Traced("[sched_main] Patrol Schedule Creation Ended."));
}

TEST_F(CommandLineTest, AWordThatBeginsWithPastartIsThePadiagRun) {
    for (const std::string line : {"pastartx", "debug pastart"}) {
        EXPECT_NE(RunLine(line).status, 3);
        const bool debug = line[0] == 'd';
        EXPECT_EQ(First(agent_.Trace(debug ? kTrace : "log/padiag_log")),
                  "[main] patrol.exe " + line + " .");
        EXPECT_EQ(agent_.Exists(kTrace), debug);
    }
}

TEST_F(CommandLineTest, AMissingOrEmptyDirectoryVariableEndsTheRunBeforeAnyTrace) {
    EventPipe pipe(agent_);
    const std::optional<std::string> missing, empty = "";
    for (const auto& [mode, value] :
         {std::pair("reload", missing), {"reload", empty}, {"bogus", missing}, {"bogus", empty}}) {
        SCOPED_TRACE(std::string(mode) + (value ? " empty" : ""));
        EXPECT_EQ(RunLine(mode, {{"KVX_log", value}}).status, 1);
        EXPECT_EQ(Join(pipe.Lines()), "W2895:Environment variable<<KVX_log>> not found\n");
        EXPECT_FALSE(agent_.Exists("log/pat_trc0.log"));

        EXPECT_EQ(RunLine(mode, {{"KVX_data", value}}).status, 1);
        EXPECT_EQ(Join(pipe.Lines()), "");
        EXPECT_EQ(Join(agent_.Log()), "W2895 Environment variable<<KVX_data>> not found\n");
        EXPECT_EQ(agent_.Read("log/pat_trce.log"), agent_.Read("log/pat_trc0.log"));
        EXPECT_FALSE(agent_.Exists(kTrace));
        agent_.Remove("log/pat_trc0.log");
    }
}

// A pipe or file of the program's own that lands on descriptor 0, 1 or 2 would take in what the
// status command or a library prints there. The status command also sees that no core is written.
TEST_F(CommandLineTest, ClosedStandardDescriptorsTakeNoFileOfTheRun) {
    agent_.Write(kSchedule, "[TEST_SCHEDULE]\nhdd_all_num=0\n");
    agent_.Script("get", "cd '" + agent_.Path() +
                             "'; (ulimit -Sc; ulimit -Hc) > core; : > asked; "
                             "while [ ! -e answer ]; do sleep 0.01; done; echo 0");
    for (unsigned closed = 1; closed < 8; ++closed) {
        SCOPED_TRACE("closed set " + std::to_string(closed));
        for (const char* file : {"asked", "answer"}) agent_.Remove(file);
        Launch launch;
        launch.in_child = [closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if (closed & (1U << fd)) close(fd);
            }
        };
        const auto process = agent_.Start({"start"}, launch);
        EXPECT_TRUE(Eventually([this] { return agent_.Exists("asked"); }));
        const std::string fds = "/proc/" + std::to_string(process->pid()) + "/fd/";
        for (int fd = 0; fd < 3; ++fd) {
            if ((closed & (1U << fd)) == 0) continue;
            std::error_code none;
            EXPECT_EQ(std::filesystem::read_symlink(fds + std::to_string(fd), none), "/dev/null");
        }
        agent_.Write("answer", "");
        EXPECT_EQ(process->Wait().status, 0);
    }
    EXPECT_EQ(agent_.Read("core"), "0\n0\n");
}

}  // namespace
}  // namespace patrol_test
