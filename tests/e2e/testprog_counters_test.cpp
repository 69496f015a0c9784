// What the hardware counts while the test programs run, shown by folders that look like /sys and
// /proc and by a smartctl that prints what a real one does.

#include <signal.h>

#include <set>

#include "testprog.h"

namespace patrol_test {
namespace {

// What is to be counted, before and after; "#" stands for a number.
struct Tally {
    std::string file, text;
    int before, after;
};

// What "smartctl --json" prints with these members.
std::string Smart(const std::string& members) {
    return "{\n  \"smartctl\": {\"argv\": [ \"smartctl\", \"-i\" ], \"exit_status\": 0, \"a\": "
           "{}},\n"
           "  \"model_name\": \"DRIVE \\\"4000\\\"\",\n  \"serial_number\": \"SN1\",\n" +
           members + "}\n";
}

class TestProgramCountersTest : public TestProgramTest {
 protected:
    static constexpr char kModule[] = "sys/devices/system/edac/mc/mc0/dimm1/";
    static constexpr char kSmart[] = "smart";

    void SetUp() override {
        TestProgramTest::SetUp();
        Put(std::string(kModule) + "dimm_label", "DIMM_A1\n");
        PutSmartctl("usr/sbin", "[ \"$7\" = /dev/sda ] && exec cat $TESTPROG_ROOT/smart\n");
    }
    void PutSmartctl(const std::string& place, const std::string& script) const {
        const std::string file = place + "/smartctl";
        Put(file, "#!/bin/sh\n" + script);
        fs::permissions(agent_.Path("system/" + file), fs::perms::owner_all);
    }
    void Put(const std::string& file, const std::string& text) const {
        fs::create_directories(fs::path(agent_.Path("system/" + file)).parent_path());
        agent_.Write("system/" + file, text);
    }
    // Runs a test while the counts go up; it is interrupted then.
    Said Run(const std::string& program, const std::string& words,
             const std::vector<Tally>& counts) {
        const auto put = [&](bool after) {
            for (const Tally& count : counts) {
                const std::string number = std::to_string(after ? count.after : count.before);
                Put(count.file, std::regex_replace(count.text, std::regex("#"), number));
            }
        };
        put(false);
        const auto process = StartProgram(program, words + " -waitsec 600");
        const std::string output = "program" + std::to_string(programs_) + ".out";
        EXPECT_TRUE(Eventually([&] {  // a record of progress that the test itself has sent
            const std::string text = agent_.Read(output);
            return text.find("Pass=") != text.rfind("Pass=");
        }));
        put(true);
        process->Signal(SIGINT);
        return Listen(*process);
    }
};

TEST_F(TestProgramCountersTest, NewErrorsAreNgWhereNothingCorrectedThem) {
    const std::string module = kModule, kernel = "/sys/devices/system/cpu/cpu7/thermal_throttle/";
    const Tally uncorrected{module + "dimm_ue_count", "#\n", 1, 3};
    const Tally corrected{module + "dimm_ce_count", "#\n", 5, 6};
    const Tally nowhere{"sys/devices/system/edac/mc/mc1/ue_count", "#\n", 0, 1};
    // Of them, those of the module.
    const Tally anew{"sys/devices/system/edac/mc/mc0/ce_count", "#\n", 14, 8};
    const std::string row = "sys/devices/system/edac/mc/mc2/csrow3/";
    Put(row + "ch1_dimm_label", "B2\n");
    const Tally channel{row + "ch1_ce_count", "#\n", 0, 3},
        row_error{row + "ue_count", "#\n", 4, 5};
    const Tally checks{"proc/interrupts",
                       "           CPU0       CPU2\n  1:   0   3   edge  keyboard\n"
                       "THR:   8   #   Threshold APIC interrupts\n"
                       "MCE:   #   0   Machine check exceptions\n",
                       0, 1};
    const Tally heat{kernel + "core_throttle_count", "#\n", 0, 12};
    const std::string check = "processor 0: new machine checks: 1",
                      module_error = "DIMM_A1 (mc0/dimm1): new uncorrected memory errors: 2",
                      threshold = "processor 2: new interrupts for corrected machine checks: 1",
                      hot = "processor 7: new throttlings for heat: 12";
    const std::string mem = "-size 64KB -seed 5", cpu = "-tp register -seed 5",
                      seed = ", seed 0x00000005";
    const struct {
        std::string program, words;
        std::vector<Tally> counts;
        std::string error;
        Strings warnings;
    } cases[] = {{"memtest", mem, {}, "", {}},
                 {"memtest",
                  mem,
                  {corrected, anew},
                  "",
                  {"DIMM_A1 (mc0/dimm1): new corrected memory errors: 1",
                   "memory controller mc0: new corrected memory errors: 2"}},
                 {"memtest",
                  mem,
                  {channel, row_error},
                  "mc2/csrow3: new uncorrected memory errors: 1" + seed,
                  {"B2 (mc2/csrow3): new corrected memory errors: 3"}},
                 {"memtest",
                  mem,
                  {uncorrected, nowhere, checks},
                  module_error + seed,
                  {"memory controller mc1: new uncorrected memory errors: 1", check, threshold}},
                 {"memtest", "-tp ext:it", {uncorrected}, module_error, {}},
                 {"cputest", cpu, {checks, heat}, check + seed, {threshold, hot}},
                 {"cputest", cpu, {checks, uncorrected}, "", {check, threshold, module_error}},
                 {"hddtest", "-dev /dev/sda", {checks, uncorrected}, "", {}}};
    agent_.Write("data/ext_it.ini", "[TEST]\ncommand=sleep 600\n");
    fs::permissions(agent_.Path("data/ext_it.ini"), fs::perms(0644));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.program + " " + c.error);
        const Said said = Run(c.program, c.words, c.counts);
        EXPECT_EQ(said.error, c.error);
        std::multiset<std::string> warnings(c.warnings.begin(), c.warnings.end());
        const Strings logged = said.Logged("W0808");
        EXPECT_EQ(std::multiset<std::string>(logged.begin(), logged.end()), warnings);
        EXPECT_EQ(said.status().substr(0, 9), c.error.empty() ? "0x02,0x02" : "0x04,0x06");
    }
}

