#include "control/launch.h"

#include "../support.h"
#include "control/pipe_data.h"

namespace patrol_test {
namespace {

class LaunchTest : public UnitTest {};

TEST_F(LaunchTest, TheFloatingPointSignalIsOpenedAndClosedAgain) {
    // In a copy of its own, as the routine remembers that it changed the mask.
    Fork copy([] {
        const auto blocked_after = [](int mode) {
            sigset_t mask;
            if (cntl_sigfpe(mode) != 0) return -1;
            sigprocmask(SIG_SETMASK, nullptr, &mask);
            return sigismember(&mask, SIGFPE);
        };
        sigset_t fpe;
        sigemptyset(&fpe);
        sigaddset(&fpe, SIGFPE);
        sigprocmask(SIG_UNBLOCK, &fpe, nullptr);
        if (blocked_after(0) != 0) return 1;  // nothing to undo
        sigprocmask(SIG_BLOCK, &fpe, nullptr);
        if (blocked_after(1) != 0 || blocked_after(1) != 0) return 2;
        return blocked_after(0) == 1 && blocked_after(0) == 1 ? 7 : 3;
    });
    EXPECT_EQ(copy.Wait(), 7);
}

TEST_F(LaunchTest, ASavedStreamIsSearchedForTheNextMarker) {
    const std::string x500(500, 'x');
    // Bytes, where the search begins, length, where it ended.
    const std::tuple<std::string, long, int, long> cases[] = {
        {"ab\ncdONLPTL,0x00000007,", 0, 7, 23},
        {"ONLPTL,0x00000020,ONLPTL,0x00000007,", 1, 7, 36},
        {"ONLPTL,0x00000000,\nONLPTL,      0017,", 0, 15, 37},
        {"ONLPTL,text\nONLPTL\nONLPTL", 0, 0, 0},
        {"ONLPTL,99999999999,", 0, 2147483647, 18},
        {x500 + "\n" + x500 + "\nyONLPTL,5,", 0, 5, 1021},
        {x500 + x500 + "ONLPTL,5,", 0, 5, 1018},
        {"ONLPTL,0x00000020,", -1, -1, -1}};
    long offset = 0;
    EXPECT_EQ(check_pipedata(&offset), -1) << "not open";
    FileEntry* file = FindFile(kFileTmp);
    for (const auto& [bytes, from, length, to] : cases) {
        agent_.Write("data/pat_temp.txt", bytes);
        const Stream stream(fopen(file->path, "r"));
        file->stream = stream.get();
        offset = from;
        EXPECT_EQ(check_pipedata(&offset), length) << bytes;
        EXPECT_EQ(offset, to) << bytes;
        file->stream = nullptr;
    }
}

}  // namespace
}  // namespace patrol_test
