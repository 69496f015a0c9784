#include "support.h"

#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/clocks.h"
#include "schedule/device_config.h"

namespace patrol_fuzz {
namespace {

Agent* current = nullptr;

constexpr char kBefore[] = "[HDD_SCHEDULE 0]\naddress=0x1\n[HDD_SCHEDULE 1]\nhdd_exe=ON\naddress=";
constexpr char kAfter[] = "\n[TEST_SCHEDULE]\nhdd_all_num=2\n";

}  // namespace

std::string Input::Text(size_t most) {
    std::string text;
    size_t at = 0;
    while (at < bytes_.size() && text.size() < most) {
        const char c = bytes_[at++];
        if (c == '\\' && at < bytes_.size() && bytes_[at++] != '\\') break;
        text += c;
    }
    bytes_.erase(0, at);
    return text;
}

std::string Input::Word(size_t most) {
    std::string word = Text(most).c_str();
    word.erase(std::remove(word.begin(), word.end(), '\n'), word.end());
    return word;
}

uint64_t Input::Below(uint64_t last) {
    uint64_t number = 0;
    for (uint64_t left = last; left > 0 && !bytes_.empty(); left >>= 8) {
        number = number << 8 | static_cast<uint8_t>(bytes_.back());
        bytes_.pop_back();
    }
    return last + 1 == 0 ? number : number % (last + 1);
}

std::map<std::string, Target>& Targets() {
    static std::map<std::string, Target> targets;
    return targets;
}

Agent::Agent() {
    PointLibraryAt(*this);
    unsetenv("KVX_bin");
    clock_now = [] { return current->now; };
}

Agent& Agent::Fresh() {
    static Agent agent;
    current = &agent;
    for (const char* name : {"log", "data", "temp", "config"}) {
        for (const auto& entry : std::filesystem::directory_iterator(agent.Path(name))) {
            std::filesystem::remove(entry);
        }
    }
    agent.Remove("event_pipe");
    agent.now = 1000000;
    agent.system_log.clear();
    patrol_test::ClearLibrary();
    run_time = cpu_run_time = mem_run_time = 0;
    cpu_pass_num = mem_pass_num = 0;
    f_cpu_exe = f_mem_exe = f_hdd_exe = f_padiag_cpu = f_padiag_mem = f_padiag_hdd = 1;
    cpu_timeout_data = mem_timeout_data = hdd_timeout_data = padiag_time = 45;
    hdd_max_data = 128;
    padiag_level = 1;
    for (Text<512>* text : {&serial_number, &xml_vendor, &xml_model}) text->Clear();
    return agent;
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

std::string Grown(std::string bytes, size_t much) {
    size_t tab = 0;
    for (int i = 0; i < 2 && (tab = bytes.find('\t', tab)) != std::string::npos; ++i) {
        bytes.replace(tab, 1, much, 'x');
        const size_t head = bytes.rfind("ONLPTL,0x", tab);
        if (head == std::string::npos || head + 17 > tab) continue;
        const std::string length = bytes.substr(head + 7, 10);
        const auto size = std::strtoul(length.c_str(), nullptr, 0) + much - 1;
        Text<11> longer;
        longer.Format("0x%08x", static_cast<unsigned>(size));
        bytes.replace(head + 7, 10, longer.view());
    }
    return bytes;
}

void CheckOneLine(const std::string& line) {
    Check(WithoutControls(line) == line, "a line has no control characters", line);
}

void CheckEvents(patrol_test::EventPipe* events) {
    for (const std::string& line : events->Lines()) {
        CheckOneLine(line);
        Check(line.find(':') <= 5, "an event begins with its number", line);
    }
}

void CheckReports(const Agent& agent) {
    for (const auto& entry : std::filesystem::directory_iterator(agent.Path("temp"))) {
        const std::string report = patrol_test::ReadFile(entry.path());
        const size_t from = report.find("\nSUMMARY=") + 9, to = report.find('\n', from);
        const size_t detail = report.find("\nDETAIL=", to) + 8;
        Check(to - from < 8192, "a summary is cut at its field", report);
        Check(detail == to + 24 && report.size() - detail <= 49152, "so is a detail", report);
    }
}

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

int CheckWholeSchedule(const char* path) {
    char found[1 << 15];
    const int end = GetPrivateProfileSectionNames(found, sizeof found, path);
    std::string names = "CPU_SCHEDULE,MEM_SCHEDULE,";
    const int count = GetPrivateProfileInt("TEST_SCHEDULE", "hdd_all_num", -1, path);
    for (int i = 0; i < count; ++i) names += "HDD_SCHEDULE " + std::to_string(i) + ",";
    std::replace(found, found + end, '\0', ',');
    Check(found == names + "TEST_SCHEDULE", "a Schedule has the sections of its disks", found);
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
