// A command that a test program runs: another program and what it says.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/file.h"

namespace testprog {

// How a command ended: by itself with a status, or by a signal.
struct CommandEnd {
    bool exited;
    int number;  // the exit status or the signal
};

class Command {
 public:
    // Lines of the output are cut at so many characters.
    explicit Command(size_t longest_line = 1000) : longest_line_(longest_line) {}
    // Kills what is left of a command that was started, all its processes together, those that left
    // its group as well.
    ~Command();
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    // Starts words[0], which is looked for in PATH where it has no slash, with an empty input, its
    // output and error output in one pipe that Listen reads, and no other descriptor of this
    // process; in a process group of its own and with no signal blocked or ignored. Returns an
    // empty text, or why it could not be started.
    std::string Start(const std::vector<std::string>& words);

    // Waits so many seconds at the most for output, and hands over each line that is whole: without
    // its line end and control characters, backspaces applied. A carriage return ends a line too.
    // Returns true until the command has ended and what it wrote is read; processes that it left
    // behind do not count and are killed.
    bool Listen(double seconds, const std::function<void(const std::string&)>& take);

    // Sends a signal to all processes of the command.
    void Signal(int number) const;

    // Nothing before Listen has returned false.
    const std::optional<CommandEnd>& end() const { return end_; }

 private:
    bool HasEnded();
    void Take(char c, const std::function<void(const std::string&)>& take);
    // Reads what is there now; false at the end of the output.
    bool ReadSome(const std::function<void(const std::string&)>& take);

    const size_t longest_line_;
    std::set<pid_t> known_children_;  // of this process before the command was started
    pid_t pid_ = -1;
    Descriptor output_{-1};
    std::string line_;
    int pieces_after_end_ = 0;
    std::optional<CommandEnd> end_;
};

}  // namespace testprog
