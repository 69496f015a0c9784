// Composing the command line of a test program from its parameters.
#pragma once

#include "base/text.h"
#include "sys/profile.h"

namespace patrol {

// Items joined by single blanks, in at most 511 characters. An item is cut at 63 characters, a
// device item at 511.
class CommandLineBuilder {
 public:
    // The device, or that of the key "dev".
    void AddDevice(const char* device);
    void AddDevice(const ProfileReader& from, const char* section, const char* default_value);
    // The text, or that of `key`, by default `default_value`, behind `option` and a blank; alone
    // without an option (null).
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
