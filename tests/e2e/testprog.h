#pragma once

// What the tests of the test programs share: their records taken apart, and their fixture.

#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include "padiag.h"

namespace patrol_test {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Numbers = std::vector<unsigned long>;

inline constexpr const char* kPrograms[] = {"memtest", "hddtest", "cputest"};

struct Record {
    std::string type, device, body;
};

// Takes the records apart and expects each of them to be framed as the stubs frame theirs.
inline std::vector<Record> ParseRecords(const std::string& out) {
    constexpr size_t kPrefix = 18, kHead = 45;
    std::vector<Record> records;
    for (size_t at = 0; at < out.size();) {
        const Strings head = Split(out.substr(at, kPrefix + kHead) + ",,,,,,", ',');
        const size_t size = strtoul(head[1].c_str(), nullptr, 16);
        const std::string body = out.substr(at).substr(std::min(kPrefix + kHead, out.size() - at));
        records.push_back({head[2], head[5], body.substr(0, std::max(size, kHead) - kHead)});
        const std::string& text = records.back().body;
        const auto lines = static_cast<unsigned>(std::count(text.begin(), text.end(), '\n'));
        const std::string record = Framed(Head(head[2], head[4], Hex(lines, 2), head[5]) + text);
        EXPECT_EQ(out.substr(at, record.size()), record) << "at byte " << at;
        at += record.size();
    }
    return records;
}

// What one run of a test program left behind; the last record is the closing one.
struct Said {
    int exit_status = -1;
    std::vector<Record> records;
    std::string error;  // as the result block has it

    const std::string& status() const { return records.back().body; }
    // The numbers in one column of the progress records.
    Numbers Progress(size_t column) const {
        Numbers numbers;
        for (const Record& record : records) {
            if (record.type != "0x03") continue;
            numbers.push_back(std::stoul(Split(record.body, ',').at(column), nullptr, 16));
        }
        return numbers;
    }
    // The texts of the log records with that message id.
    Strings Logged(const std::string& id) const {
        Strings texts;
        for (const Record& record : records) {
            if (record.type == "0x01" && record.body.substr(5, 5) == id) {
                texts.push_back(record.body.substr(37, record.body.size() - 38));
            }
        }
        return texts;
    }
    // The lines of the result block that begin so, without that.
    Strings Lines(const std::string& start) const {
        Strings lines;
        for (const std::string& line : Split(status())) {
            if (line.rfind(start, 0) == 0) lines.push_back(line.substr(start.size()));
        }
        return lines;
    }
};

// The rows of a table, in fields between "|"; what is left out at the end is empty.
inline std::vector<Strings> Rows(const std::string& table) {
    std::vector<Strings> rows;
    for (const std::string& line : Split(table)) rows.push_back(Split(line + "||||", '|'));
    return rows;
}

class TestProgramTest : public PadiagFixture {
 protected:
    void SetUp() override {
        const std::string real = TESTPROG_DIR "/";
        for (const std::string name : kPrograms) {
            fs::create_symlink(real + name, agent_.Path("bin/" + name));
        }
        agent_.Script("parts",
                      "echo \"$*\" >> $KVX_data/calls; grep -E '^(FRU1|SUMMARY)=' \"$2\" "
                      ">> $KVX_data/calls");
        agent_.Write("data/devconf_cur.xml", "<dev type=\"Partition\" path=\"3\">\n");
        Image("sda", 0x1000 * 512);
    }
    // An image file, which stands for the disk of that name from now on.
    void Image(const std::string& name, uint64_t bytes, const std::string& blocks = "") {
        const std::string file = agent_.Path("data/" + name);
        agent_.Write("data/" + name, "");
        fs::resize_file(file, bytes);
        images_.insert(0, "/dev/" + name + "=" + file + blocks + ":");
    }
    Launch WithImages() const { return {{{"HDDTEST_IMAGES", images_}}}; }

    // What the parts command has noted of one report.
    std::string Report(const std::string& file, const std::string& unit, const std::string& error) {
        return "set " + agent_.Path("temp/parts_" + file) + "\nFRU1=" + unit +
               "\nSUMMARY=" + error + "\n";
    }

    // Starts a test program on its own and waits for its first words; the words of its command
    // line stand between single blanks.
    std::unique_ptr<Process> StartProgram(const std::string& program, const std::string& words,
                                          const Launch& launch = {}) {
        Env env = agent_.Environment();
        env["HDDTEST_IMAGES"] = images_;
        for (const auto& [name, value] : launch.env) env[name] = value;
        const std::string output = "program" + std::to_string(++programs_);
        auto process = std::make_unique<Process>(agent_.Path("bin/" + program),
                                                 Split(program + " " + words, ' '), env,
                                                 agent_.Path(output), launch);
        if (!launch.in_child) {
            EXPECT_TRUE(Eventually([&] { return agent_.Read(output + ".out").size() > 63; }));
        }
        return process;
    }
    static Said Listen(Process& process) {
        const Result result = process.Wait();
        EXPECT_EQ(result.err, "");
        Said said{result.status, ParseRecords(result.out), ""};
        if (said.records.empty()) said.records.emplace_back();
        EXPECT_FALSE(said.Progress(0).empty());
        for (const Record& record : said.records) {
            EXPECT_EQ(record.type == "0x02", &record == &said.records.back());
        }
        std::smatch m;
        if (std::regex_search(said.status(), m, std::regex("\nERROR   : (.*)\n")))
            said.error = m[1];
        return said;
    }
    Said RunProgram(const std::string& program, const std::string& words) {
        const auto process = StartProgram(program, words);
        Lift(*process);
        return Listen(*process);
    }
    // At the lowest priority a program would starve beside others; only root may lift it again.
    static void Lift(const Process& process) {
        static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(process.pid()), 0));
    }

    std::string images_;
    int programs_ = 0;
};

}  // namespace patrol_test
