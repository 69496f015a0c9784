#include "support.h"

#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/clocks.h"
#include "schedule/device_config.h"

namespace fs = std::filesystem;

namespace patrol_fuzz {
namespace {

Agent* current = nullptr;

constexpr char kBefore[] = "[HDD_SCHEDULE 0]\naddress=0x1\n[HDD_SCHEDULE 1]\nhdd_exe=ON\naddress=";
constexpr char kAfter[] = "\n[TEST_SCHEDULE]\nhdd_all_num=2\n";

}  // namespace

Agent::Agent() {
    root_ = fs::temp_directory_path() / "patrol_fuzz.XXXXXX";
    Check(mkdtemp(root_.data()) != nullptr, "a private directory can be made", root_);
    for (const char* name : {"log", "data", "temp", "config"}) {
        fs::create_directory(Path(name));
        setenv((std::string("KVX_") + name).c_str(), Path(name).c_str(), 1);
    }
    setenv("KVX_PIPE", Path("no_pipe").c_str(), 1);
    setenv("TZ", "UTC0", 1);
    unsetenv("KVX_bin");
    host_buf.Assign("host,");
    trc_name = getenv("KVX_log");
    path_name = getenv("KVX_data");
    BuildPaths(path_name);
    clock_now = [] { return current->now; };
}

Agent::~Agent() { fs::remove_all(root_); }

Agent& Agent::Fresh() {
    static Agent agent;
    current = &agent;
    agent.Clear();
    return agent;
}

void Agent::Clear() {
    for (const char* name : {"log", "data", "temp", "config"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(Path(name))) {
            fs::remove(entry);
        }
    }
    now = 1000000;
    system_log.clear();
    ClearLogBuffers();
    FreeDiskTable();
    run_time = cpu_run_time = mem_run_time = 0;
    cpu_pass_num = mem_pass_num = 0;
    f_cpu_exe = f_mem_exe = f_hdd_exe = f_padiag_cpu = f_padiag_mem = f_padiag_hdd = 1;
    cpu_timeout_data = mem_timeout_data = hdd_timeout_data = padiag_time = 45;
    hdd_max_data = 128;
    padiag_level = 1;
    for (Text<512>* text : {&serial_number, &xml_vendor, &xml_model}) text->Clear();
}

void Agent::Write(const std::string& relative, const std::string& bytes) const {
    std::ofstream(Path(relative), std::ios::binary) << bytes;
}

std::string Agent::Read(const std::string& relative) const {
    std::ifstream file(Path(relative), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Agent::WriteDiskSchedule(const std::string& relative) const {
    Write(relative, kBefore + std::string("0x2") + kAfter);
}

void Agent::CheckDiskSchedule(const std::string& relative) const {
    const std::string schedule = Read(relative), before = kBefore;
    const size_t end =
        std::min(schedule.find_first_not_of("0123456789abcdefx", before.size()), schedule.size());
    Check(schedule.substr(0, before.size()) == before && schedule.substr(end) == kAfter &&
              end - before.size() <= 18,
          "nothing but the disk's address changes", schedule);
}

bool Agent::Exists(const std::string& relative) const { return fs::exists(Path(relative)); }

RunningTest* RunTest(int kind) {
    if (kind == kKindCpu) return &cpu_test;
    if (kind == kKindMemory) return &mem_test;
    RunningTest* disk = hdd_exec_tbl;
    hdd_exec_use = 1;
    disk->device_name.Assign("/dev/sdb");
    disk->schedule_index = 1;
    return disk;
}

void Check(bool holds, const char* rule, const std::string& found) {
    if (holds) return;
    std::fprintf(stderr, "BROKEN RULE: %s\n%s\n", rule, found.c_str());
    std::abort();
}

std::string Word(FuzzedDataProvider* input, size_t most) {
    std::string word = input->ConsumeRandomLengthString(most).c_str();
    word.erase(std::remove(word.begin(), word.end(), '\n'), word.end());
    return word;
}

int CheckWholeSchedule(const char* path) {
    char found[1 << 15];
    const int end = GetPrivateProfileSectionNames(found, sizeof found, path);
    std::string names = "CPU_SCHEDULE,MEM_SCHEDULE,";
    const int count = GetPrivateProfileInt("TEST_SCHEDULE", "hdd_all_num", -1, path);
    for (int i = 0; i < count; ++i) names += "HDD_SCHEDULE " + std::to_string(i) + ",";
    std::replace(found, found + end, '\0', ',');
    Check(found == names + "TEST_SCHEDULE", "a Schedule has the sections of its disks", found);
    Check(!fs::exists(std::string(path) + ".new"), "nothing half-written stays", path);
    return count;
}

}  // namespace patrol_fuzz

// In place of the C library's, so that no input reaches the machine's log.
extern "C" void syslog(int priority, const char* format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    patrol_fuzz::Check(length < 2100 && priority < 0x400, "a system log record is bounded", text);
    patrol_fuzz::current->system_log += text;
}
