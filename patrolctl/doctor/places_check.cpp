#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/kinds.h"
#include "doctor/checks.h"
#include "model/files.h"
#include "model/request.h"
#include "state/history_line.h"

namespace patrolctl {
namespace {

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

// Looks at what lies above a directory: who may write there may put another one in its place.
void CheckParents(const std::string& path, Findings* findings) {
    for (size_t at = path.rfind('/'); at != std::string::npos && at > 0;
         at = path.rfind('/', at - 1)) {
        const std::string parent = path.substr(0, at);
        struct stat status = {};
        if (stat(parent.c_str(), &status) != 0) continue;
        if ((status.st_mode & kOthersWrite) == 0 || (status.st_mode & S_ISVTX) != 0) continue;
        findings->Fail(0, "others may write to " + parent + " above it, and put another one here");
    }
}

// What every directory must be: there, and closed to others; one that is `shared` may be open to
// them if they cannot take away what is not theirs.
bool CheckDirectory(const char* variable, const std::string& path, const std::string& without,
                    bool shared, Findings* findings) {
    findings->About(path);
    if (path.empty()) {
        findings->Fail(0, std::string(variable) + " is not set: " + without);
        return false;
    }
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        findings->Fail(0, std::string(variable) + " names it: " + std::strerror(errno));
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        findings->Fail(0, std::string(variable) + " names it, and it is no directory");
        return false;
    }
    const std::string closed = WhyClosed(path);
    if (!closed.empty()) {
        findings->Fail(0, closed);
        return false;
    }
    const bool open = (status.st_mode & kOthersWrite) != 0;
    if (open && shared && (status.st_mode & S_ISVTX) != 0) {
        findings->Note(0, "others may write to this directory, but not to what is there");
    } else if (open) {
        findings->Fail(0, "others may write to this directory; the controller runs as root");
    } else if (status.st_uid != 0 && status.st_uid != geteuid()) {
        findings->Fail(0, "this directory belongs to somebody else; the controller runs as root");
    }
    CheckParents(path, findings);
    return true;
}

// The agent's status command is run through the shell, as it stands.
void CheckShellText(const std::string& path, Findings* findings) {
    constexpr char kPlain[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+,:@%=-";
    const size_t at = path.find_first_not_of(kPlain);
    if (at == std::string::npos) return;
    const std::string what = path[at] == ' ' ? "a blank" : "\"" + path.substr(at, 1) + "\"";
    findings->Fail(0, "KVX_bin has " + what +
                          " in it, and the shell takes the path of \"get\" apart there: no pass "
                          "will run");
}

void CheckProgram(const std::string& path, const std::string& without, Findings* findings) {
    findings->About(path);
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        findings->Fail(0, "is missing: " + without);
    } else if (!S_ISREG(status.st_mode) || (status.st_mode & 0111) == 0) {
        findings->Fail(0, "is no program: " + without);
    } else if ((status.st_mode & kOthersWrite) != 0) {
        findings->Fail(0, "others may write to it; the controller runs it as root");
    }
}

void CheckPipe(const std::string& path, Findings* findings) {
    findings->About(path);
    struct stat status = {};
    if (path.empty()) return;
    if (stat(path.c_str(), &status) != 0) {
        findings->Warn(0, "there is no event pipe here: the agent hears nothing of passes");
    } else if (!S_ISFIFO(status.st_mode)) {
        findings->Fail(0, "KVX_PIPE names no named pipe: the agent hears nothing of passes");
    }
}

}  // namespace

void CheckPlaces(const Places& places, Findings* findings) {
    CheckDirectory("KVX_data", places.data, "nothing runs", false, findings);
    CheckDirectory("KVX_log", places.log, "nothing runs", false, findings);
    CheckDirectory("KVX_temp", places.temp, "no faulty part is reported", true, findings);
    if (!places.config.empty()) {
        CheckDirectory("KVX_config", places.config, "", false, findings);
    }
    if (CheckDirectory("KVX_bin", places.bin, "no pass will run", false, findings)) {
        CheckShellText(places.bin, findings);
        CheckProgram(places.bin + "/get", "no pass will run", findings);
        CheckProgram(places.bin + "/parts", "no faulty part is reported", findings);
        for (const patrol::Kind& kind : patrol::kKinds) {
            CheckProgram(places.bin + "/" + kind.program,
                         std::string("no test of kind ") + kind.name + " can be started", findings);
        }
    }
    CheckPipe(places.pipe, findings);
}

void CheckRemains(const Places& places, Findings* findings) {
    for (const char* name : {patrol::kPatrolHistory, patrol::kPadiagHistory}) {
        const std::string path = places.log + "/" + name;
        findings->About(path);
        struct stat status = {};
        if (stat(path.c_str(), &status) != 0 || status.st_size <= patrol::kMaxHistorySize) continue;
        findings->Warn(0, std::string("is full: of later results \"") + patrol::kAgedHistory +
                              "\" keeps the newest alone; move this file away");
    }
    findings->About(places.data);
    if (HasLeftAside()) {
        findings->Warn(0,
                       "a killed \"patrolctl run\" has left files \".patrolctl*\"; the next one "
                       "puts them back");
    }
}

}  // namespace patrolctl
