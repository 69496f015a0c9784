#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "bench/memory_faults.h"
#include "mem/area.h"
#include "mem/frame_map.h"
#include "mem/plan.h"

namespace testprog {
namespace {

namespace fs = std::filesystem;

constexpr size_t kWords = 2048;
constexpr uint64_t kMask = 0x123456789abcdef1;

// What the first step that finds anything finds, at the lowest level.
template <typename Memory>
Finding RunTest(Memory& memory, const std::string& test) {
    const Depth& depth = kDepths.front();
    const std::vector<uint64_t> patterns(kPatterns.begin(), kPatterns.begin() + depth.patterns);
    for (const auto& step : StepsOf<Memory>(test, patterns, depth, kMask)) {
        if (Finding finding = step(memory)) return finding;
    }
    return {};
}

TEST(MemoryTest, TestsFindMostOfTheModelledFaults) {
    const std::vector<MemoryFault> faults = MemoryFaults(kWords, 10);
    ASSERT_EQ(faults.size(), 120U);
    for (const char* test : {"BMOVE", "IMOVE", "WHOLE"}) {
        const auto finds = [test](FaultyMemory& memory) { return bool(RunTest(memory, test)); };
        EXPECT_GE(CountFound(faults, kWords, finds), 110) << test;
    }
}

// Healthy memory, of which one bit of one word flips at one of the looks for a cancel.
class FlippingMemory : public RealMemory {
 public:
    FlippingMemory(const Area& area, size_t word, int* looks)
        : RealMemory(
              area,
              [&area, word, looks] {
                  if ((*looks)-- == 0) area.words()[word] = area.words()[word] ^ 0x40U;
                  return false;
              },
              false) {}
};

TEST(MemoryTest, RealMemoryIsReadBackAndAFlippedBitIsToldWithItsPlace) {
    for (const size_t size : {size_t{68} << 10, size_t{640} << 10}) {
        Area area(size, -1, [] { return false; });
        ASSERT_EQ(area.size(), size) << area.complaint();
        for (const char* test : {"BMOVE", "IMOVE", "WHOLE"}) {
            SCOPED_TRACE(test);
            int looks = -1;
            FlippingMemory sound(area, 0, &looks);
            EXPECT_FALSE(RunTest(sound, test));
            int found = 0;
            const int all = -looks;
            for (int at = 0; at < all; at += 1 + all / 12) {
                const size_t word = static_cast<size_t>(at) * 131 % sound.count();
                looks = at;
                FlippingMemory memory(area, word, &looks);
                const Finding finding = RunTest(memory, test);
                if (!finding) continue;
                ++found;
                EXPECT_EQ(finding->offset % (sound.count() / 2 * 8),
                          word * 8 % (sound.count() / 2 * 8));
                EXPECT_EQ(finding->expected ^ finding->got, 0x40U);
                EXPECT_EQ(finding->again, finding->got);
            }
            EXPECT_GT(found, 3);
        }
    }
}

class MemoryFilesTest : public ::testing::Test {
 protected:
    MemoryFilesTest() {
        char name[] = "/tmp/memory_test.XXXXXX";
        root_ = mkdtemp(name);
    }
    ~MemoryFilesTest() override { fs::remove_all(root_); }
    void Write(const std::string& path, const std::string& text) const {
        fs::create_directories(fs::path(root_ + path).parent_path());
        std::ofstream(root_ + path) << text;
    }
    std::string root_;
};

TEST_F(MemoryFilesTest, AQuarterOfWhatIsLeftMayBeTaken) {
    EXPECT_FALSE(MemoryToTake(root_));
    Write("/proc/meminfo", "MemTotal:  9000 kB\nMemAvailable:    8000 kB\n");
    EXPECT_EQ(MemoryToTake(root_), 2000U << 10);
    Write("/proc/self/cgroup", "0::/a/b\n");
    EXPECT_EQ(MemoryToTake(root_), 2000U << 10) << "a group without files has no limit";
    const std::string top = "/sys/fs/cgroup";
    Write(top + "/a/b/memory.max", "max\n");
    Write(top + "/a/b/memory.current", "1000\n");
    EXPECT_EQ(MemoryToTake(root_), 2000U << 10);
    Write(top + "/a/memory.max", "5000000\n");
    Write(top + "/a/memory.current", "4000000\n");
    EXPECT_EQ(MemoryToTake(root_), 250000U) << "the group above";
    Write(top + "/a/memory.stat", "anon 1\ninactive_file 600000\nfile 9\n");
    EXPECT_EQ(MemoryToTake(root_), 400000U) << "file cache can be had";
    Write(top + "/a/memory.high", "4400000\n");
    EXPECT_EQ(MemoryToTake(root_), 250000U) << "nobody is slowed down";
    Write(top + "/a/memory.current", "6000000\n");
    EXPECT_EQ(MemoryToTake(root_), 0U);
    Write("/proc/self/cgroup", "5:cpu,memory:/c\n3:memoryx:/a\n");
    EXPECT_EQ(MemoryToTake(root_), 2000U << 10);
    Write(top + "/memory/c/memory.limit_in_bytes", "4000\n");
    Write(top + "/memory/c/memory.usage_in_bytes", "1000\n");
    EXPECT_EQ(MemoryToTake(root_), 750U);
}

TEST_F(MemoryFilesTest, TestedFramesAreKnownInLaterRunsUntilAMonthIsOver) {
    const auto go_on = [] { return false; };
    constexpr int64_t kNow = 1700000000;
    const std::string file = root_ + "/memtest_frames";
    const auto tested = [&](uint64_t frames, int64_t now) {
        return FrameMap(root_, frames, now, go_on).tested();
    };
    {
        FrameMap map(root_, 400000, kNow, go_on);
        EXPECT_TRUE(map.Mark({7, 8, 8, 300000, uint64_t{1} << 36}));
        EXPECT_TRUE(map.Mark({7, 1}));
        EXPECT_EQ(map.tested(), 5U);
        EXPECT_EQ(map.CountTested({1, 2, 7, 299999, 300000, uint64_t{1} << 50}), 3U);
    }
    EXPECT_EQ(tested(400000, kNow + 29 * 86400), 5U) << "memory may lie far up";
    {
        FrameMap map(root_, 400000, kNow + 86400, go_on);
        std::vector<uint64_t> frames(200000);
        for (size_t i = 0; i < frames.size(); ++i) frames[i] = i;
        EXPECT_TRUE(map.Mark(frames));
        EXPECT_EQ(map.Summary().substr(0, 39), "50 % of the memory tested since 2023-11");
    }
    fs::resize_file(file, 4096 + 1);
    EXPECT_EQ(tested(400000, kNow), 8U) << "what is lost is tested again";
    fs::resize_file(file, uint64_t{1} << 35);
    EXPECT_EQ(tested(400000, kNow), 8U) << "a damaged file costs neither time nor memory";
    EXPECT_EQ(tested(400000, kNow + 31 * int64_t{86400}), 0U);
    EXPECT_TRUE(FrameMap(root_, 400000, kNow, go_on).Mark({5}));
    EXPECT_EQ(tested(400001, kNow), 0U) << "another machine";
    for (const char* damage :
         {"", "memtest frames since=-9223372036854775808 frames=400000", "\x01\x02\x03"}) {
        std::ofstream(file) << damage;
        EXPECT_EQ(tested(400000, kNow), 0U) << damage;
    }
    fs::remove(file);
    fs::create_symlink(root_ + "/elsewhere", file);
    EXPECT_TRUE(FrameMap(root_, 400000, kNow, go_on).Mark({5}));
    EXPECT_FALSE(fs::exists(root_ + "/elsewhere")) << "a link is not followed";
}

}  // namespace
}  // namespace testprog
