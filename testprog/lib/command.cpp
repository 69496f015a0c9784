#include "lib/command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "lib/run.h"

namespace testprog {

namespace {

// More than a pipe holds: what comes after these is from another process.
constexpr int kMostPieces = 64;
constexpr int kMostDescriptors = 1024;
// How long a wait for output may keep from looking for the command's end.
constexpr int kLookMilliseconds = 50;

// What the controller left open besides 0 to 2 is not for the command: others wait for its end.
void CloseAtExec() {
    for (int fd = 3; fd < kMostDescriptors; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        if (flags >= 0) fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
    }
}

// Spawns with the pipe's write end as output; returns an error number.
int Spawn(const std::vector<std::string>& words, int output, pid_t* pid) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    const int error =
        posix_spawnp(pid, words[0].c_str(), &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

std::set<pid_t> Children() {
    const std::string self = std::to_string(getpid());
    std::ifstream list("/proc/self/task/" + self + "/children");
    return {std::istream_iterator<pid_t>(list), {}};
}

// Ends the children that came after `known`, and theirs, which then come to this process; for a
// second at the most.
void EndOrphans(const std::set<pid_t>& known) {
    bool any = true;
    for (int left = 100; any && left > 0; --left) {
        any = false;
        for (const pid_t child : Children()) {
            if (known.count(child) != 0) continue;
            any = true;
            kill(child, SIGKILL);
            waitpid(child, nullptr, WNOHANG);
        }
        if (any) poll(nullptr, 0, 10);
    }
}

}  // namespace

Command::~Command() {
    Signal(SIGKILL);
    // One that hangs in the kernel is left to whoever inherits it.
    for (int left = 20; !HasEnded() && left > 0; --left) poll(nullptr, 0, kLookMilliseconds);
}

std::string Command::Start(const std::vector<std::string>& words) {
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::string("no pipe: ") + std::strerror(errno);
    const Descriptor write_end(ends[1]);
    output_.fd = ends[0];
    fcntl(output_.fd, F_SETFL, O_NONBLOCK);
    CloseAtExec();
    signal(SIGCHLD, SIG_DFL);  // an end must wait to be fetched, whatever was inherited
    // Whoever leaves the command's group comes to this process when its parent ends.
    prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
    known_children_ = Children();
    const int error = Spawn(words, write_end.fd, &pid_);
    if (error == 0) return {};
    pid_ = -1;
    return "cannot run " + words[0] + ": " + std::strerror(error);
}

void Command::Signal(int number) const {
    if (pid_ > 0 && !end_) kill(-pid_, number);
}

bool Command::HasEnded() {
    if (end_ || pid_ < 0) return true;
    // Only looked at first: until it is fetched, its number stands for its group and no other.
    siginfo_t seen = {};
    if (waitid(P_PID, static_cast<id_t>(pid_), &seen, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        seen.si_pid == 0) {
        return false;
    }
    kill(-pid_, SIGKILL);  // what it left behind
    waitpid(pid_, nullptr, 0);
    EndOrphans(known_children_);
    end_ = {seen.si_code == CLD_EXITED, seen.si_status};
    return true;
}

void Command::Take(char c, const std::function<void(const std::string&)>& take) {
    if (c == '\b') {
        if (!line_.empty()) line_.pop_back();
    } else if (c == '\n' || c == '\r') {
        if (!line_.empty()) take(line_);
        line_.clear();
    } else if (static_cast<unsigned char>(c) > 31 && line_.size() < longest_line_) {
        line_ += c;
    }
}

bool Command::ReadSome(const std::function<void(const std::string&)>& take) {
    std::array<char, 4096> piece = {};
    const ssize_t got = read(output_.fd, piece.data(), piece.size());
    std::for_each(piece.begin(), piece.begin() + std::max<ssize_t>(got, 0),
                  [&](char c) { Take(c, take); });
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

bool Command::Listen(double seconds, const std::function<void(const std::string&)>& take) {
    const double limit = Now() + seconds;
    double left = seconds;
    while (left >= 0) {
        const bool ended = HasEnded();  // asked first: what it wrote is in the pipe by then
        pollfd output{output_.fd, POLLIN, 0};
        const int wait = ended ? 0 : std::min(kLookMilliseconds, static_cast<int>(left * 1000));
        // Without a descriptor that only waits.
        const bool ready = poll(&output, 1, wait) > 0;
        if (ready && !ReadSome(take)) {
            close(output_.fd);
            output_.fd = -1;
        }
        if (ended && (!ready || output_.fd < 0 || ++pieces_after_end_ > kMostPieces)) {
            Take('\n', take);
            return false;
        }
        left = limit - Now();
    }
    return true;
}

}  // namespace testprog
