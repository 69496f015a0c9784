#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/kinds.h"
#include "doctor/checks.h"
#include "model/request.h"
#include "state/history_line.h"

namespace patrolctl {
namespace {

// What every directory must be: there, and closed to others.
bool CheckDirectory(const char* variable, const std::string& path, const std::string& without,
                    Findings* findings) {
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
    const bool sticky = (status.st_mode & S_ISVTX) != 0;
    constexpr char kWarning[] = "others may write to this directory; the controller runs as root";
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        (sticky ? findings->Warn(0, kWarning) : findings->Fail(0, kWarning));
    }
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
    } else if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
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
    CheckDirectory("KVX_data", places.data, "nothing runs", findings);
    CheckDirectory("KVX_log", places.log, "nothing runs", findings);
    CheckDirectory("KVX_temp", places.temp, "no faulty part is reported", findings);
    if (CheckDirectory("KVX_bin", places.bin, "no pass will run", findings)) {
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
