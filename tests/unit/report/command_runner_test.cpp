#include "report/command_runner.h"

#include "../support.h"
#include "report/error_messages.h"

namespace patrol_test {
namespace {

volatile int seen = 0;

class CommandTest : public UnitTest {
 protected:
    // Runs a shell command through execute, and checks that it left the signals as they were.
    static int Execute(std::string script, int seconds) {
        char shell[] = "sh", option[] = "-c";
        char* const arguments[] = {shell, option, script.data(), nullptr};
        for (const int number : {SIGTERM, SIGALRM}) InstallHandler(number, [](int) { ++seen; });
        seen = 0;
        raise(SIGTERM);  // not for the command
        const int result = execute("/bin/sh", arguments, seconds);
        EXPECT_EQ(alarm(0), 0U);
        for (const int number : {SIGTERM, SIGALRM}) raise(number);
        EXPECT_EQ(seen, 2);
        const SignalWatch watch;
        EXPECT_EQ(seen, 3);
        return result;
    }
};

TEST_F(CommandTest, TheResultIsTheExitStatusOfAnEndedCommand) {
    const std::string reported = "grep -qs stopped " + agent_.Path(kTrace);
    EXPECT_EQ(Execute("(i=0; until " + reported +
                          " || [ $((i+=1)) -gt 999 ]; do sleep 0.01; done; "
                          "kill -CONT $$) & kill -STOP $$; exit 200",
                      60),
              200);
    EXPECT_EQ(TakePartsTrace().find("(execute) parts-> stopped by signal=19\n"), 0U);
    EXPECT_EQ(Execute("kill -KILL $$", 60), 0);
    EXPECT_EQ(TakePartsTrace().find("(execute) parts-> killed by signal=9\nMSG [execute() L447]> "),
              0U);
}

TEST_F(CommandTest, TheTimeLimitAndTerminationEndTheCommandAlone) {
    const std::string self = std::to_string(getpid());
    Fork other([] { return 4; });
    EXPECT_EQ(Execute("kill -STOP $$; exec sleep 60", 1), 0);
    EXPECT_EQ(TakePartsTrace(),
              "(execute) parts-> stopped by signal=19\nIN interproc()\nINIT execute()\n");
    const std::string loop = "until [ $ended ]; do sleep 0.01; done; sleep 0.1; exit 9";
    EXPECT_EQ(Execute("trap 'echo > " + agent_.Path("temp/woken") + "' CONT; trap ended=1 TERM; " +
                          "kill -TERM " + self + "; " + loop,
                      60),
              0);
    EXPECT_FALSE(agent_.Exists("temp/woken")) << "it was not stopped";
    const std::string terminated = "IN interproc()\nRecive SIGTERM.(pid:" + self +
                                   ")\nNORMAL END interproc()\nINIT execute()\n";
    EXPECT_EQ(TakePartsTrace(), terminated);
    // This process finds the termination before it sees that the command has stopped, because it
    // was stopped itself.
    EXPECT_EQ(
        Execute("(until grep -q '^State:.T' /proc/$$/status; do sleep 0.01; done; kill -CONT " +
                    self + ") & kill -STOP " + self + "; kill -TERM " + self + "; kill -STOP $$",
                60),
        0);
    EXPECT_EQ(TakePartsTrace(), terminated);
    EXPECT_EQ(other.Wait(), 4) << "it belongs to another wait";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "the command was not waited for";
}

TEST_F(CommandTest, ErrorMessagesAreFoundByTheirCode) {
    const std::tuple<int, const char*, std::string, bool> cases[] = {
        {33, "f", "21:The file opening error was detected.<<(File name:f>>", true},
        {0x9999, "f", "36:Internal contradiction was detected.<<(f>>", true},
        {0x27, nullptr, "27:It failed in the execution of the command.<<(---)>>", true},
        {0x33, "f", "33:It failed in the area securing.<<>>", true},
        {0x51, "f", "51:Analysis processing has already been started.<<>>", false},
        {0x00, "%n", "00:(%n", false}};
    EventPipe pipe(agent_);
    for (const auto& [code, argument, text, to_agent] : cases) {
        put_error_message(code, argument);
        const std::string said = TakePartsTrace();
        // What stands before the two digits depends on the command.
        ASSERT_NE(said.find(text), kNone) << said;
        EXPECT_EQ(said.substr(said.find(text)), text + "\n");
        EXPECT_EQ(Join(pipe.Lines()), to_agent ? said : "") << code;
    }
}

}  // namespace
}  // namespace patrol_test
