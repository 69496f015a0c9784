#include "model/command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>

#include "base/file.h"

extern char** environ;

namespace patrolctl {
namespace {

using Clock = std::chrono::steady_clock;

// This process's environment with the variables of `places` on top.
std::vector<std::string> EnvironmentFor(const Places& places) {
    std::map<std::string, std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        if (equals != std::string::npos)
            variables[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& [name, value] : places.variables) variables[name] = value;
    std::vector<std::string> environment;
    environment.reserve(variables.size());
    for (const auto& [name, value] : variables) {
        environment.push_back(name);
        environment.back().append("=").append(value);
    }
    return environment;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// What posix_spawn is told, freed at the end.
class SpawnSettings {
 public:
    explicit SpawnSettings(const ChildOutput& child) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        Redirect(STDIN_FILENO, -1, O_RDONLY);
        Redirect(STDOUT_FILENO, child.output, O_WRONLY);
        Redirect(STDERR_FILENO, child.error, O_WRONLY);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (child.own_group) flags |= POSIX_SPAWN_SETPGROUP;
        posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
    void Redirect(int target, int fd, int flags) {
        if (fd >= 0) {
            posix_spawn_file_actions_adddup2(&actions_, fd, target);
        } else {
            posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", flags, 0);
        }
    }

    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

int Milliseconds(Clock::duration time) {
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

// Takes what comes until the other end is closed. False when the time is up first.
bool ReadAll(int fd, size_t limit, Clock::time_point deadline, std::string* output) {
    char piece[4096];
    for (;;) {
        pollfd source = {fd, POLLIN, 0};
        const int left = Milliseconds(deadline - Clock::now());
        if (left <= 0 || poll(&source, 1, left) == 0) return false;
        const ssize_t count = read(fd, piece, sizeof piece);
        if (count == 0) return true;
        if (count < 0 && errno != EINTR) return false;
        if (count < 0) continue;
        output->append(piece, std::min(static_cast<size_t>(count), limit - output->size()));
    }
}

// Waits for the end of a child. False when the time is up first.
bool EndsInTime(pid_t pid, Clock::time_point deadline) {
    constexpr timespec kPause = {0, 2'000'000};
    while (waitpid(pid, nullptr, WNOHANG) == 0) {
        if (Clock::now() >= deadline) return false;
        nanosleep(&kPause, nullptr);
    }
    return true;
}

}  // namespace

pid_t StartProgram(const std::vector<std::string>& words, const Places& places,
                   const ChildOutput& child) {
    const SpawnSettings settings(child);
    const std::vector<std::string> environment = EnvironmentFor(places);
    pid_t pid = -1;
    errno = posix_spawnp(&pid, words[0].c_str(), settings.actions(), settings.attributes(),
                         Pointers(words).data(), Pointers(environment).data());
    return errno == 0 ? pid : -1;
}

int WaitForProgram(pid_t pid) {
    int status = 0;
    pid_t found = 0;
    do {
        found = waitpid(pid, &status, 0);
    } while (found < 0 && errno == EINTR);
    return found < 0 ? -1 : status;
}

CommandResult RunCommand(const std::vector<std::string>& words, const Places& places, size_t limit,
                         int seconds) {
    CommandResult result;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return result;
    const patrol::Descriptor read_end(ends[0]);
    patrol::Descriptor write_end(ends[1]);
    ChildOutput child;
    child.output = write_end.get();
    child.own_group = true;
    const pid_t pid = StartProgram(words, places, child);
    write_end.Reset(-1);
    if (pid < 0) return result;
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    result.ended =
        ReadAll(read_end.get(), limit, deadline, &result.output) && EndsInTime(pid, deadline);
    if (result.ended) return result;
    kill(-pid, SIGKILL);
    WaitForProgram(pid);
    return result;
}

}  // namespace patrolctl
