// Faults that the hardware tells by a signal.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace testprog {

// A signal that something under test has raised.
struct Trap {
    int signal;
    void* address;  // what was accessed, or the instruction
    pid_t sender;   // the other process that has sent it, which says little of the hardware; or 0
};

// Runs `work`. When that raises SIGBUS, SIGILL, SIGFPE or SIGSEGV, `work` is left at once and the
// signal returned. Nothing is destroyed that `work` has made: it must hold nothing that needs it
// (no text, no lock) while it touches what is under test. Outside of `work`, and in threads that
// have none, these signals end the program as ever, but for word of a bad page that was not used.
std::optional<Trap> Trapped(const std::function<void()>& work);

// Keeps these signals from the thread that makes it, as long as it lives, so that one that is sent
// to the process goes to a thread with work under way. Not to be combined with Trapped.
class TrapsElsewhere {
 public:
    TrapsElsewhere();
    ~TrapsElsewhere();
    TrapsElsewhere(const TrapsElsewhere&) = delete;
    TrapsElsewhere& operator=(const TrapsElsewhere&) = delete;

 private:
    sigset_t before_;
};

// The signal's name, as "SIGILL", and who has sent it.
std::string TrapName(const Trap& trap);

}  // namespace testprog
