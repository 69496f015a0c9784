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

}  // namespace

Process::Process(const std::string& program, std::vector<std::string> words, const Env& env,
                 const std::string& output, const Launch& launch)
    : output_(output), deadline_(launch.deadline) {
    std::vector<std::string> variables;
    for (const auto& [name, value] : env) {
        if (value) variables.push_back(name + "=" + *value);
    }
    const std::vector<char*> argv = Pointers(words), envp = Pointers(variables);
    pid_ = fork();
    if (pid_ == 0) {
        setpgid(0, 0);
        close_range(0, ~0U, 0);  // also what a runner of the tests has left open
        open("/dev/null", O_RDONLY);
        for (const char* end : {".out", ".err"}) {
            open((output + end).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        }
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
    if (pid_ <= 0) return {};
    const auto ends = [this] { return waitpid(pid_, &wait_status_, WNOHANG) == pid_; };
    ended_ = ended_ || Eventually(ends, deadline_);
    if (!ended_) {
        ADD_FAILURE() << "still running after " << deadline_.count() << " s";
        Kill();
    }
    const int status =
        WIFEXITED(wait_status_) ? WEXITSTATUS(wait_status_) : -WTERMSIG(wait_status_);
    Result result = {status, ReadFile(output_ + ".out"), ReadFile(output_ + ".err")};
    for (const char* report : {"Sanitizer", "runtime error:"}) {
        EXPECT_EQ(result.err.find(report), std::string::npos) << result.err;
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
