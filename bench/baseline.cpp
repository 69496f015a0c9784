// What the controller is measured against: the least that does the same outside-visible work.
//
//   baseline loop LOG SIZE COUNT CHILD LAUNCH WAIT PROGRAM WORD...
//       Asks the agent's command; starts COUNT copies of the program at once, each with its output
//       on a pipe and CHILD trace lines on the way from fork to exec; drains and collects them one
//       after the other. LAUNCH lines are spread over the starts, WAIT lines over the waits.
//   baseline files LOG SIZE LINES READ REPLACED...
//       Appends trace lines, reads the file READ and replaces every other by a copy that outlasts a
//       power cut; one whose name ends in ".old", by a second name of the file without that.
//   baseline peak PROGRAM WORD...
//       Prints the peak memory of the program in bytes. What the system tells of a child counts its
//       parent up to the exec too, so this has to be a small one.
//
// LOG is the trace file, SIZE that of its lines.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

int Checked(int result, const char* what) {
    if (result < 0) throw std::runtime_error(what);
    return result;
}

void WriteAndClose(int file, const std::string& bytes) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    Checked(written == static_cast<ssize_t>(bytes.size()) && close(file) == 0 ? 0 : -1, "write");
}

// A trace as it must be kept: for every line looked at, rotated by size, opened, written, closed.
class Trace {
 public:
    Trace(const char* path, const char* size) : path_(path), line_(std::stoul(size) - 1, '.') {
        line_ += '\n';
    }

    void Append(long lines) const {
        constexpr off_t kMaxSize = 65536;
        for (long i = 0; i < lines; ++i) {
            struct stat status = {};
            if (stat(path_.c_str(), &status) == 0 && status.st_size > kMaxSize) Rotate();
            WriteAndClose(open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666),
                          line_);
        }
    }
    // The lines of step `i` of `count`.
    void AppendPart(long lines, long i, long count) const {
        Append(lines * (i + 1) / count - lines * i / count);
    }

 private:
    void Rotate() const {
        for (int i = 4; i >= 0; --i) {
            const std::string newer = path_ + "." + std::to_string(i);
            rename(newer.c_str(), (path_ + "." + std::to_string(i + 1)).c_str());
        }
        rename(path_.c_str(), (path_ + ".0").c_str());
    }

    std::string path_;
    std::string line_;
};

struct Child {
    pid_t pid;
    int output;
};

Child Start(char** words, const Trace& trace, long lines) {
    int ends[2];
    Checked(pipe2(ends, O_CLOEXEC), "pipe");
    const Child child = {Checked(fork(), "fork"), ends[0]};
    if (child.pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        trace.Append(lines);
        execv(words[0], words);
        _exit(127);
    }
    close(ends[1]);
    return child;
}

void Collect(const Child& child) {
    char drained[16384];
    while (Checked(static_cast<int>(read(child.output, drained, sizeof drained)), "read") > 0) {
    }
    close(child.output);
    int status = 0;
    Checked(waitpid(child.pid, &status, 0), "wait");
    if (status != 0) throw std::runtime_error("a program failed");
}

void Loop(const Trace& trace, char** words) {
    const long count = std::atol(words[0]), child_lines = std::atol(words[1]);
    const long launch_lines = std::atol(words[2]), wait_lines = std::atol(words[3]);
    std::string shell[] = {"/bin/sh", "-c", "$KVX_bin/get agent_status"};
    char* ask[] = {shell[0].data(), shell[1].data(), shell[2].data(), nullptr};
    Collect(Start(ask, trace, 0));
    std::vector<Child> children;
    for (long i = 0; i < count; ++i) {
        trace.AppendPart(launch_lines, i, count);
        children.push_back(Start(words + 4, trace, child_lines));
    }
    for (long i = 0; i < count; ++i) {
        Collect(children[static_cast<size_t>(i)]);
        trace.AppendPart(wait_lines, i, count);
    }
}

std::string Read(const char* path) {
    const int file = Checked(open(path, O_RDONLY | O_CLOEXEC), path);
    struct stat status = {};
    Checked(fstat(file, &status), path);
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    Checked(static_cast<int>(read(file, bytes.data(), bytes.size())), path);
    close(file);
    return bytes;
}

void Sync(const std::string& path) {
    const int file = Checked(open(path.c_str(), O_RDONLY | O_CLOEXEC), path.c_str());
    Checked(fsync(file), "fsync");
    close(file);
}

void Replace(const std::string& name) {
    constexpr size_t kEnd = 4;
    const size_t front = name.size() < kEnd ? 0 : name.size() - kEnd;
    const std::string fresh = name + ".new";
    if (name.substr(front) == ".old") {
        Checked(link(name.substr(0, front).c_str(), fresh.c_str()), "link");
    } else {
        WriteAndClose(open(fresh.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666),
                      Read(name.c_str()));
        Sync(fresh);
    }
    Checked(rename(fresh.c_str(), name.c_str()), "rename");
}

void Files(const Trace& trace, char** words) {
    trace.Append(std::atol(words[0]));
    Read(words[1]);
    std::string name;
    for (char** word = words + 2; *word != nullptr; ++word) {
        name = *word;
        Replace(name);
    }
    if (!name.empty()) Sync(name.substr(0, name.rfind('/')));
}

void Peak(char** words) {
    const pid_t pid = Checked(fork(), "fork");
    if (pid == 0) {
        execv(words[0], words);
        _exit(127);
    }
    int status = 0;
    rusage used = {};
    Checked(wait4(pid, &status, 0, &used), "wait");
    if (status != 0) throw std::runtime_error("the program failed");
    std::printf("%ld\n", used.ru_maxrss * 1024);
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string mode = argc > 3 ? argv[1] : "";
    if (mode == "loop") {
        Loop({argv[2], argv[3]}, argv + 4);
    } else if (mode == "files") {
        Files({argv[2], argv[3]}, argv + 4);
    } else if (mode == "peak") {
        Peak(argv + 2);
    } else {
        throw std::runtime_error("bad arguments");
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "baseline: %s\n", error.what());
    return 1;
}
