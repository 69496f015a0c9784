#include "stepper.h"

#include <elf.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

namespace patrol_test {
namespace {

constexpr int kNone = -1;

// A call that may fail, which of its arguments is a path and which a descriptor, and how it fails.
struct Rule {
    long number;
    std::string name;
    int path;
    int descriptor;
    std::vector<int> ways;
};

const std::vector<Rule>& Rules() {
    static const std::vector<Rule> rules = {
#ifdef SYS_open
        {SYS_access, "access", 0, kNone, {EIO}},
        {SYS_rename, "rename", 0, kNone, {ENOSPC}},
        {SYS_link, "link", 0, kNone, {ENOSPC}},
        {SYS_unlink, "unlink", 0, kNone, {EIO}},
        {SYS_poll, "poll", kNone, kNone, {EINTR, ENOMEM}},
#else
        {SYS_faccessat, "access", 1, kNone, {EIO}},
        {SYS_renameat, "rename", 1, kNone, {ENOSPC}},
        {SYS_linkat, "link", 1, kNone, {ENOSPC}},
        {SYS_unlinkat, "unlink", 1, kNone, {EIO}},
#endif
        {SYS_openat, "open", 1, kNone, {EMFILE, EINTR, kNoDescriptors}},
        {SYS_newfstatat, "stat", 1, 0, {EIO}},
        {SYS_fstat, "stat", kNone, 0, {EIO}},
        {SYS_fchmod, "fchmod", kNone, 0, {EIO}},
        {SYS_fsync, "fsync", kNone, 0, {EIO}},
        {SYS_flock, "flock", kNone, 0, {EIO, EINTR}},
        {SYS_read, "read", kNone, 0, {EIO, EINTR}},
        {SYS_write, "write", kNone, 0, {ENOSPC, EINTR, kNoSpace}},
        {SYS_close, "close", kNone, 0, {EIO}},
        {SYS_pipe2, "pipe", kNone, kNone, {EMFILE, kNoDescriptors}},
        {SYS_clone, "fork", kNone, kNone, {EAGAIN}},
        {SYS_ppoll, "poll", kNone, kNone, {EINTR, ENOMEM}},
        {SYS_wait4, "wait", kNone, kNone, {EINTR}},
        {SYS_mmap, "memory", kNone, kNone, {ENOMEM, kNoMemory}},
        {SYS_brk, "memory", kNone, kNone, {ENOMEM, kNoMemory}},
    };
    return rules;
}

std::string Text(pid_t pid, unsigned long address) {
    std::string text;
    while (text.size() < 4096 && text.find('\0') == std::string::npos) {
        const long word = ptrace(PTRACE_PEEKDATA, pid, address + text.size(), nullptr);
        text.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    return text.substr(0, text.find('\0'));
}

std::string FileOf(pid_t pid, unsigned long descriptor) {
    const auto number = std::to_string(static_cast<int>(descriptor));
    char name[4096];
    const ssize_t size =
        readlink(("/proc/" + std::to_string(pid) + "/fd/" + number).c_str(), name, sizeof name);
    return std::string(name, static_cast<size_t>(std::max<ssize_t>(size, 0)));
}

std::string NameOf(const Rule& rule, pid_t pid, const uint64_t* arguments,
                   const std::string& root) {
    std::string file;
    if (rule.path != kNone) file = Text(pid, arguments[rule.path]);
    if (file.empty() && rule.descriptor != kNone) file = FileOf(pid, arguments[rule.descriptor]);
    if (file.rfind(root + "/", 0) == 0) file.erase(0, root.size() + 1);
    if (file.rfind("pipe:", 0) == 0) file = "pipe";
    // The number of the process is another one in each run.
    const std::string own = ".new." + std::to_string(pid);
    if (const size_t at = file.rfind(own); at != std::string::npos) file.erase(at + 4);
    return file.empty() ? rule.name : rule.name + " " + file;
}

enum class Place { kNumber, kResult };

#if defined(__x86_64__)
constexpr bool kKnownMachine = true;
void Put(pid_t pid, Place place, long value) {
    ptrace(PTRACE_POKEUSER, pid,
           place == Place::kNumber ? offsetof(user, regs.orig_rax) : offsetof(user, regs.rax),
           value);
}
#elif defined(__aarch64__)
constexpr bool kKnownMachine = true;
void Put(pid_t pid, Place place, long value) {
    if (place == Place::kNumber) {
        int number = static_cast<int>(value);
        iovec part = {&number, sizeof number};
        ptrace(PTRACE_SETREGSET, pid, NT_ARM_SYSTEM_CALL, &part);
        return;
    }
    user_regs_struct registers = {};
    iovec part = {&registers, sizeof registers};
    ptrace(PTRACE_GETREGSET, pid, NT_PRSTATUS, &part);
    registers.regs[0] = static_cast<unsigned long long>(value);
    ptrace(PTRACE_SETREGSET, pid, NT_PRSTATUS, &part);
}
#else
constexpr bool kKnownMachine = false;
void Put(pid_t, Place, long) {}
#endif

// Lets so much be had of `resource` from now on. Returns how much it was.
rlim_t Limit(pid_t pid, __rlimit_resource resource, rlim_t size = 0) {
    rlimit limit = {};
    prlimit(pid, resource, nullptr, &limit);
    std::swap(limit.rlim_cur, size);
    prlimit(pid, resource, &limit, nullptr);
    return size;
}

// The process stands at the entry of the call.
void StrikeAt(pid_t pid, long number, int how) {
    switch (how) {
        case kKill:
            // At its end a process would stop once more.
            ptrace(PTRACE_SETOPTIONS, pid, nullptr, 0);
            kill(pid, SIGKILL);
            return;
        case kNoMemory:
            Limit(pid, RLIMIT_AS);
            return;
        case kNoDescriptors:
            Limit(pid, RLIMIT_NOFILE);
            return;
        case kNoSpace:
            Limit(pid, RLIMIT_FSIZE);
            return;
        default:
            break;
    }
    int status = 0;
    if (how == ENOMEM && (number == SYS_mmap || number == SYS_brk)) {
        // The two tell of it in different ways, so the system is left to do it.
        const rlim_t before = Limit(pid, RLIMIT_AS);
        ptrace(PTRACE_SYSCALL, pid, nullptr, 0);
        waitpid(pid, &status, 0);
        Limit(pid, RLIMIT_AS, before);
        return;
    }
    // A descriptor whose closing fails is gone all the same.
    if (number != SYS_close) Put(pid, Place::kNumber, -1);
    ptrace(PTRACE_SYSCALL, pid, nullptr, 0);
    waitpid(pid, &status, 0);
    Put(pid, Place::kResult, -how);
}

}  // namespace

void LetFollow() { ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }

Calls Follow(pid_t pid, const std::string& root, const Strike& strike) {
    Calls calls;
    siginfo_t first = {};
    waitid(P_PID, static_cast<id_t>(pid), &first, WEXITED | WSTOPPED | WNOWAIT);
    if (first.si_code != CLD_TRAPPED && first.si_code != CLD_STOPPED) return calls;
    int status = 0;
    waitpid(pid, &status, 0);
    ptrace(PTRACE_SETOPTIONS, pid, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL);
    bool begun = false;
    int turn = 0;
    for (int signal = 0; kKnownMachine;) {
        ptrace(PTRACE_SYSCALL, pid, nullptr, signal);
        signal = 0;
        if (waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return calls;
        if (status >> 8 == (SIGTRAP | PTRACE_EVENT_EXIT << 8)) break;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
            signal = WSTOPSIG(status);
            continue;
        }
        __ptrace_syscall_info info = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) <= 0) break;
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
        const auto number = static_cast<long>(info.entry.nr);
        // What main does first is to look whether it has a standard input.
        begun = begun || (number == SYS_fcntl && info.entry.args[0] == STDIN_FILENO);
        if (!begun) continue;
        const auto rule = std::find_if(Rules().begin(), Rules().end(), [&](const Rule& candidate) {
            return candidate.number == number;
        });
        if (rule == Rules().end()) continue;
        calls.push_back(NameOf(*rule, pid, info.entry.args, root));
        if (calls.back() != strike.call || ++turn != strike.turn) continue;
        StrikeAt(pid, number, strike.how);
        break;
    }
    ptrace(PTRACE_DETACH, pid, nullptr, 0);
    return calls;
}

std::vector<int> WaysToFail(const std::string& call) {
    const std::string name = call.substr(0, call.find(' '));
    const auto rule = std::find_if(Rules().begin(), Rules().end(),
                                   [&](const Rule& candidate) { return candidate.name == name; });
    return rule->ways;
}

}  // namespace patrol_test
