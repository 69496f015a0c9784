// Retried calls, the file table, and locks.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>

#include "../support.h"
#include "sys/retry.h"

namespace patrol_test {
namespace {

class CallsTest : public UnitTest {
 protected:
    CallsTest() { EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0); }
    ~CallsTest() override {
        close(pipe_[0]);
        close(pipe_[1]);
    }
    // The lines of a call that was tried `times` again and then given up.
    static std::string GivenUp(const std::string& name, int times) {
        std::string lines;
        while (times-- > 0) lines += "RETRY " + name + "()\n";
        return lines + "ERROR  END " + name + "()\n";
    }
    static std::vector<uint32_t> Open() {
        std::vector<uint32_t> open;
        for (const FileEntry* entry = f_cntl; entry->identifier != kFileTableEnd; ++entry) {
            if (entry->open == 1) open.push_back(entry->identifier);
        }
        return open;
    }
    static bool FreeForOthers(const std::string& path) {
        return Fork([&] { return tlock(path.c_str()) == 0 ? 7 : 8; }).Wait() == 7;
    }

    int pipe_[2] = {-1, -1};
    char byte_ = 'b';
};

TEST_F(CallsTest, FailuresAreTracedOnceOrNotAtAll) {
    const std::string missing = agent_.Path("no/file"), fresh = agent_.Path("temp/new");
    struct stat status = {};
    const struct {
        const char* name;
        bool speaks;
        std::function<intptr_t()> call;
    } cases[] = {
        // No attempts: no call.
        {"recreat", false, [&] { return recreat(fresh.c_str(), 0600, 0); }},
        // A failure that another attempt would not mend.
        {"ropen", true, [&] { return ropen(missing.c_str(), O_RDONLY, 5); }},
        {"restat", false, [&] { return restat(missing.c_str(), &status, 5); }},
        {"rmmap", false, [] { return rmmap(nullptr, 0, 0, 0, -1, 0, 5) == MAP_FAILED ? -1 : 0; }},
        {"rsignal", true, [] { return rsignal(SIGKILL, SIG_IGN, 5); }},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.call(), -1) << c.name;
        EXPECT_EQ(TakePartsTrace(), c.speaks ? GivenUp(c.name, 0) : "") << c.name;
    }
    EXPECT_FALSE(agent_.Exists("temp/new"));
    EXPECT_EQ(rfopen(missing.c_str(), 5, "r"), nullptr);
    EXPECT_EQ(fcntl(fileno(rfopen("/dev/null", 1, "r").get()), F_GETFD), FD_CLOEXEC);
    void* page = rmmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0, 1);
    errno = 0;
    EXPECT_EQ(rmunmap(page, 4096, 3), -1) << "success counts as a failure here";
    EXPECT_EQ(TakePartsTrace(), GivenUp("rmunmap", 0));
}

TEST_F(CallsTest, AShortOrInterruptedCallIsTriedAsOftenAsAllowed) {
    ASSERT_EQ(InstallHandler(SIGALRM, [](int) {}), 0);
    const itimerval every = {{0, 20000}, {0, 20000}}, never = {};
    setitimer(ITIMER_REAL, &every, nullptr);
    EXPECT_EQ(rread(pipe_[0], &byte_, 1, 3), -1);
    EXPECT_EQ(errno, EINTR);
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(TakePartsTrace(), GivenUp("rread", 3));
    EXPECT_EQ(fcntl(pipe_[1], F_SETFL, O_NONBLOCK), 0);
    while (rwrite(pipe_[1], &byte_, 1, 2) == 1) continue;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(TakePartsTrace(), GivenUp("rwrite", 2));
}

