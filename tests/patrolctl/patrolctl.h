#pragma once

// Running the built patrolctl on an agent directory.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <regex>

#include "records.h"

namespace patrol_test {

inline constexpr char kNoAge[] = "--max-age=2000w";

class PatrolctlTest : public PassTest {
 protected:
    // A root of its own keeps the disks of this machine out; running tests are found all the same.
    PatrolctlTest() {
        agent_.MakeDir("root");
        EXPECT_EQ(symlink("/proc", agent_.Path("root/proc").c_str()), 0);
    }

    std::unique_ptr<Process> StartCtl(std::vector<std::string> words, Launch launch = {}) {
        words.insert(words.begin(), "patrolctl");
        Env env = agent_.Environment();
        env["PATROL_ROOT"] = agent_.Path("root");
        for (const auto& [name, value] : launch.env) env[name] = value;
        return std::make_unique<Process>(PATROLCTL, words, env,
                                         agent_.Path("ctl" + std::to_string(ctl_runs_++)), launch);
    }
    Result Ctl(const std::vector<std::string>& words, const Launch& launch = {}) {
        return StartCtl(words, launch)->Wait();
    }
    // Expects an exit status; returns what was printed.
    std::string Shown(const std::vector<std::string>& words, int status = 0) {
        const Result result = Ctl(words);
        EXPECT_EQ(result.status, status) << words[0] << ": " << result.out << result.err;
        return result.out;
    }

    // Expects what was printed, with all that changes from run to run taken out, to be what the
    // file in golden/ has. With UPDATE_GOLDEN set the file is written instead.
    void ExpectGolden(const std::string& name, const std::string& text) const {
        const std::string path = std::string(GOLDEN) + "/" + name;
        if (getenv("UPDATE_GOLDEN") != nullptr) std::ofstream(path) << Steady(text);
        EXPECT_EQ(Steady(text), ReadFile(path)) << name;
    }

    std::string Steady(std::string text) const {
        const std::pair<const char*, const char*> changing[] = {
            {"[0-9]{4}-[0-9]{2}-[0-9]{2}[T ][0-9:]{8}([+]00:00)?", "TIME"},
            {"[0-9]+ (second|minute)s? old", "AGE old"},
            {"[0-9]+ s(?=  |\n)", "N s"},
            {"( \\w+_seconds([{][^}]*[}])?|\"seconds\":) [0-9]+", "$1 N"},
            {"(\n\\w+_seconds([{][^}]*[}])?) [0-9]+", "$1 N"},
            {"version=\"[^\"]*\"", "version=\"V\""},
            {" {3,}(?=[^ \"{}\\]])", "  "},
        };
        for (const auto& [pattern, by] : changing) {
            text = std::regex_replace(text, std::regex(pattern), by);
        }
        return text;
    }

 private:
    int ctl_runs_ = 0;
};

// A terminal that a child can be given as its standard output.
class Terminal {
 public:
    Terminal() : fd_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        EXPECT_TRUE(grantpt(fd_) == 0 && unlockpt(fd_) == 0);
        name_ = ptsname(fd_);
        // Held open, so that nothing is lost between the child's end and the last read.
        held_ = open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal() {
        close(held_);
        close(fd_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Makes `descriptor` of a child to be launched the terminal.
    Launch For(int descriptor) const {
        Launch launch;
        launch.env["TERM"] = "xterm";
        launch.in_child = [this, descriptor] {
            dup2(open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), descriptor);
        };
        return launch;
    }
    // All that has come so far.
    const std::string& Text() {
        char piece[4096];
        for (ssize_t n; (n = read(fd_, piece, sizeof piece)) > 0;) {
            text_.append(piece, static_cast<size_t>(n));
        }
        return text_;
    }
    bool Shows(const std::string& part) { return Text().find(part) != std::string::npos; }

 private:
    int fd_;
    int held_;
    std::string name_;
    std::string text_;
};

}  // namespace patrol_test
