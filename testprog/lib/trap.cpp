#include "lib/trap.h"

#include <setjmp.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <new>

namespace testprog {

namespace {

struct Named {
    int signal;
    const char* name;
};
constexpr std::array<Named, 4> kSignals{
    {{SIGBUS, "SIGBUS"}, {SIGILL, "SIGILL"}, {SIGFPE, "SIGFPE"}, {SIGSEGV, "SIGSEGV"}}};
// Handlers run on a stack of their own: what is under test may be the one in use.
constexpr size_t kStackSize = 64 << 10;

// Where the innermost work under way is left to; nullptr outside of any.
thread_local sigjmp_buf* volatile way_out = nullptr;
thread_local Trap trapped;

void Leave(int number, siginfo_t* info, void*) {
    if (way_out == nullptr) {
        // Word of a page that has gone bad unused; whoever uses it is told again.
        if (number == SIGBUS && info->si_code == BUS_MCEERR_AO) return;
        signal(number, SIG_DFL);
        raise(number);  // comes when the handler has ended
        return;
    }
    const bool foreign = info->si_code <= 0 && info->si_pid != getpid();
    trapped = foreign ? Trap{number, nullptr, info->si_pid} : Trap{number, info->si_addr, 0};
    siglongjmp(*way_out, 1);
}

bool InstallHandlers() {
    struct sigaction action = {};
    action.sa_sigaction = Leave;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const Named& known : kSignals) sigaction(known.signal, &action, nullptr);
    return true;
}

// The thread's stack for handlers, as long as it lives; then the way out is what it was before.
class SignalStack {
 public:
    SignalStack() {
        stack_t stack = {};
        stack.ss_sp = room_.get();
        stack.ss_size = kStackSize;
        if (room_) sigaltstack(&stack, &before_);
    }
    ~SignalStack() {
        if (room_) sigaltstack(&before_, nullptr);
        way_out = outer_;
    }
    SignalStack(const SignalStack&) = delete;
    SignalStack& operator=(const SignalStack&) = delete;

 private:
    // Not on the stack in use, which may be limited to less.
    std::unique_ptr<char[]> room_{new (std::nothrow) char[kStackSize]};
    stack_t before_ = {};
    sigjmp_buf* const outer_ = way_out;
};

}  // namespace

std::optional<Trap> Trapped(const std::function<void()>& work) {
    static const bool installed = InstallHandlers();
    static_cast<void>(installed);
    const SignalStack stack;
    sigjmp_buf here;
    const bool left = sigsetjmp(here, 1) != 0;
    if (!left) {
        way_out = &here;
        work();
    }
    return left ? std::optional<Trap>(trapped) : std::nullopt;
}

TrapsElsewhere::TrapsElsewhere() {
    sigset_t held;
    sigemptyset(&held);
    for (const Named& known : kSignals) sigaddset(&held, known.signal);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
}

TrapsElsewhere::~TrapsElsewhere() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

std::string TrapName(const Trap& trap) {
    std::string name = "signal " + std::to_string(trap.signal);
    for (const Named& known : kSignals) {
        if (known.signal == trap.signal) name = known.name;
    }
    if (trap.sender != 0) name += " sent by process " + std::to_string(trap.sender);
    return name;
}

}  // namespace testprog
