// The settings of a command that is run as a test: "ext_NAME.ini".
//
// Lines "KEY=VALUE" in sections; ";" or "#" begins a comment line. For a device and a level each
// key is looked for in four sections, of which the first that has it counts:
//
//     [/dev/sda LEVEL 3]   [/dev/sda]   [LEVEL 3]   [TEST]
//
// Every key is also a value for the command line, as "{KEY}".
//
// A device may be a pattern as in a shell ("[/dev/nvme*]"); among sections of the same kind the
// first in the file counts.
#pragma once

#include <regex.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testprog {

// The values that hold for one device and level, by key; empty for a key that is not there.
class ExternalSettings {
 public:
    ExternalSettings(const std::string& text, const std::string& device, uint64_t level);
    const std::string& Text(const std::string& key) const;
    const std::map<std::string, std::string>& values() const { return values_; }
    // A number of seconds; nothing where it is none. `fallback` where the key is not there.
    std::optional<uint64_t> Seconds(const std::string& key, uint64_t fallback) const;

 private:
    std::map<std::string, std::string> values_;
};

// Exit statuses as "0 4 6-8", and "signal" for an end by any signal.
class Statuses {
 public:
    // Returns false where `text` is none of that.
    bool Parse(const std::string& text);
    bool Has(bool exited, int number) const;

 private:
    std::vector<std::pair<uint64_t, uint64_t>> ranges_;
    bool signal_ = false;
};

// An extended regular expression of POSIX, of at most 1000 characters. One that is empty matches
// nothing.
class Pattern {
 public:
    // Returns an empty text, or what is wrong with it.
    std::string Parse(const std::string& text);
    bool empty() const { return compiled_ == nullptr; }
    bool Matches(const std::string& line) const;
    // The number from 0 to 100 that the first parentheses match.
    std::optional<unsigned> Percent(const std::string& line) const;

 private:
    struct Free {
        void operator()(regex_t* pattern) const;
    };
    std::unique_ptr<regex_t, Free> compiled_;
};

// Cuts a command line into words at blanks, of which those between double quotes are part of a
// word, and then puts values in: "{device}" becomes values["device"], and "{{" a brace. Returns
// false, with `words` as they were, for a name without value, a quote or brace that does not end,
// or no word at all.
bool SplitWords(const std::string& line, const std::map<std::string, std::string>& values,
                std::vector<std::string>* words);

}  // namespace testprog
