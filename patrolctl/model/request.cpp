#include "model/request.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/paths.h"
#include "sys/replace_file.h"

namespace patrolctl {
namespace {

// Behind the name of a file that was moved aside, and of the note that there was none.
constexpr char kAside[] = ".patrolctl";
constexpr char kNone[] = ".patrolctl-none";

bool Stands(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

// Moves the file aside, or notes that there is none. A link moves as a link.
bool PutAside(const std::string& path) {
    if (std::rename(path.c_str(), (path + kAside).c_str()) == 0) return true;
    if (errno != ENOENT) return false;
    return patrol::Descriptor(
               open((path + kNone).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600))
        .ok();
}

void PutBack(const std::string& path) {
    if (std::rename((path + kAside).c_str(), path.c_str()) != 0 && Stands(path + kNone)) {
        unlink(path.c_str());
    }
    unlink((path + kNone).c_str());
}

std::string Failure(const std::string& path) {
    return path + " cannot be changed: " + std::strerror(errno);
}

std::string Text(const RequestSettings& settings) {
    const auto section = [](const char* name, bool on) {
        return std::string("[") + name + "]\n" + (on ? "on\n" : "off\n");
    };
    return section("cpu", settings.cpu) + section("mem", settings.memory) +
           section("hdd", settings.disks) + "[level]\n" + std::to_string(settings.level) +
           "\n[time]\n" + std::to_string(settings.seconds) + "\n";
}

}  // namespace

Request::Request(const Places& places)
    : settings_path_(patrol::env_path2.view()),
      schedule_path_(patrol::sche_path2.view()),
      lock_path_(places.data + "/run.lock") {}

Request::~Request() {
    if (!lock_.ok()) return;
    PutBack(settings_path_);
    PutBack(schedule_path_);
}

bool Request::Lock(bool wait) {
    patrol::Descriptor file(
        open(lock_path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.ok() || flock(file.get(), wait ? LOCK_EX : LOCK_EX | LOCK_NB) != 0) return false;
    lock_ = std::move(file);
    return true;
}

std::string Request::Place(const RequestSettings& settings) {
    for (const std::string& path : {settings_path_, schedule_path_}) {
        PutBack(path);
        if (!PutAside(path)) return Failure(path);
    }
    patrol::FileReplacement file(settings_path_.c_str());
    return file.Write(Text(settings)) && file.Commit() ? "" : Failure(settings_path_);
}

void Request::PutSettingsBack() { PutBack(settings_path_); }

bool HasLeftAside() {
    for (const patrol::Path& file : {patrol::env_path2, patrol::sche_path2}) {
        const std::string path(file.view());
        if (Stands(path + kAside) || Stands(path + kNone)) return true;
    }
    return false;
}

}  // namespace patrolctl
