// Writes to a profile.
#pragma once

#include <list>
#include <optional>
#include <string>

#include "sys/profile_lines.h"
#include "sys/replace_file.h"

namespace patrol {

// Many writes to one profile, each by the rules of WritePrivateProfileString, put in place
// together. "<path>.old" then holds what the file would have held before the last of them.
class ProfileWriter {
 public:
    // Reads the file; where that fails all writes go nowhere. Until this writer goes, no other
    // process changes it: see DataLock.
    explicit ProfileWriter(const char* path);

    void Write(const char* section, const char* key, const char* value);

    // Puts the writes, if there are any, in place. Returns false when that, or reading the file,
    // failed; the file is then as it was, unless the last step alone failed, which is to make its
    // place outlast a power cut. A "<path>.old" that cannot be had does not keep the writes out.
    bool Save();

    // Save for a change that nobody else would miss: a failure is traced under `caller` and told to
    // the agent by one event.
    void SaveOrReport(const char* caller);

    // What failed, once something has.
    const FailedCall& failure() const { return failure_; }

 private:
    struct Entry {
        std::string section;  // pattern
        std::string key;      // pattern
        std::string line;
    };
    using Lines = std::list<std::string>;

    bool Loaded() const { return failure_.call == nullptr; }
    void Apply(const Entry& entry);
    void Insert(Lines::iterator at, const std::string& line);
    std::string Join() const;

    DataLock lock_;
    std::string path_;
    FailedCall failure_;
    int writes_ = 0;
    // The last write, held back so that the state before it can be kept.
    std::optional<Entry> pending_;
    Lines lines_;  // with their line feeds, cut at 511 characters
    HeaderIndex<Lines::iterator> headers_;
};

// Makes `kept_path`, a name in the same directory, hold what the profile holds now. Returns false,
// with `kept_path` as it was, when that fails.
bool KeepProfileAs(const char* path, const std::string& kept_path);

}  // namespace patrol
