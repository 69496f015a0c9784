#pragma once

// What a stub test program sends, right and wrong, and the fixture of the tests of a patrol pass.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "agent_dir.h"

namespace patrol_test {

inline std::string Hex(unsigned long long value, int digits) {
    char text[32];
    snprintf(text, sizeof text, "0x%0*llx", digits, value);
    return text;
}

inline std::string Pad(std::string text, size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text;
}

inline std::string Repeat(const std::string& piece, int times) {
    std::string text;
    for (int i = 0; i < times; ++i) text += piece;
    return text;
}

// A header and a body behind the 18 bytes that announce them.
inline std::string Framed(const std::string& content) {
    return "ONLPTL," + Hex(content.size(), 8) + "," + content;
}

// The 45 bytes of a header. `type` and `lines` stand as they are, four characters each.
inline std::string Head(const std::string& type, const std::string& program = "hddtest",
                        const std::string& lines = "0x01", const std::string& device = "/dev/sdz") {
    return type + "," + lines + "," + Pad(program, 16) + "," + Pad(device, 16) + ",\n";
}

constexpr char kStamp[] = "26/11/15 12:16:02 123.456";

inline std::string LogRecord(int level, const std::string& id, const std::string& text) {
    return Framed(Head("0x01") + Hex(static_cast<unsigned>(level), 2) + "," + Pad(id, 5) + "," +
                  kStamp + "," + text + "\n");
}

inline std::string StatusBody(int end_code, int flag, const std::string& text,
                              const std::string& address = "0x00000000") {
    return Hex(static_cast<unsigned>(end_code), 2) + "," + Hex(static_cast<unsigned>(flag), 2) +
           "," + address + "," + text + "\n";
}

inline std::string StatusRecord(int end_code, int flag = 0, const std::string& text = "",
                                const std::string& address = "0x00000000") {
    return Framed(Head("0x02") + StatusBody(end_code, flag, text, address));
}

inline std::string ProgressRecord(unsigned seconds, const std::string& program = "hddtest") {
    return Framed(Head("0x03", program) + Hex(seconds, 8) + ",0x00000000,0x01,0x01,Pass=1\n");
}

inline std::string HddInfoRecord() {
    return Framed(Head("0x04") + "0x00100000,0x0200,0x01,SERIAL0123456789,1.00\n");
}

inline std::string ProcessRecord(unsigned content) {
    return Framed(Head("0x06") + Hex(content, 8) + "\n");
}

// The part of a result block that a faulty-part report shows, without a final line feed.
inline std::string ResultBlock(const std::string& program, const std::string& device,
                               const std::string& error) {
    return "[[[[ PATROL DIAGNOSIS RESULT ]]]]\nPROGRAM : " + program +
           "\nTITLE   : PATROL\nDEVICE  : " + device + "\nERROR   : " + error +
           "\nRESULT  : NG ( PASS:  1 )\n" + std::string(78, '=');
}

// Pieces of shell for the stubs. A stub holds on while the test leaves data/hold in place, for two
// minutes at most, so that none outlives its test; kListen makes data/stopped tell of a SIGINT.
constexpr char kHold[] =
    "n=0; while [ -e $KVX_data/hold ] && [ $n -lt 2400 ]; do n=$((n + 1)); sleep 0.05; done\n";
constexpr char kListen[] = "trap 'echo stopped > $KVX_data/stopped; exit 0' INT\n";
constexpr char kClosePipe[] = "exec >/dev/null 2>&1 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-\n";
constexpr char kUp[] = "echo $$ > $KVX_data/up.new; mv $KVX_data/up.new $KVX_data/up\n";

// Whether `expected` come in this order; other lines may stand between them.
inline ::testing::AssertionResult InOrder(const Strings& lines, const Strings& expected) {
    size_t found = 0;
    for (const std::string& line : lines) {
        if (found < expected.size() && line == expected[found]) ++found;
    }
    if (found == expected.size()) return ::testing::AssertionSuccess();
    std::string text;
    for (const std::string& line : lines) text += "\n  " + line;
    return ::testing::AssertionFailure()
           << "missing or out of order: " << expected[found] << "\nin:" << text;
}

// A Schedule file of these keys. Disks are /dev/sda, ...
inline std::string ScheduleText(
    const std::string& cpu, const std::string& memory, const Strings& disks,
    const std::string& test =
        "hdd_timeout=45\nhdd_max=128\nhdd_next_gusu=0\nhdd_next_kisu=1\nhdd_start_kigu=1\n"
        "cpu_timeout=45\nmem_timeout=45") {
    std::string text = "[CPU_SCHEDULE]\n" + cpu + "\n[MEM_SCHEDULE]\n" + memory + "\n";
    const std::vector<Disk> named = NumberedDisks(static_cast<int>(disks.size()));
    for (size_t i = 0; i < disks.size(); ++i) {
        text += "[HDD_SCHEDULE " + std::to_string(i) + "]\nserial_number=" + named[i].serial +
                "\n" + disks[i] + "\ndevice_name=" + named[i].device + "\nhdd_ide=0\n";
    }
    return text + "[TEST_SCHEDULE]\nhdd_all_num=" + std::to_string(disks.size()) + "\n" + test +
           "\n";
}

class PassTest : public AgentTest {
 protected:
    // A Schedule file with everything enabled and these due flags; disks are /dev/sda, ...
    void Plan(const std::string& cpu, const std::string& memory, Strings disks) const {
        for (std::string& disk : disks) {
            disk = "hdd_exe=ON\nhdd_next_go=" + disk + "\naddress=0x0000000000000000";
        }
        agent_.Write(kSchedule, ScheduleText("cpu_exe=ON\ncpu_next_go=" + cpu,
                                             "mem_exe=ON\nmem_next_go=" + memory, disks));
    }

