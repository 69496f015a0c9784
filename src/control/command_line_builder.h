// Composing the command line of a test program from its parameters.
#pragma once

#include "base/text.h"
#include "sys/profile.h"

namespace patrol {

// Joins items by single blanks, in at most 511 characters. An item is cut at 63 characters, a
// device item at 511.
class CommandLineBuilder {
 public:
    // Adds the device, or that of the key "dev".
    void AddDevice(const char* device);
    void AddDevice(const ProfileReader& from, const char* section, const char* default_value);
    // Add a value, or that of `key` (by default `default_value`), behind `option` and a blank. A
    // text without an option (null) stands alone.
    void AddText(const char* option, const ProfileReader& from, const char* section,
                 const char* key, const char* default_value);
    void AddText(const char* option, const char* text);
    void AddNumber(const char* option, const ProfileReader& from, const char* section,
                   const char* key, int default_value);
    void AddValue(const char* option, int value);
    void AddWord(const char* word);

    const char* c_str() const { return line_.c_str(); }

 private:
    void AddItem(const char* item);

    Text<512> line_;
    bool first_ = true;
};

}  // namespace patrol
