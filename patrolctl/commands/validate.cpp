// patrolctl validate: what the controller makes of the records of a test program.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/file.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "model/command.h"
#include "model/record_judge.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

int Fail(const std::string& sentence) {
    PrintProblems({sentence});
    return kExitFailed;
}

class Validation {
 public:
    explicit Validation(bool colour)
        : colour_(colour), judge_([this](const Remark& remark) { Tell(remark); }) {}

    // Judges all that comes from `fd`. False with errno set when a read fails.
    bool Read(int fd) {
        char piece[65536];
        for (;;) {
            const ssize_t count = read(fd, piece, sizeof piece);
            if (count < 0 && errno == EINTR) continue;
            if (count > 0) judge_.Take({piece, static_cast<size_t>(count)});
            std::fflush(stdout);
            if (count == 0) judge_.End();
            if (count <= 0) return count == 0;
        }
    }

    int Finish() const {
        const int faults = judge_.faults();
        Print(std::to_string(judge_.records()) +
              (judge_.records() == 1 ? " record, " : " records, ") + std::to_string(faults) +
              (faults == 1 ? " fault.\n" : " faults.\n"));
        return faults == 0 ? kExitOk : kExitFailed;
    }

 private:
    void Tell(const Remark& remark) const {
        const std::string word = colour_ ? Coloured("fault", Colour::kRed) : "fault";
        Print("byte " + std::to_string(remark.at) + ": " + (remark.fault ? word + ": " : "") +
              ForTerminal(remark.text) + "\n");
    }

    bool colour_;
    RecordJudge judge_;
};

// Starts the command with both its outputs on one pipe, as a pass does, and judges what comes.
int ValidateCommand(const Options& options, Validation* validation) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Fail(std::strerror(errno));
    const patrol::Descriptor read_end(ends[0]);
    patrol::Descriptor write_end(ends[1]);
    // What cancels the command lets it send its last record, which is to be seen.
    signal(SIGINT, SIG_IGN);
    ChildOutput child;
    child.output = child.error = write_end.get();
    const pid_t pid = StartProgram(options.words, options.places, child);
    if (pid < 0) return Fail(options.words[0] + " cannot be started: " + std::strerror(errno));
    write_end.Reset(-1);
    const bool whole = validation->Read(read_end.get());
    const int status = WaitForProgram(pid);
    if (!whole) return Fail(std::strerror(errno));
    if (WIFSIGNALED(status)) {
        validation->Finish();
        return Fail("the command was killed by signal " + std::to_string(WTERMSIG(status)));
    }
    Print("The command has ended with status " + std::to_string(WEXITSTATUS(status)) + ".\n");
    return validation->Finish();
}

}  // namespace

int RunValidate(const Options& options) {
    Validation validation(options.colour);
    if (!options.words.empty()) return ValidateCommand(options, &validation);
    patrol::Descriptor file;
    if (!options.file.empty() && options.file != "-") {
        file.Reset(open(options.file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
        if (!file.ok()) return Fail(options.file + ": " + std::strerror(errno));
    }
    if (!validation.Read(file.ok() ? file.get() : STDIN_FILENO)) {
        return Fail((options.file.empty() ? "standard input" : options.file) + ": " +
                    std::strerror(errno));
    }
    return validation.Finish();
}

}  // namespace patrolctl
