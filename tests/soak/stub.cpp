// The test programs and the agent's commands of the soak: does what PLAN_<device>, or PLAN_<own
// name>, says, letter by letter. A letter without a meaning here sends $KVX_data/send.<letter>.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

int main(int count, char** words) {
    const std::string data = std::string(getenv("KVX_data")) + "/";
    const bool test = count > 2 && strcmp(words[1], "-dev") == 0;
    const std::string name = test ? words[2] : strrchr(words[0], '/') + 1;
    for (int fd = 3; fd < 1024; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) continue;
        // A test in a patrol run has the pipe itself, too.
        struct stat own, other;
        fstat(STDOUT_FILENO, &own);
        fstat(fd, &other);
        if (test && S_ISFIFO(own.st_mode) && own.st_ino == other.st_ino) continue;
        std::ofstream(data + "foreign", std::ios::app) << name + " " + std::to_string(fd) + "\n";
    }
    const std::string ran = data + "ran." + std::to_string(getppid());
    if (test) std::ofstream(ran, std::ios::app) << name + "\n";
    const char* plan = getenv(("PLAN_" + name).c_str());
    for (; plan != nullptr && *plan != '\0'; ++plan) {
        if (*plan == 's') {  // slow
            usleep(20000);
        } else if (*plan == 'b') {  // leaves a child behind that holds the pipe for a while
            if (fork() == 0) return usleep(60000);
        } else if (*plan == 'c') {
            close_range(STDOUT_FILENO, ~0U, 0);
        } else if (*plan == 'i') {
            for (const int number : {SIGINT, SIGHUP, SIGTERM}) signal(number, SIG_IGN);
        } else if (*plan == 'h') {  // holds on, but outlives no test for long
            alarm(120);
            while (true) pause();
        } else if (*plan == 'k') {
            raise(SIGKILL);
        } else if (*plan == 'e') {  // ends with the digit that follows, or with something odd
            return plan[1] - '0';
        } else {
            std::cout << std::ifstream(data + "send." + *plan).rdbuf() << std::flush;
        }
    }
}
