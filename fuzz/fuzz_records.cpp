// The record stream of a test program, through the wait for its end.

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/clocks.h"
#include "base/file.h"
#include "base/signals.h"
#include "control/patrol_wait.h"
#include "report/record_stream.h"
#include "report/records.h"
#include "support.h"
#include "sys/child.h"
#include "sys/deferred_writes.h"
#include "sys/file_control.h"
#include "sys/pipe_reader.h"

using namespace patrol_fuzz;

// libFuzzer's own time limit needs the one alarm there is.
extern "C" unsigned alarm(unsigned) { return 0; }

namespace {

constexpr const char* kSchedules[] = {"data/pat_new_sche.txt", "data/pat_sche2.txt"};

// A pipe that hands over each piece as it was sent, so that the reads are those of the input. Its
// writer has gone.
Descriptor FilledPipe(Input* input, std::string bytes) {
    int ends[2];
    Check(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0, "a pipe can be made");
    const Descriptor writer(ends[1]);
    const int room = 1 << 20;
    setsockopt(writer.get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    for (int pieces = 0; !bytes.empty(); ++pieces) {
        const size_t most = std::min<size_t>(bytes.size(), 16384);
        const size_t piece = pieces < 64 ? input->Number<size_t>(1, most) : most;
        Check(send(writer.get(), bytes.data(), piece, MSG_DONTWAIT) > 0, "the pipe has room");
        bytes.erase(0, piece);
    }
    return Descriptor(ends[0]);
}

// The agent's answer comes through the same reader, in lines of at most 63 characters.
void CheckLines(Input* input, const std::string& bytes) {
    const Descriptor pipe = FilledPipe(input, bytes);
    PipeReader reader(pipe.get());
    std::string lines;
    char line[64];
    while (reader.ReadLine(line, sizeof line)) lines += line;
    Check(bytes.find('\0') != std::string::npos || lines == bytes, "lines join to what was sent");
}

// A stream that was saved to a file is searched for its records.
void CheckSaved(const Agent& agent, const std::string& bytes) {
    agent.Write("data/pat_temp.txt", bytes);
    ptl_file_cntl(1, kFileTmp, "r");
    long offset = 0;
    for (long before = 0; check_pipedata(&offset) > 0; before = offset) {
        Check(offset > before, "the search goes on behind a record");
    }
    ptl_file_cntl(0, 0xff, nullptr);
}

// A child that has ended and waits to be collected.
void EndedChild() {
    const pid_t child = vfork();
    if (child == 0) _exit(0);
    NoteNewChild(child);
    siginfo_t ended;
    // libFuzzer's alarm may ring in between.
    while (waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) != 0) {
        Check(errno == EINTR, "a child can be made and waited for");
    }
}

}  // namespace

FUZZ_TARGET(records) {
    Agent& agent = Agent::Fresh();
    patrol_test::EventPipe events(agent);
    const Kind& kind = kKinds[input.Number(0, 2)];
    TestWait wait;
    if (input.Bool()) wait.mask = 0xff;
    wait.mode = input.Bool() ? kRunPatrol : kRunPadiag;
    wait.timeout = input.Number(0, 5);
    wait.address = 7;
    const int passed = input.Number(-10, 10);
    padiag_level = input.Number(1, 3);
    if (input.Bool()) EndedChild();
    for (const char* name : kSchedules) agent.WriteDiskSchedule(name);
    AllocateDiskTable(1);
    RunningTest* test = RunTest(kind.code);
    CheckTestTime(1, 0, test);
    agent.now += passed;
    const std::string stream = input.Text();
    const std::string bytes = Grown(stream, input.Number<size_t>(0, kLongest));
    const Descriptor pipe = FilledPipe(&input, bytes);
    test->read_fd = pipe.get();
    const int result = wait_for_testdata(test, wait);
    test->read_fd = -1;
    FlushDeferredWrites();
    CheckLines(&input, stream);
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;

    Check(result == 0 || result == -1, "a wait succeeds or fails");
    for (const char* name : kSchedules) agent.CheckDiskSchedule(name);
    const std::string entered = agent.Read("log/patstat0.txt") + agent.Read("log/pastat.txt");
    Check(entered.size() < 300 && std::count(entered.begin(), entered.end(), '\n') <= 1,
          "a test has one line in the histories", entered);
    CheckOneLine(entered.substr(0, entered.find('\n')));
    CheckEvents(&events);
    CheckReports(agent);
    FlushLogBuffers();
    for (const char* name : {"log/pat_trc0.log", "log/pat_sys.log"}) {
        Check(agent.Read(name).size() < 4 * bytes.size() + 8192, "a log grows with the stream");
    }
    CheckSaved(agent, bytes);
    FreeDiskTable();
}
