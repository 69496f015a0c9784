#include "lib/trap.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

namespace testprog {
namespace {

TEST(TrapTest, SignalsOfTheWorkComeBackFromEachThreadAndOthersKill) {
    const auto touch_nothing = [] {
        const int empty = memfd_create("empty", MFD_CLOEXEC);
        void* page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, empty, 0);
        static_cast<void>(*static_cast<volatile char*>(page));
    };
    const auto name_of = [](const std::function<void()>& work) {
        const auto trap = Trapped(work);
        return trap ? TrapName(*trap) : "none";
    };
    EXPECT_EQ(name_of([] {}), "none");
    EXPECT_EQ(name_of(touch_nothing), "SIGBUS");
    EXPECT_EQ(name_of([] { raise(SIGILL); }), "SIGILL");
    EXPECT_EQ(name_of([&] {
                  EXPECT_EQ(name_of([] { raise(SIGFPE); }), "SIGFPE");
                  std::thread([&] { EXPECT_EQ(name_of(touch_nothing), "SIGBUS"); }).join();
                  raise(SIGSEGV);
              }),
              "SIGSEGV");
    // The kernel has found a bad page before anybody read it.
    siginfo_t early = {};
    early.si_signo = SIGBUS;
    early.si_code = BUS_MCEERR_AO;
    const auto tell = [&] { syscall(SYS_rt_sigqueueinfo, getpid(), SIGBUS, &early); };
    EXPECT_EQ(name_of(tell), "SIGBUS");
    tell();
    EXPECT_EQ(name_of([] {}), "none") << "after all that";
    EXPECT_EXIT(raise(SIGFPE), ::testing::KilledBySignal(SIGFPE), "");
    const auto hit_by_another = [] {
        if (fork() == 0) _exit(kill(getppid(), SIGSEGV));
        pause();
    };
    EXPECT_EQ(name_of(hit_by_another).substr(0, 24), "SIGSEGV sent by process ");
    // A signal of the whole process meets the thread at work.
    std::atomic<bool> at_work = false;
    std::string told;
    std::thread worker([&] {
        told = name_of([&] {
            at_work = true;
            for (;;) pause();
        });
    });
    const TrapsElsewhere none_here;
    while (!at_work) std::this_thread::yield();
    kill(getpid(), SIGILL);
    worker.join();
    EXPECT_EQ(told, "SIGILL");
}

}  // namespace
}  // namespace testprog
