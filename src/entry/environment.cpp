#include "entry/environment.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>

#include "base/file.h"
#include "base/paths.h"
#include "base/run_mode.h"
#include "base/signals.h"
#include "base/terminal.h"
#include "control/stop.h"
#include "msg/catalogue.h"
#include "msg/event.h"
#include "msg/ptl_exit.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "sys/deferred_writes.h"

namespace patrol {
namespace {

constexpr size_t kHostNameSize = 62;  // host_buf takes a comma, too
constexpr uint32_t kTraceLineSize = 0x10000;
constexpr int32_t kTraceLines = 5;

// Returns the value of a variable without which there is nothing to do. `flags` say where its
// absence is reported.
const char* RequiredVariable(const char* name, unsigned flags) {
    const char* value = DirectoryVariable(name);
    if (value != nullptr) return value;
    TellTerminal(std::string("patrol.exe: the environment variable ") + name + " is not set");
    // The catalogue's place depends on these variables, so its first slot is filled by hand.
    global_msg_list[0] = {"W2895", "Environment variable<<%s>> not found"};
    ptl_printf(flags, nullptr, "W2895", name);
    ptl_exit(1);
}

// The steps of an end without memory, each as far as it gets.
void TellAgent() { event("E3895:System call error <<%s>>, errno:<<%d>>\n", "malloc", ENOMEM); }
void SaveProfiles() { FlushDeferredWrites(); }
void LeaveInOrder() { ptl_exit(1); }

constexpr void (*kLastSteps[])() = {TellAgent, SaveProfiles, LeaveInOrder};

// The handler for memory that cannot be had: there is no way on from here.
void EndWithoutMemory() {
    static size_t next = 0;
    // A step that finds no memory either leads here again, and on to the next step.
    while (next < std::size(kLastSteps)) kLastSteps[next++]();
    std::fflush(stdout);
    _exit(1);
}

// A run without a handler is worth more than none: the failure is told, and that is all.
void Install(int signal, SignalHandler handler) {
    if (InstallHandler(signal, handler) == 0) return;
    const int error = errno;
    ptl_printf(kTraceDetail, nullptr, "W2824");
    // All signals are reported under this name; the message's readers know it so.
    ptl_printf(kTraceDetail, nullptr, "L1956", "SIGINT");
    ptl_printf(kTraceDetail, nullptr, "L1950", std::strerror(error));
}

}  // namespace

void EnsureStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // The lowest free descriptor is taken, which is `fd`.
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
    }
}

void CatchOutOfMemory() { std::set_new_handler(EndWithoutMemory); }

void SilenceOutput() {
    const Descriptor null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (null.ok()) dup2(null.get(), STDOUT_FILENO);
}

int setup_hostname() {
    host_buf.Clear();
    char name[64] = "";
    if (gethostname(name, kHostNameSize) != 0) return -1;
    host_buf.Assign(name);
    host_buf.Append(",");
    // The test programs inherit it. A core of theirs would be as large as the memory under test.
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    return 0;
}

int set_filepath() {
    trc_name = RequiredVariable("KVX_log", kAgentEvent);
    path_name = RequiredVariable("KVX_data", kTraceDetail);

    // A padiag run with the debug word traces where patrol does: the whole mode word is compared.
    LongPath trace_path;
    trace_path.Format("%s/%s", trc_name, entry_cmd == kModePadiag ? "padiag_log" : "pat_trc_log");
    if (trinit(trace_path.c_str(), kTraceLineSize, kTraceLines) != 0) {
        std::printf("[%s] trinit error.\n", __func__);
        ptl_exit(1);
    }
    return BuildPaths(path_name);
}

void ptl_sigaction() {
    Install(SIGINT, sigint_func);
    Install(SIGHUP, sighup_func);
    if (!DispositionChanged(SIGTERM)) Install(SIGTERM, sigterm_func);
}

}  // namespace patrol