TEST_F(TestProgramCountersTest, ADiskSaysWhatItKnowsOfItself) {
    const std::string part = "/dev/sda (DRIVE \"4000\" SN1): ";
    const std::string ata = R"("smart_status": {"passed": true},
        "ata_smart_attributes": {"revision": 1, "table": [
            {"id": 1, "raw": {"value": 7#, "string": "{]"}}, {"id": 5, "raw": {"value": 1#}},
            {"id": 197, "name": "Current_Pending_Sector", "raw": {"value": #}}]})";
    const std::string nvme = R"("nvme_smart_health_information_log":{"spare":100,"media_errors":#,
        "num_err_log_entries":#})";
    const std::string scsi = R"("scsi_error_counter_log": {"read": {
        "errors_corrected_by_eccfast": #, "total_uncorrected_errors": 0}},
        "scsi_grown_defect_list": #)";
    // Nothing is read on behind a name like this one.
    const std::string endless(300, 'k');
    const std::string link = "sys/block/sda/device/device/aer_dev_fatal";
    const struct {
        std::vector<Tally> counts;
        std::string error;
        Strings warnings;
    } cases[] = {
        {{{kSmart, Smart(ata), 3, 3}}, "", {}},
        {{{kSmart, Smart(ata), 3, 4}},
         part + "new sectors that cannot be read: 1",
         {part + "new replaced sectors: 1"}},
        {{{kSmart, Smart(nvme), 0, 2}},
         part + "new media errors: 2",
         {part + "new entries in its error log: 2"}},
        {{{kSmart, Smart(scsi), 0, 2}, {"sys/block/sda/device/ioerr_cnt", "0x#\n", 0, 1}},
         "",
         {"/dev/sda: new failed commands: 1", part + "new replaced blocks: 2"}},
        {{{kSmart, Smart(R"("smart_status": {"passed": false})"), 0, 0}},
         part + "its SMART health is failing",
         {}},
        {{{kSmart, Smart("\"" + endless + R"(": 0, "smart_status": {"passed": false})"), 0, 0},
          {link, "DLP 0\nTOTAL_ERR_FATAL #\n", 0, 1}},
         "/dev/sda: new fatal errors of the PCI link: 1",
         {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        const Said said = Run("hddtest", "-dev /dev/sda", c.counts);
        EXPECT_EQ(said.error, c.error);
        EXPECT_EQ(said.Logged("W0808"), c.warnings);
    }
}

TEST_F(TestProgramCountersTest, ADiskThatDoesNotAnswerOrSaysTooMuchHoldsNothingUp) {
    agent_.Remove("system/usr");  // so that PATH is gone through
    PutSmartctl("found", ": > $KVX_data/asked\nexec sleep 600\n");
    const std::string path = agent_.Path("system/found") + ":/usr/bin:/bin";
    const auto process = StartProgram("hddtest", "-dev /dev/sda", {{{"PATH", path}}});
    EXPECT_TRUE(Eventually([&] { return agent_.Exists("data/asked"); }));
    const auto begin = std::chrono::steady_clock::now();
    process->Signal(SIGINT);
    EXPECT_EQ(Listen(*process).status().substr(0, 10), "0x02,0x02,");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
    if (kSanitized) return;  // which takes more memory than this
    PutSmartctl("found", "echo '[0'; yes ,0 | head -n 200000; echo ]\n");
    Launch small{{{"PATH", path}}};
    small.in_child = [] {
        const rlimit limit = {16 << 20, 16 << 20};
        setrlimit(RLIMIT_AS, &limit);
    };
    const auto poor = StartProgram("hddtest", "-dev /dev/sda", small);
    EXPECT_EQ(Listen(*poor).status().substr(0, 10), "0x03,0x02,");
}

}  // namespace
}  // namespace patrol_test
