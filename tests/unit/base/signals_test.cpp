// Signals, the waits that let them in, and the start of a child.

#include <fcntl.h>

#include <cerrno>

#include "../support.h"
#include "base/blocking.h"
#include "control/patrol_wait.h"
#include "msg/ptl_printf.h"
#include "records.h"
#include "sys/child.h"

namespace patrol_test {
namespace {

volatile sig_atomic_t seen = 0;

bool put_off = false;

int answer_to = -1;

void Noting(int signal) {
    seen = put_off ? 0 : signal;
    NoteSignal();
}

void Answering(int) {
    EXPECT_EQ(write(answer_to, "x", 1), 1);
    NoteSignal();
}

class SignalsTest : public UnitTest {
 protected:
    SignalsTest() {
        EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0);
        for (const int number : {SIGINT, SIGHUP, SIGTERM}) InstallHandler(number, Noting);
        seen = 0;
    }
    ~SignalsTest() override {
        close(pipe_[0]);
        close(pipe_[1]);
    }

    int pipe_[2] = {-1, -1};
};

TEST_F(SignalsTest, ASignalIsLetInAtOnceAndEndsItsOwnWaitWhenNothingIsToRead) {
    char byte = 'x';
    for (const int number : {SIGINT, SIGHUP, SIGTERM}) {
        raise(number);
        EXPECT_NE(seen, number) << "let in outside a wait";
        const SignalWatch watch;
        EXPECT_EQ(seen, number);
        EXPECT_FALSE(watch.Noted()) << "came earlier";
        EXPECT_EQ(write(pipe_[1], &byte, 1), 1);
        put_off = number == SIGTERM;
        CallBeforeBlocking([] { put_off = false; });
        raise(number);
        seen = 0;
        EXPECT_EQ(WaitReadable(pipe_[0]), 0) << "data goes first";
        EXPECT_EQ(seen, number) << "kept out by data, or let in before what was put off is done";
        CallBeforeBlocking(nullptr);
        EXPECT_EQ(read(pipe_[0], &byte, 1), 1);
        // Sent again and again: one that comes before the wait ends nothing.
        const pid_t self = getpid();
        Fork sender([&] {
            while (kill(self, number) == 0) usleep(1000);
            return 0;
        });
        EXPECT_EQ(WaitReadable(pipe_[0]), -1);
        EXPECT_EQ(errno, EINTR);
    }
}

TEST_F(SignalsTest, WhatComesTogetherWithASignalIsTaken) {
    answer_to = pipe_[1];
    InstallHandler(SIGINT, Answering);
    const std::string self = std::to_string(getpid());
    Fork sender([&] {
        const auto waits = [&] {
            return ReadFile("/proc/" + self + "/stat").find(") S ") != kNone;
        };
        return Eventually(waits) ? kill(getppid(), SIGINT) : 1;
    });
    EXPECT_EQ(WaitReadable(pipe_[0]), 0);
    EXPECT_EQ(sender.Wait(), 0);
}

TEST_F(SignalsTest, AResultIsNotLostToASignalThatCameEarlier) {
    const std::string record = StatusRecord(1);
    EXPECT_EQ(write(pipe_[1], record.data(), record.size()), static_cast<int>(record.size()));
    cpu_test.read_fd = pipe_[0];
    raise(SIGINT);
    EXPECT_EQ(wait_for_testdata(&cpu_test, TestWait()), 0);
    EXPECT_EQ(agent_.History().size(), 1U);
}

TEST_F(SignalsTest, AWaitForAChildEndsForASignalAndTheChildIsNotLost) {
    ChildStart start;
    start.run = [] { pause(); };
    const pid_t pid = StartChild(start);
    int status = 0;
    const SignalWatch watch;
    raise(SIGINT);
    EXPECT_EQ(WaitForChild(pid, &status, 0, watch), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(SignalChild(pid, SIGSTOP), 0);
    EXPECT_EQ(WaitForChild(pid, &status, WUNTRACED), pid);
    EXPECT_FALSE(WasCollected(pid)) << "only stopped";
    EXPECT_EQ(SignalChild(pid, SIGKILL), 0);
    EXPECT_EQ(WaitForChild(-1, &status, 0), pid);
    EXPECT_EQ(SignalChild(pid, SIGTERM), -1);
    EXPECT_EQ(errno, ESRCH);
    NoteNewChild(pid);
    EXPECT_FALSE(WasCollected(pid));
    EXPECT_EQ(WaitForChild(-1, &status, 0), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(SignalsTest, AChildRepeatsNothingOfItsParent) {
    const char* trace = "log/later/trace";
    ASSERT_EQ(trinit(agent_.Path(trace).c_str(), 300, 5), 0);
    Ptltrprintf("parent\n");
    agent_.MakeDir("log/later");
    agent_.MakeDir("log/pat_log0.log");  // in the way of the flush before the fork
    ptl_printf(kRelayed | kToLog, nullptr, "parent");
    const Stream stream(fopen(agent_.Path("temp/stdio").c_str(), "we"));
    fputs("parent\n", stream.get());
    ChildStart start;
    start.run = [&] {
        agent_.Remove("log/pat_log0.log");
        Ptltrprintf("child\n");
        FlushLogBuffers();
        fflush(nullptr);
        _exit(0);
    };
    int status = 0;
    EXPECT_GT(WaitForChild(StartChild(start), &status, 0), 0);
    trflush();
    fflush(stream.get());
    FlushLogBuffers();
    EXPECT_EQ(agent_.Trace(trace), (Strings{"child", "parent"}));
    EXPECT_EQ(agent_.Log("log/pat_log0.log"), Strings{"L1000 parent"});
    EXPECT_EQ(agent_.Read("temp/stdio"), "parent\n");
}

}  // namespace
}  // namespace patrol_test
