#include "report/command_runner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "base/signals.h"
#include "msg/trace.h"
#include "report/error_messages.h"
#include "sys/child.h"
#include "sys/retry.h"

namespace patrol {
namespace {

constexpr int kAttempts = 5;

pid_t kpid = 0;                     // the running command, 0 when there is none
bool is_stopped = false;            // whether it was last seen stopped
volatile sig_atomic_t siginfo = 0;  // the signal that ended the wait

// Handler for SIGTERM and SIGALRM. It only runs in the wait for the command, which it ends.
void term_process(int signal) {
    siginfo = signal;
    NoteSignal();
}

// Returns false (told to the agent and traced) when the handler cannot be had; without it nothing
// would end a command that hangs.
bool InstallTermProcess(int signal, const char* name) {
    if (rsignal(signal, term_process, kAttempts) == 0) return true;
    const int error = errno;
    put_error_message(kErrorInternal, "signal()");
    OutTracef("Registration of %s went wrong.(errno=%d)\n", name, error);
    outtrace("ERROR END execute()");
    return false;
}

// The child's side. Ends it when the command cannot be executed. The numbers behind an "L" in these
// texts are parts of them, by which people search traces; they number no line of this file.
void Become(const char* path, char* const* arguments) {
    const int result = rexecv(path, arguments, kAttempts);
    put_error_message(kErrorCommand, path);
    OutTracef("MSG [%s L%d]> child process recieve value:(%d) from rexecv", "execute()", 461,
              result);
    outtrace("ERROR END execute()");
    _exit(static_cast<unsigned char>(-1));
}

// Not WEXITSTATUS: a command that a signal ended counts as 0 here, which is what these bits are.
int ExitStatus(int status) { return (status >> 8) & 0xff; }

// Waits until the command has ended. Returns false when SIGTERM or the time limit ended the wait.
bool WaitForCommand(int* status) {
    while (true) {
        // Its beginning may let in what ends the wait.
        const SignalWatch watch;
        if (siginfo != 0) return false;
        if (WaitForChild(kpid, status, WUNTRACED, watch) < 0) {
            // Whatever another signal was to end, it was not the command.
            if (errno == EINTR) continue;
            OutTracef("(%s) waitpid -> %s.\n", "execute", "Wait_failed");
            return true;
        }
        is_stopped = WIFSTOPPED(*status);
        OutTracef("(%s) parts-> %s\n", "execute", WakeUpText(*status).c_str());
        if (WIFEXITED(*status) || WIFSIGNALED(*status)) return true;
    }
}

}  // namespace

int execute(const char* path, char* const* arguments, int seconds) {
    // A SIGTERM that came before is not for the command.
    const SignalWatch before;
    SignalScope scope;
    scope.LetIn(SIGTERM);
    scope.LetIn(SIGALRM);
    siginfo = 0;
    is_stopped = false;
    if (!InstallTermProcess(SIGTERM, "SIGTERM") || !InstallTermProcess(SIGALRM, "SIGALRM")) {
        return -1;
    }

    ChildStart start;
    start.run = [&] { Become(path, arguments); };
    start.fork_call = [] { return rfork(kAttempts); };
    kpid = StartChild(start);
    if (kpid < 0) {
        kpid = 0;
        put_error_message(kErrorInternal, "fork()");
        outtrace("ERROR END execute()");
        return -1;
    }
    SignalScope::SetAlarm(seconds);
    int status = 0;
    if (!WaitForCommand(&status)) {
        const int result = interproc(siginfo);
        outtrace("INIT execute()");
        return ExitStatus(result);
    }
    kpid = 0;
    OutTracef("MSG [%s L%d]> parent process recieve status:(%d) return value:(%d)", "execute()",
              447, status, ExitStatus(status));
    return ExitStatus(status);
}

int interproc(int signal) {
    outtrace("IN interproc()");
    int status = 0;
    if (kpid > 0) {
        if (SignalChild(kpid, SIGTERM) != 0) {
            put_error_message(kErrorInternal, "kill()");
            outtrace("ERROR END interproc()");
            return -1;
        }
        // A stopped command would never take the signal.
        if (is_stopped || HasStoppedUnseen(kpid)) SignalChild(kpid, SIGCONT);
        rwait(kpid, &status, kAttempts);
        kpid = 0;
    }
    if (signal != SIGTERM) return status;
    OutTracef("Recive SIGTERM.(pid:%d)\n", getpid());
    outtrace("NORMAL END interproc()");
    return 1;
}

}  // namespace patrol
