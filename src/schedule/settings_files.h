// Reading the settings files that the agent's set-up screens write.
//
// A section line selects what the next line that is no comment and not empty gives; a section line
// need only begin with the section's name. A missing file is no error.
#pragma once

namespace patrol {

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
