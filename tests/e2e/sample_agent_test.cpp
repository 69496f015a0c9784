// A life of the sample agent, with its settings, disks and catalogue: sample_agent.txt tells what
// each run does to the last byte. PATROL_WRITE_STORY=1 writes that file anew.

#include <filesystem>
#include <fstream>

#include "padiag.h"

namespace patrol_test {
namespace {

namespace fs = std::filesystem;

class SampleAgentTest : public PadiagFixture {
 protected:
    // Puts a word in place of everything that differs from run to run or from place to place.
    std::string WithoutChance(const std::string& text) const {
        char host[257] = "";
        gethostname(host, sizeof host - 1);
        const std::pair<std::string, const char*> masks[] = {
            {agent_.Path(), "AGENT"},
            {"hostname:\"" + std::string(host) + "\"", "hostname:\"HOST\""},
            {"(ProcessId\\w+ =|Pipe\\w+=|fhandle\\w+ =)\\w+", "$1#"},
            {"\\[\\d+s\\]", "[#s]"},
            {"(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d(\\+00:00)?)+", "DATE"},
        };
        std::string masked = text;
        for (const auto& [what, word] : masks) {
            masked = Masked(masked, what, word);
        }
        return masked;
    }
    // What stands in a file, where that has changed since the last call.
    std::string News(const std::string& file, const std::string& text) {
        if (told_[file] == text) return "";
        told_[file] = text;
        return "-- " + file + "\n" + text;
    }

    std::map<std::string, std::string> told_;
};

TEST_F(SampleAgentTest, EachRunDoesWhatTheStoryTells) {
    fs::copy(SAMPLES, agent_.Path(),
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    agent_.Script("parts", "cp $2 $KVX_data/report");
    Stub("cputest", LogRecord(1, "E3829", "told") + LogRecord(2, "I0807", "begin") +
                        LogRecord(2, "E0809", "end") + Verdict(4, 6, "cputest", "E3820 bad"));
    Stub("memtest", ProgressRecord(7, "memtest") + Verdict(2, 2));
    Stub("hddtest",
         ProcessRecord(1) + HddInfoRecord() + Verdict(1, 3, "hddtest", "", "0x00000080"));
    EventPipe pipe(agent_);
    std::string story;
    for (const std::string mode :
         {"KVXstart", "start", "start", "start", "reload", "KVXstart", "confchg", "pastart"}) {
        const bool padiag = mode == "pastart";
        const Result result = BeginMode(mode.c_str(), padiag ? kPadiagTrace : kTrace, {}).Wait();
        story +=
            "== " + mode + " ends with " + std::to_string(result.status) + "\n" + Join(Steps());
        story += News("events", Join(pipe.Lines()));
        for (const char* history : {kHistory, kPadiagHistory}) {
            story += News(history, Join(agent_.History(history)));
        }
        story += News("log/pat_trc0.log", Join(agent_.Log()));
        for (const char* file :
             {"log/pat_sys.log", "system_log", kSchedule, kPadiagSchedule, "data/report"}) {
            story += News(file, agent_.Read(file));
        }
        agent_.Remove("log");
        agent_.MakeDir("log");
    }
    story = WithoutChance(story);
    if (getenv("PATROL_WRITE_STORY") != nullptr) std::ofstream(STORY) << story;
    EXPECT_EQ(story, ReadFile(STORY));
}

}  // namespace
}  // namespace patrol_test
