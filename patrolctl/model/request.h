// A person's request for a diagnosis, put in the place of the administrator's and taken out again.
#pragma once

#include <string>

#include "base/file.h"
#include "model/places.h"

namespace patrolctl {

// What is to be diagnosed, and how.
struct RequestSettings {
    int level = 1;
    int seconds = 60;
    bool cpu = true;
    bool memory = true;
    bool disks = true;
};

// The two files that decide what an on-request run does are moved aside, and back at the end. What
// a killed process has left aside is put back by the next one.
class Request {
 public:
    explicit Request(const Places& places);
    // Puts everything back.
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // Takes the lock of all that runs the controller; with `wait` for as long as it takes, or until
    // a signal comes. False with errno set.
    bool Lock(bool wait);

    // Puts the request in place of "padiag.ini", and the old schedule of requests out of the way.
    // Empty, or a sentence that says what failed. Needs the lock.
    std::string Place(const RequestSettings& settings);

    // Puts "padiag.ini" back: once the schedule is made it is needed no more.
    void PutSettingsBack();

 private:
    std::string settings_path_;
    std::string schedule_path_;
    std::string lock_path_;
    patrol::Descriptor lock_;
};

// Whether a killed run has left something aside in the data directory.
bool HasLeftAside();

}  // namespace patrolctl
