#include "stepper.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>

namespace patrol_test {
namespace {

constexpr int kNone = -1;

// A call that may fail, which of its arguments is a path and which a descriptor, and how it fails.
struct Rule {
    std::string name;
    int path;
    int descriptor;
    std::vector<int> ways;
};

#ifdef __x86_64__
constexpr bool kKnownMachine = true;
constexpr size_t kNumberAt = offsetof(user, regs.orig_rax), kResultAt = offsetof(user, regs.rax);

const std::map<long, Rule> kRules = {
    {SYS_access, {"access", 0, kNone, {EIO}}},
    {SYS_rename, {"rename", 0, kNone, {ENOSPC}}},
    {SYS_link, {"link", 0, kNone, {ENOSPC}}},
    {SYS_unlink, {"unlink", 0, kNone, {EIO}}},
    {SYS_poll, {"poll", kNone, kNone, {EINTR, ENOMEM}}},
    {SYS_openat, {"open", 1, kNone, {EMFILE, EINTR, kNoDescriptors}}},
    {SYS_newfstatat, {"stat", 1, 0, {EIO}}},
    {SYS_fstat, {"stat", kNone, 0, {EIO}}},
    {SYS_fchmod, {"fchmod", kNone, 0, {EIO}}},
    {SYS_fsync, {"fsync", kNone, 0, {EIO}}},
    {SYS_flock, {"flock", kNone, 0, {EIO, EINTR}}},
    {SYS_read, {"read", kNone, 0, {EIO, EINTR}}},
    {SYS_write, {"write", kNone, 0, {ENOSPC, EINTR, kNoSpace}}},
    {SYS_close, {"close", kNone, 0, {EIO}}},
    {SYS_pipe2, {"pipe", kNone, kNone, {EMFILE, kNoDescriptors}}},
    {SYS_clone, {"fork", kNone, kNone, {EAGAIN}}},
    {SYS_ppoll, {"poll", kNone, kNone, {EINTR, ENOMEM}}},
    {SYS_wait4, {"wait", kNone, kNone, {EINTR}}},
    {SYS_mmap, {"memory", kNone, kNone, {ENOMEM, kNoMemory}}},
    {SYS_brk, {"memory", kNone, kNone, {ENOMEM, kNoMemory}}},
};
#else
constexpr bool kKnownMachine = false;
constexpr size_t kNumberAt = 0, kResultAt = 0;
const std::map<long, Rule> kRules;
#endif

std::string Text(pid_t pid, unsigned long address) {
    std::string text;
    while (text.size() < 4096 && text.find('\0') == std::string::npos) {
        const long word = ptrace(PTRACE_PEEKDATA, pid, address + text.size(), nullptr);
        text.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    return text.substr(0, text.find('\0'));
}

std::string NameOf(const Rule& rule, pid_t pid, const uint64_t* arguments,
                   const std::string& root) {
    std::string file;
    if (rule.path != kNone) file = Text(pid, arguments[rule.path]);
    if (file.empty() && rule.descriptor != kNone) {
        const auto number = std::to_string(static_cast<int>(arguments[rule.descriptor]));
        std::error_code none;
        file =
            std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + number, none);
    }
    if (file.rfind(root + "/", 0) == 0) file.erase(0, root.size() + 1);
    if (file.rfind("pipe:", 0) == 0) file = "pipe";
    // The number of the process is another one in each run.
    const size_t own = file.rfind(".new." + std::to_string(pid));
    if (own != std::string::npos) file.replace(own + 5, std::string::npos, "self");
    return file.empty() ? rule.name : rule.name + " " + file;
}

// Lets so much be had of `resource` from now on. Returns how much it was.
rlim_t Limit(pid_t pid, __rlimit_resource resource, rlim_t size = 0) {
    rlimit limit = {};
    prlimit(pid, resource, nullptr, &limit);
    std::swap(limit.rlim_cur, size);
    prlimit(pid, resource, &limit, nullptr);
    return size;
}

void Finish(pid_t pid) {
    int status = 0;
    ptrace(PTRACE_SYSCALL, pid, nullptr, 0);
    waitpid(pid, &status, 0);
}

// The process stands at the entry of the call.
void StrikeAt(pid_t pid, long number, int how) {
    if (how == kKill) {
        // At its end a process would stop once more.
        ptrace(PTRACE_SETOPTIONS, pid, nullptr, 0);
        kill(pid, SIGKILL);
    } else if (how < 0) {
        Limit(pid, how == kNoMemory        ? RLIMIT_AS
                   : how == kNoDescriptors ? RLIMIT_NOFILE
                                           : RLIMIT_FSIZE);
    } else if (how == ENOMEM && (number == SYS_mmap || number == SYS_brk)) {
        // The two tell of it in different ways, so the system is left to do it.
        const rlim_t before = Limit(pid, RLIMIT_AS);
        Finish(pid);
        Limit(pid, RLIMIT_AS, before);
    } else {
        // A descriptor whose closing fails is gone all the same.
        if (number != SYS_close) ptrace(PTRACE_POKEUSER, pid, kNumberAt, -1L);
        Finish(pid);
        ptrace(PTRACE_POKEUSER, pid, kResultAt, static_cast<long>(-how));
    }
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
        const auto rule = kRules.find(number);
        if (!begun || rule == kRules.end()) continue;
        calls.push_back(NameOf(rule->second, pid, info.entry.args, root));
        if (calls.back() != strike.call || ++turn != strike.turn) continue;
        StrikeAt(pid, number, strike.how);
        break;
    }
    ptrace(PTRACE_DETACH, pid, nullptr, 0);
    return calls;
}

std::vector<int> WaysToFail(const std::string& call) {
    for (const auto& [number, rule] : kRules) {
        if (rule.name == call.substr(0, call.find(' '))) return rule.ways;
    }
    return {};
}

}  // namespace patrol_test
