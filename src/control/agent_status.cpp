#include "control/agent_status.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "base/file.h"
#include "base/terminal.h"
#include "base/text.h"
#include "msg/trace.h"
#include "sys/child.h"
#include "sys/pipe_reader.h"

namespace patrol {
namespace {

struct ShellCommand {
    pid_t pid = -1;
    Descriptor output;
};

// Starts `command` with its standard output on a pipe. A pid below 0 is a failure. Not by popen,
// whose child would keep this program's signal mask and descriptors.
ShellCommand StartShell(const char* command) {
    ShellCommand shell;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return shell;
    shell.output.Reset(ends[0]);
    const Descriptor write_end(ends[1]);
    ChildStart start;
    start.output = write_end.get();
    start.run = [command] {
        std::string words[] = {"sh", "-c", command};
        char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
        ExecuteProgram("/bin/sh", arguments);
    };
    shell.pid = StartChild(start);
    return shell;
}

// Reads the answer up to a line that says ready.
bool AnswersReady(PipeReader* answer) {
    char line[64];
    while (answer->ReadLine(line, sizeof line)) {
        if (line[0] == '0') return true;
    }
    return false;
}

}  // namespace

int GetMasterStatus() {
    const char* directory = std::getenv("KVX_bin");
    if (directory == nullptr) {
        TellTerminal("patrol.exe: the environment variable KVX_bin is not set");
        Ptltrprintf("[%s] Failed to Get KVX_bin.\n", __func__);
        return -1;
    }
    Text<4096> command;
    command.Format("%s%s %s", directory, "/get", "agent_status");
    Ptltrprintf("[%s] (%s) Start.\n", __func__, command.c_str());
    ShellCommand shell = StartShell(command.c_str());
    if (shell.pid < 0) {
        Ptltrprintf("[%s] (%s) Failed to popen Error End.\n", __func__, command.c_str());
        return -1;
    }
    PipeReader answer(shell.output.get());
    const bool ready = AnswersReady(&answer);
    // A command that goes on answering finds no reader any more and ends.
    shell.output.Reset(-1);
    int status = 0;
    // A signal ends the wait that it comes in; the command may live on.
    if (answer.interrupted() || WaitForChild(shell.pid, &status, 0, answer.watch()) < 0) {
        AbandonChild(shell.pid);
    }
    Ptltrprintf("[%s] (%s) %s End.\n", __func__, command.c_str(), ready ? "OK" : "Not OK");
    return ready ? 0 : -1;
}

}  // namespace patrol