    // The same with this program alone due.
    void PlanOne(const std::string& program) const {
        const auto due = [&](const char* name) { return program == name ? "ON" : "OFF"; };
        Plan(due("cputest"), due("memtest"), {due("hddtest")});
    }

    // A test program that sends `records` and then runs `after`; `before` runs first of all.
    void Stub(const std::string& name, const std::string& records, const std::string& after = "",
              const std::string& before = "") const {
        agent_.Write("data/" + name + ".records", records);
        agent_.Script(name, before + "cat $KVX_data/" + name + ".records\n" + after);
    }

    // Starts a pass; Pass also waits for its end and expects its exit status.
    Process& Begin(const Launch& launch = {}) { return BeginMode("start", kTrace, launch); }
    void Pass(const Launch& launch = {}, int status = 0) {
        const Result result = Begin(launch).Wait();
        EXPECT_EQ(result.status, status) << result.err;
    }
    Process& BeginMode(const char* mode, const char* trace, const Launch& launch) {
        process_ = agent_.Start({mode}, launch);
        trace_ = trace;
        return *process_;
    }

    // The trace of the last run itself without its children, over all generations of the file.
    Strings Steps() const {
        Strings steps;
        const std::string pid = std::to_string(process_->pid());
        for (const char* generation : {".5", ".4", ".3", ".2", ".1", ".0", ""}) {
            for (const std::string& line : agent_.Lines(trace_ + generation)) {
                std::string date, time, writer;
                std::istringstream(line) >> date >> time >> writer;
                if (writer == pid) steps.push_back(line.substr(line.find("):") + 2));
            }
        }
        return steps;
    }
    // How many of those lines begin with `start`.
    size_t Count(const std::string& start) const {
        size_t count = 0;
        for (const std::string& line : Steps()) count += line.rfind(start, 0) == 0 ? 1 : 0;
        return count;
    }
    bool Stepped(const std::string& line) const { return bool(InOrder(Steps(), {line})); }
    void ExpectSteps(const Strings& expected) const { EXPECT_TRUE(InOrder(Steps(), expected)); }
    // Sends the signal once the run has made a step that begins so.
    void SignalAt(const std::string& step, int number) const {
        EXPECT_TRUE(Eventually([&] { return Count(step) > 0; })) << step;
        process_->Signal(number);
    }

    // The history, with the time stamps off and "#" for the seconds of memory and disks.
    void ExpectHistory(const Strings& expected) const {
        Strings lines = agent_.History();
        for (std::string& line : lines) {
            if (line.find(" cputest CPU ") != std::string::npos) continue;
            const size_t from = line.find(" [") + 2, end = line.find("s]");
            if (end != std::string::npos) line.replace(from, end - from, "#");
        }
        EXPECT_EQ(lines, expected);
    }
    // Forgets what earlier passes left behind.
    void Forget() const {
        for (const char* file : {"log", "data/stopped", "data/up", "data/calls"}) {
            agent_.Remove(file);
        }
        agent_.MakeDir("log");
    }

    std::unique_ptr<Process> process_;
    std::string trace_;
};

}  // namespace patrol_test
