#include "process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace patrol_test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

void OpenAs(int wanted, const char* path, int flags) {
    const int fd = open(path, flags, 0600);
    if (fd < 0) _exit(126);
    if (fd == wanted) return;
    dup2(fd, wanted);
    close(fd);
}

}  // namespace

Process::Process(const std::string& program, const std::vector<std::string>& words, const Env& env,
                 const std::string& output, const Launch& launch)
    : output_(output), deadline_(launch.deadline) {
    std::vector<std::string> arguments = words;
    std::vector<std::string> variables;
    for (const auto& [name, value] : env) {
        if (value) variables.push_back(name + "=" + *value);
    }
    const std::vector<char*> argv = Pointers(arguments);
    const std::vector<char*> envp = Pointers(variables);
    const std::string out = output + ".out";
    const std::string err = output + ".err";
    pid_ = fork();
    if (pid_ == 0) {
        setpgid(0, 0);
        close_range(3, ~0U, 0);  // what a runner of the tests has left open
        OpenAs(STDIN_FILENO, "/dev/null", O_RDONLY);
        OpenAs(STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND);
        OpenAs(STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND);
        if (launch.in_child) launch.in_child();
        execve(program.c_str(), argv.data(), envp.data());
        _exit(127);
    }
    if (pid_ > 0) setpgid(pid_, pid_);
    EXPECT_GT(pid_, 0) << "fork failed";
}

Process::~Process() {
    if (!ended_) Kill();
}

void Process::Kill() {
    if (pid_ <= 0) return;
    kill(-pid_, SIGKILL);
    waitpid(pid_, &wait_status_, 0);
    ended_ = true;
}

void Process::Signal(int number) const {
    if (pid_ > 0 && !ended_) kill(pid_, number);
}

Result Process::Wait() {
    if (pid_ > 0 && !ended_) {
        ended_ =
            Eventually([this] { return waitpid(pid_, &wait_status_, WNOHANG) == pid_; }, deadline_);
        if (!ended_) {
            ADD_FAILURE() << "still running after " << deadline_.count() << " s";
            Kill();
        }
    }
    Result result;
    if (pid_ <= 0) return result;
    result.status = WIFEXITED(wait_status_) ? WEXITSTATUS(wait_status_) : -WTERMSIG(wait_status_);
    result.out = ReadFile(output_ + ".out");
    result.err = ReadFile(output_ + ".err");
    if (result.err.find("Sanitizer") != std::string::npos ||
        result.err.find("runtime error:") != std::string::npos) {
        ADD_FAILURE() << result.err;
    }
    return result;
}

std::string ReadFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool Eventually(const std::function<bool()>& condition, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace patrol_test
