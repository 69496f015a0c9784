// patrol.exe: decides which components are due for a background diagnosis, starts the test
// programs, and turns what they report into the schedule, histories, logs and part reports.

#include "base/file.h"
#include "base/run_mode.h"
#include "base/signals.h"
#include "control/padiag_run.h"
#include "control/patrol_run.h"
#include "entry/command_line.h"
#include "entry/environment.h"
#include "msg/catalogue.h"
#include "msg/log_files.h"
#include "msg/ptl_exit.h"
#include "msg/trace.h"
#include "schedule/sched_main.h"

namespace {

// Calls the one driver that the mode is for.
int RunDriver() {
    switch (patrol::RunMode()) {
        case patrol::kModeStart:
            return patrol::cntl_main();
        case patrol::kModePadiag:
            patrol::SilenceOutput();
            return patrol::PadiagCntlMain();
        default:
            return patrol::sched_main();
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Whatever is opened, made or fails from here on relies on these four.
    patrol::ProtectNewFiles();
    patrol::EnsureStandardDescriptors();
    patrol::CatchOutOfMemory();
    patrol::PrepareSignals();
    patrol::ClearLogBuffers();
    patrol::setup_hostname();
    const patrol::CommandText command = patrol::JoinWords(argc, argv);
    patrol::ParseCommandLine(argc, argv, command);

    // From here on there are traces and messages.
    patrol::set_filepath();
    patrol::Ptltrprintf("[%s] %s.\n", "main", command.c_str());
    patrol::ptl_set_msglist();
    patrol::ptl_sigaction();
    patrol::ptl_exit(RunDriver() == 0 ? 0 : 1);
}
