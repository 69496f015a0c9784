// What the patrol and the padiag launchers have in common.
#pragma once

#include <functional>
#include <string>

#include "base/text.h"
#include "sys/profile.h"

namespace patrol {

// Whether a flag is on: its value does not begin with "OFF". A missing one is off.
bool IsOn(const ProfileReader& profile, const char* section, const char* key);

// A processor or memory test to be launched.
struct SingleTest {
    const char* caller;  // the routine to trace under
    int kind;
    const char* due_key;            // of the kind's Schedule section
    std::function<bool()> prepare;  // once it is due: false where it cannot be tested after all
    std::function<std::string(bool* error_mode)> command;  // and whether it is to fail
    std::function<int(const char* command)> start;         // 0 or -1
};

// 1 when the test was started, with its clock running; 0 when it is not due by `schedule`; -1 when
// it could not be started (traced).
int LaunchSingle(const SingleTest& test, const ProfileReader& schedule);

// "ErrorMode" or "NormalMode".
const char* ModeWord(bool error_mode);

// The name of a device, as long as a test program can be handed one.
Text<513> DeviceValue(const ProfileReader& from, const char* section, const char* key,
                      const char* default_value);

// Clears the disk table for the disks of `schedule` and calls `launch` for each: 1 started, 0 not
// due, -1 failed. Returns the result of the last disk that was tried, 0 when there was none, -1
// when the table cannot be allocated (traced under `caller`).
int LaunchDisks(const char* caller, const ProfileReader& schedule,
                const std::function<int(int number)>& launch);

// Completes the table entry of the disk just started and starts its clock. Returns its index.
int EnterDisk(const ProfileReader& schedule, const char* section, int number);

}  // namespace patrol
