// The controller's part command, "parts set REPORT": enters the report into the fault store, lays
// it out for the programs of parts.d, and says so in the system log.

#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "fault_store.h"
#include "report.h"
#include "sys/replace_file.h"
#include "text.h"

namespace {

// What the controller makes of an exit status.
constexpr int kTaken = 0;
constexpr int kGiveUp = 1;  // the report stays where it is
constexpr int kBusy = 2;    // runs it again, up to six times in all
constexpr int kOnceMore = 4;

// What is longer is cut. In the store control characters grow to six times their size, and readers
// take 4 MiB.
constexpr size_t kMaxReport = 512 << 10;

int Fail(int status, const std::string& sentence) {
    std::fprintf(stderr, "parts: %s\n", sentence.c_str());
    syslog(LOG_ERR, "%s", sentence.c_str());
    return status;
}

// Lays the report out for "hooks", under a name that no other one has. A report that cannot be
// laid out is in the store all the same, so this is no failure of the command.
void LayOut(const std::string& data, const std::string& id, const std::string& text) {
    const std::string outbox = data + "/outbox";
    mkdir(outbox.c_str(), 0750);
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::string name = id + "@" + std::to_string(now.tv_sec) + "." +
                             std::to_string(now.tv_nsec) + "." + std::to_string(getpid());
    patrol::FileReplacement file((outbox + "/" + name).c_str());
    if (!file.Write(text) || !file.Commit() || !patrol::SyncDirectory(outbox + "/" + name)) {
        Fail(kTaken, "the report on " + id + " cannot be handed on: " + std::strerror(errno));
    }
}

// Has "hooks" hand on what has been laid out, where systemd is not there to start it for that.
void HandOn() {
    const char* root = std::getenv("PATROL_ROOT");
    const std::string booted = (root != nullptr ? root : "") + std::string("/run/systemd/system");
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self);
    if (access(booted.c_str(), F_OK) == 0 || length <= 0) return;
    std::string hooks(self, static_cast<size_t>(length));
    hooks.replace(hooks.rfind('/') + 1, std::string::npos, "hooks");
    const pid_t child = fork();
    if (child == 0) {
        execl(hooks.c_str(), hooks.c_str(), nullptr);
        _exit(127);
    }
    while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

int Set(const std::string& data, const std::string& path) {
    const auto text = agent::ReadRegularFile(path, kMaxReport);
    if (!text.has_value()) return Fail(kGiveUp, "cannot read " + path);
    const auto report = agent::ParseReport(path.substr(path.rfind('/') + 1), *text);
    if (!report.has_value()) return Fail(kGiveUp, path + " is no part report");
    const std::string serial = agent::SerialOf(data, report->device);
    const std::string id = agent::UnitId(*report, serial);
    long count = 0;
    switch (agent::Store(data, *report, serial, &count)) {
        case agent::Stored::kBusy:
            return Fail(kBusy, "another process has the fault store");
        case agent::Stored::kFailed:
            return Fail(kOnceMore, "cannot store the fault of " + id + ": " + std::strerror(errno));
        case agent::Stored::kDone:
            break;
    }
    LayOut(data, id, *text);
    syslog(LOG_ERR, "fault of %s (%s), report %ld: %s", id.c_str(),
           agent::Clean(report->fru).c_str(), count, agent::Clean(report->summary).c_str());
    HandOn();
    return kTaken;
}

}  // namespace

int main(int argc, char** argv) {
    umask(S_IWGRP | S_IRWXO);
    openlog("patrol-parts", LOG_PID, LOG_DAEMON);
    if (argc != 3 || std::strcmp(argv[1], "set") != 0) {
        std::fputs("usage: parts set REPORT\n", stderr);
        return kGiveUp;
    }
    const char* data = std::getenv("KVX_data");
    if (data == nullptr || *data == '\0') {
        return Fail(kGiveUp, "the environment variable KVX_data is not set");
    }
    return Set(data, argv[2]);
}
