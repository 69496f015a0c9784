// Reading the settings files that the agent's set-up screens write.
//
// A section line selects what the next line that is no comment and not empty gives; a section line
// need only begin with the section's name. A missing file is no error.
#pragma once

#include <cstdio>
#include <functional>

#include "base/settings.h"

namespace patrol {

// How the value of a setting is written.
enum class SettingForm {
    kSwitch,            // on where it begins with "ON"
    kSwitchEitherCase,  // or with "on"
    kTestName,          // the whole line
    kTimeout,           // seconds, held within 5 and 50
    kNumber,
};

// One setting: the section that names it, in brackets in the file, and where its value goes.
struct Setting {
    const char* section;
    SettingForm form;
    int* number;
    TestName* name = nullptr;
    const char* param_section = nullptr;  // of the test parameter file, for a test name
    const char* default_name = nullptr;
};

// The settings of a file.
struct SettingList {
    const Setting* begin() const { return first; }
    const Setting* end() const { return first + count; }

    const Setting* first;
    size_t count;
};
SettingList PatrolSettings();  // of "pat_env0.ini"
SettingList PadiagSettings();  // of "padiag.ini"

// What a line of a settings file is: it opens the section of a setting, is the value of one, or
// neither.
struct SettingLine {
    int number;  // from 1 on
    const char* text;
    const Setting* opens;
    const Setting* value_of;
};

// Takes each line of a settings file that is no comment and not empty.
void ScanSettings(SettingList settings, FILE* file,
                  const std::function<void(const SettingLine& line)>& take);

// Returns the number that a value which is no test name comes to.
int SettingNumber(SettingForm form, const char* text);

// Reads "pat_env0.ini" into the patrol settings, and copies each test name into "pat_new_para.ini".
// Time-outs are held within 5 and 50 seconds. Without the file the time-outs are 45, the test names
// the defaults, and the enable flags and the disk limit stay as they are.
void ReadEnvIni();

// Reads "padiag.ini" into the padiag settings. Without the file: nothing requested, level 1, 3600
// seconds.
void ReadPadiagIni();

// Ends `text` at its last line feed, then at its last carriage return. Null is left alone.
void StrNrDelete(char* text);

}  // namespace patrol
