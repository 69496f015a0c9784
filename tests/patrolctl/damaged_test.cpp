// Files that are missing, cut short, no files at all or full of anything.

#include <sys/stat.h>

#include "patrolctl.h"

namespace patrol_test {
namespace {

std::string GoodText(const std::string& file) {
    if (file == kSchedule) {
        return ScheduleText("cpu_exe=ON\ncpu_next_go=ON", "mem_exe=ON\nmem_next_go=OFF",
                            {"hdd_exe=ON\nhdd_next_go=ON\naddress=0x10"});
    }
    if (file.find(".json") != file.npos) {
        return R"({"version":1,"id":"cpu","kind":"CPU","fru":"x","count":2,)"
               R"("first":"2026-01-01T00:00:00+00:00","last":"2026-01-02T00:00:00+00:00"})";
    }
    if (file.find("parts_") != file.npos)
        return "TIME=1\nFRU1=Partition;0\nSUMMARY=a=b\nDETAIL=c=\n";
    if (file == kTrace)
        return "2026/01/02 03:04:05 7 host ():[cntl_main] Patrol Diagnosis Ended.\n";
    if (file.find("lba_") != file.npos) return "[HDD_MAX_LBA]\n/dev/sda=0x0000000000002000\n";
    return "2026/01/02 03:04:05 OK      cputest CPU [1s]\n";
}

class DamagedDirectoryTest : public PatrolctlTest,
                             public ::testing::WithParamInterface<const char*> {};

TEST_P(DamagedDirectoryTest, IsReadAsFarAsItGoesAndSaid) {
    const std::string file = GetParam(), good = GoodText(file);
    const bool schedule = file == kSchedule, report = file.find("parts_") != file.npos;
    // Of the trace and the progress of disks, what is understood is taken from among anything.
    const bool strict = file != kTrace && file.find("lba_") == file.npos;
    std::string bytes(1, '\0');
    for (int i = 0; i < 5000; ++i) bytes += static_cast<char>(i * 7 + i / 256);
    const struct {
        const char* name;
        std::string text;
        bool fault;  // something that was there is lost
    } damages[] = {
        {"missing", "", false},
        {"directory", "", true},
        {"pipe", "", true},
        {"zeros", "", true},
        {"binary", bytes, strict},
        {"long lines", std::string(100000, 'A') + "\n" + good, strict && !schedule && !report},
        {"half", good.substr(0, good.size() / 2), strict && !report},
        {"numbers", std::regex_replace(good, std::regex("[0-9]+"), "99999999999999999999"), strict},
        {"negative", std::regex_replace(good, std::regex("="), "=-"), schedule},
    };
    agent_.MakeDir("data/faults");
    for (const auto& damage : damages) {
        const std::string name = damage.name;
        agent_.Remove(file);
        if (name == "directory") agent_.MakeDir(file);
        if (name == "pipe") mkfifo(agent_.Path(file).c_str(), 0600);
        if (name == "zeros") {
            ASSERT_EQ(symlink("/dev/zero", agent_.Path(file).c_str()), 0);
        }
        if (!damage.text.empty()) agent_.Write(file, damage.text);
        for (const Strings& words : {Strings{"status"},
                                     {"status", "--json"},
                                     {"next"},
                                     {"history"},
                                     {"faults"},
                                     {"check"},
                                     {"metrics"},
                                     {"doctor"},
                                     {"report", "-o", "-"}}) {
            SCOPED_TRACE(name + ", " + words[0]);
            const Result result = Ctl(words);
            EXPECT_TRUE(result.status >= 0 && result.status <= 3) << result.status;
            if (words[0] != "status" && words[0] != "report") continue;
            EXPECT_EQ(result.status, damage.fault ? 3 : 0) << result.err;
            const std::string& where = words.size() == 2 ? result.out : result.err;
            EXPECT_EQ(where.find(agent_.Path(file)) != std::string::npos, damage.fault) << where;
        }
        Launch full;
        full.in_child = [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
        EXPECT_EQ(Ctl({"metrics"}, full).status, 1) << name << ": lost, however much could be read";
    }
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedDirectoryTest,
                         ::testing::Values(kSchedule, kHistory, "log/pastat.txt", kTrace,
                                           "data/lba_outfile.ini", "data/faults/cpu.json",
                                           "temp/parts_pt_cpu"));

}  // namespace
}  // namespace patrol_test
