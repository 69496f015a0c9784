// Writes to a profile.
#pragma once

#include <list>
#include <optional>
#include <string>

#include "sys/profile_lines.h"

namespace patrol {

// Many writes to one profile, each by the rules of WritePrivateProfileString, put in place
// together. "<path>.old" then holds what the file would have held before the last of them.
class ProfileWriter {
 public:
    // Reads the file; where that fails all writes go nowhere.
    explicit ProfileWriter(const char* path);

    void Write(const char* section, const char* key, const char* value);

    // Puts the writes, if there are any, in place. False when that, or reading the file, failed;
    // the file is then as it was. A "<path>.old" that cannot be had does not keep the writes out.
    bool Save();

 private:
    struct Entry {
        std::string section;  // pattern
        std::string key;      // pattern
        std::string line;
    };
    using Lines = std::list<std::string>;

    void Apply(const Entry& entry);
    void Insert(Lines::iterator at, const std::string& line);
    std::string Join() const;

    std::string path_;
    bool loaded_ = false;
    int writes_ = 0;
    // The last write, held back so that the state before it can be kept.
    std::optional<Entry> pending_;
    Lines lines_;  // with their line feeds, cut at 511 characters
    HeaderIndex<Lines::iterator> headers_;
};

// Makes "<path>.old" hold what the profile holds now, for a rebuild to come. False, with
// "<path>.old" as it was, when that fails.
bool KeepProfileAsOld(const char* path);

}  // namespace patrol
