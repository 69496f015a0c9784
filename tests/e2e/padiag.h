#pragma once

// The fixture of the tests of an on-request diagnosis.

#include <utility>

#include "records.h"

namespace patrol_test {

inline constexpr char kPadiagTrace[] = "log/padiag_log";
inline constexpr char kPadiagHistory[] = "log/pastat.txt";
inline constexpr char kParameters[] = "data/padiag_para.ini";
inline constexpr char kProgress[] = "data/lba_outfile.ini";
inline constexpr char kProgressCopy[] = "data/lba_outfile_bup.ini";

// A status record as it stands in an output file, closed by its line of "=". An empty `error`
// leaves the line of the error out.
inline std::string Verdict(int end_code, int flag, const std::string& program = "memtest",
                           const std::string& error = "",
                           const std::string& address = "0x00000000") {
    const std::string block = Replaced(ResultBlock(program, "/dev/sdx", error), "ERROR   : \n", "");
    return Framed(Head("0x02", program) +
                  StatusBody(end_code, flag, "I0399:<<Ended>>\n" + block, address));
}

class PadiagFixture : public PassTest {
 protected:
    // A Schedule file with these due words; disks are /dev/sda, ..., and start at block 0.
    void Plan(int level, const std::string& cpu, const std::string& memory, Strings disks,
              const std::string& time = "3600") const {
        for (std::string& disk : disks) disk = "hdd=" + disk + "\naddress=0x0000000000000000";
        agent_.Write(kPadiagSchedule,
                     ScheduleText("cpu=" + cpu, "mem=" + memory, disks,
                                  "level=" + std::to_string(level) + "\ntime=" + time));
    }
    void PlanMemory() const { Plan(1, "OFF", "ON", {}); }

    Process& Begin(const Launch& launch = {}) { return BeginMode("pastart", kPadiagTrace, launch); }
    void Diagnose(const Launch& launch = {}, int status = 0) {
        const Result result = Begin(launch).Wait();
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_EQ(result.out, "") << "nothing may reach the caller";
    }

    // The pid that the waiting line of a kind ("Cpu", "Mem", "Hdd") names, in the form of the
    // cancel lines.
    std::string PidOf(const std::string& kind) const {
        const std::string start = " ProcessId" + kind + " =";
        for (const std::string& line : Steps()) {
            const size_t at = line.find(start);
            if (at != std::string::npos) return Hex(std::stoull(line.substr(at + start.size())), 8);
        }
        return "(none)";
    }
    Strings History() const { return agent_.History(kPadiagHistory); }
    void Forget() const {
        PassTest::Forget();
        agent_.Remove("data/report");
    }
};

}  // namespace patrol_test
