#include "control/launch.h"

#include "../support.h"
#include "report/record_stream.h"

namespace patrol_test {
namespace {

class LaunchTest : public UnitTest {};

TEST_F(LaunchTest, TheFloatingPointSignalIsOpenedAndClosedAgain) {
    // In a copy of its own, as the routine remembers that it changed the mask.
    Fork copy([] {
        sigset_t mask;
        sigemptyset(&mask);
        sigaddset(&mask, SIGFPE);
        sigprocmask(SIG_BLOCK, &mask, nullptr);
        int blocked = 0;
        for (const int mode : {1, 0}) {
            cntl_sigfpe(mode);
            sigprocmask(SIG_SETMASK, nullptr, &mask);
            blocked = 2 * blocked + sigismember(&mask, SIGFPE);
        }
        return blocked;
    });
    EXPECT_EQ(copy.Wait(), 1);
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
