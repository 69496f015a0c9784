#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace patrol_test {

// Whether the program is built with sanitizers.
constexpr bool kSanitized = PATROL_SANITIZED;

// Environment of a child; an empty optional takes a variable away.
using Env = std::map<std::string, std::optional<std::string>>;

// How one child is started, beyond its words.
struct Launch {
    Env env = {};                         // on top of the clean environment of the agent directory
    std::function<void()> in_child = {};  // runs in the child just before exec
    std::chrono::seconds deadline{300};   // the test fails and the child is killed after this long
};

// What a child left behind.
struct Result {
    int status = -1;  // exit status, or minus the number of the signal that ended it
    std::string out;  // standard output
    std::string err;  // standard error
};

// One running child. Its output goes to files, so that a grandchild that lives on holds nobody up.
class Process {
 public:
    // Starts `program` with `words` (words[0] is the name it sees) and exactly `env`; its output
    // is collected in the files `output` + ".out" and `output` + ".err".
    Process(const std::string& program, std::vector<std::string> words, const Env& env,
            const std::string& output, const Launch& launch);
    ~Process();  // kills a child that was never waited for
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    void Signal(int number) const;
    // Waits for the end; past the deadline the test fails and the child's process group is killed.
    Result Wait();

 private:
    void Kill();

    pid_t pid_ = -1;
    bool ended_ = false;
    int wait_status_ = 0;
    std::string output_;
    std::chrono::seconds deadline_;
};

// The whole of a file; empty when there is none.
std::string ReadFile(const std::string& path);

// Polls `condition` every few milliseconds until it holds; false when `limit` passes first.
bool Eventually(const std::function<bool()>& condition,
                std::chrono::seconds limit = std::chrono::seconds(30));

}  // namespace patrol_test
