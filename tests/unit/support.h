// What the unit tests share: the library pointed at a private agent directory, and a second
// process.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "base/signals.h"
#include "library.h"
#include "msg/catalogue.h"
#include "msg/trace.h"
#include "sys/file_control.h"
#include "sys/lock.h"

namespace patrol_test {

using namespace patrol;
inline constexpr size_t kNone = std::string::npos;

// A forked copy of this process that runs `body` and ends with its result.
class Fork {
 public:
    explicit Fork(const std::function<int()>& body) : pid_(fork()) {
        if (pid_ == 0) _exit(body());
    }
    ~Fork() {
        if (pid_ > 0) kill(pid_, SIGKILL);
        Wait();
    }
    Fork(const Fork&) = delete;
    Fork& operator=(const Fork&) = delete;

    // The exit status, or -1 when it ended otherwise.
    int Wait() {
        int status = 0;
        const bool ended = pid_ > 0 && waitpid(pid_, &status, 0) == pid_ && WIFEXITED(status);
        pid_ = -1;
        return ended ? WEXITSTATUS(status) : -1;
    }

 private:
    pid_t pid_;
};

// Sets up what the start of the program sets up, for this test's directory, and takes it back.
class UnitTest : public AgentTest {
 protected:
    UnitTest() {
        sigprocmask(SIG_SETMASK, nullptr, &start_mask_);
        PrepareSignals();
        PointLibraryAt(agent_);
        trinit(agent_.Path(kTrace).c_str(), 0x10000, 5);
        ptl_set_msglist();
    }

    ~UnitTest() override {
        ptl_file_cntl(0, 0xff, nullptr);
        unlock();
        ClearLibrary();
        trc_name = path_name = nullptr;
        // Ignoring a signal for a moment drops one that is still pending.
        for (const int number : {SIGINT, SIGHUP, SIGTERM, SIGALRM, SIGUSR1, SIGCHLD, SIGPIPE}) {
            signal(number, SIG_IGN);
            signal(number, SIG_DFL);
        }
        sigprocmask(SIG_SETMASK, &start_mask_, nullptr);
    }

    // What came into the trace-detail log, and what went through outtrace, since the last call.
    std::string TakeLog() const {
        FlushLogBuffers();
        const std::string lines = Join(agent_.Log());
        agent_.Remove("log/pat_trc0.log");
        return lines;
    }
    std::string TakePartsTrace() const {
        const std::string mark = "[for parts], ";
        std::string lines;
        for (const std::string& line : agent_.Trace()) {
            if (line.rfind(mark, 0) == 0) lines += line.substr(mark.size()) + "\n";
        }
        agent_.Remove(kTrace);
        return lines;
    }

    sigset_t start_mask_;
};

}  // namespace patrol_test