TEST_F(CallsTest, AMaskHandlesEveryEntryThatSharesABit) {
    EXPECT_EQ(ptl_file_cntl(1, kFileTmp, "w"), 0);
    EXPECT_EQ(Open(), (std::vector<uint32_t>{kFileTmp, kFileEnv2, kFileSche2}));
    const FILE* stream = FindFile(kFileSche2)->stream;
    EXPECT_EQ(ptl_file_cntl(1, kFileSche2, "a"), 0);
    EXPECT_EQ(FindFile(kFileSche2)->stream, stream);
    EXPECT_EQ(fcntl(fileno(FindFile(kFileSche2)->stream), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(Open().size(), 5U);
    EXPECT_EQ(ptl_file_cntl(0, kFileLba, nullptr), 0);
    EXPECT_EQ(Open(), std::vector<uint32_t>{kFileTmp});
}

TEST_F(CallsTest, FailuresOfTheFileTableAreReportedWhole) {
    EventPipe pipe(agent_);
    EXPECT_EQ(ptl_file_cntl(1, 0xff, nullptr), -1);
    EXPECT_EQ(TakeLog(), "E3825 Internal interface error <<ptl_file_cntl>>, value:<<0>>\n");
    agent_.Write("data/pat_env0.ini", "x");
    EXPECT_EQ(ptl_file_cntl(1, kFileEnv | kFilePara | kFileDev, "r"), -1);
    EXPECT_EQ(Open(), std::vector<uint32_t>{kFileEnv});
    const std::string env = env_path.c_str(), missing = para_path.c_str();
    const auto failure = [](const char* call, int error, const std::string& file) {
        return std::string("E3895 System call error <<") + call + ">>, errno:<<" +
               std::to_string(error) + ">>\nL1950   cause     : " + strerror(error) +
               "\nL1951   file name : " + file + "\n";
    };
    EXPECT_EQ(TakeLog(), "T1130 File open. file name=" + env + ", open mode=r\n" +
                             "T1130 File open. file name=" + missing + ", open mode=r\n" +
                             failure("fopen", 2, missing) + "L1952   open mode : \"r\"\n");
    EXPECT_EQ(pipe.Lines(), Strings{"E3899:<<file name = " + missing + ">>"});
    EXPECT_EQ(ptl_fseek(1, 0, SEEK_SET), -1) << "not open";
    EXPECT_EQ(ptl_fseek(0, -100, SEEK_END), -1);
    EXPECT_EQ(TakeLog(), failure("fseek", 22, env) +
                             "L1953   base      : 0x00000002\nL1954   offset    : 0xffffffff\n");
    close(fileno(FindFile(kFileEnv)->stream));
    EXPECT_EQ(ptl_file_cntl(0, 0xff, nullptr), 1);
    EXPECT_EQ(Open(), std::vector<uint32_t>{kFileEnv});
    EXPECT_EQ(TakeLog(), "T1131 File close. file name=" + env + "\n" + failure("fclose", 9, env));
}

TEST(CompareTest, LettersCompareWithoutCaseAndTheRestExactly) {
    const std::tuple<const char*, const char*, int, int> cases[] = {{"abcd", "ABCE", 3, 0},
                                                                    {"abcd", "ABCE", 4, -1},
                                                                    {"[", "{", 1, -1},
                                                                    {"ab", "abc", 5, -1},
                                                                    {"ab", "AB", 5, 0}};
    for (const auto& [a, b, n, result] : cases) EXPECT_EQ(ptl_strcmp(a, b, n), result) << a << b;
}

TEST_F(CallsTest, ALockExcludesOtherProcessesForAsLongAsItIsHeld) {
    const std::string path = agent_.Path("temp/lock"), other = agent_.Path("temp/other");
    EXPECT_EQ(lock(path.c_str(), 5), 0);
    EXPECT_FALSE(FreeForOthers(path));
    EXPECT_EQ(tlock(other.c_str()), 0);
    EXPECT_TRUE(FreeForOthers(path)) << "one lock a process";
    EXPECT_EQ(unlock(), 0);
    EXPECT_TRUE(FreeForOthers(other));
    EXPECT_EQ(lock("/none/lock", 1) + tlock("/none/lock"), -2);

    Fork holder([&] {
        if (tlock(path.c_str()) != 0) return 8;
        agent_.Write("temp/held", "");
        while (agent_.Exists("temp/held")) usleep(1000);
        usleep(200000);
        return 7;
    });
    ASSERT_TRUE(Eventually([&] { return agent_.Exists("temp/held"); }));
    EXPECT_EQ(tlock(path.c_str()), -1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(lock(path.c_str(), 1), -2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    EXPECT_EQ(alarm(0), 0U) << "an alarm was left behind";
    agent_.Remove("temp/held");
    EXPECT_EQ(lock(path.c_str(), 0), 0) << "without a limit";
    EXPECT_EQ(holder.Wait(), 7);
}

}  // namespace
}  // namespace patrol_test
