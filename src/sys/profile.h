// Profile (INI) files: sections of key=value lines.
//
// Names are case-sensitive; there is no escaping, no inline comment, no continuation. A section is
// opened by the first header line that contains "[name]" anywhere, and ends at the next header
// line. The last of several lines for one key in it counts. Readers drop every CR and the white
// space at both ends of a line and pass over lines that begin with ";"; "key = value" with a blank
// before the "=" is not an entry. Reading and writing rules differ a little, and files depend on
// both.
//
// No operation reports an error: what cannot be read yields the default, what cannot be written
// leaves the file as it was. Only regular files are profiles.
//
// Each of these calls reads the whole file. ProfileReader and ProfileWriter serve many keys at the
// price of one.
#pragma once

#include "sys/profile_reader.h"
#include "sys/profile_writer.h"

namespace patrol {

// Stores the value of `key`, or `default_value` where there is none (null: nothing), in `result`,
// which must hold size + 1 bytes: a value of exactly `size` characters is copied whole; a longer
// one is cut to size - 1 characters and counted as one less than that. Returns the length so
// counted. A key with an empty value gives an empty result and 0. A null section asks for the
// section names.
int GetPrivateProfileString(const char* section, const char* key, const char* default_value,
                            char* result, int size, const char* path);

// Returns the decimal number at the start of the value, clamped to an int; `default_value` where
// there is no key or no number.
int GetPrivateProfileInt(const char* section, const char* key, int default_value, const char* path);

// Stores the section names, each ended by NUL, in `size` bytes; a name that does not fit ends the
// list. Returns the offset just past the last name.
int GetPrivateProfileSectionNames(char* result, int size, const char* path);

// Replaces the value of `key`, or adds the line at the end of its section; where the section does
// not exist the bare line goes to the end of the file, into whatever section stands there: callers
// create sections through the builders alone. A missing file is not created. What the file held
// before stays as "<path>.old". Null or empty names or values write nothing.
void WritePrivateProfileString(const char* section, const char* key, const char* value,
                               const char* path);

}  // namespace patrol
