// The command line of a test program.
//
// Options come in any order, each as a word that begins with "-" or "/" (both are in use for the
// same option), most of them followed by their value. Nothing is optional about their form: a
// word that is no option of the program, a missing value or a value that does not read whole is
// refused by name, because a test that ran with other parameters than it was asked for would
// report a result that nobody meant.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace testprog {

struct Option {
    std::string word;  // without its "-" or "/"
    bool has_value;
    std::function<bool(const std::string& value)> take;  // false refuses the value
};

// An option that stores its value as it stands (not empty).
Option TextOption(std::string word, std::string* target);
// A number, decimal or hexadecimal with "0x", from `least` to `most`.
Option NumberOption(std::string word, uint64_t* target, uint64_t least, uint64_t most);
// An option without a value; sets the target.
Option SwitchOption(std::string word, bool* target);

// What every test program takes.
struct CommonOptions {
    std::string device;        // -dev, the device under test
    std::string pattern;       // -tp, which tests to run
    uint64_t level = 0;        // -lv
    uint64_t log_kib = 512;    // -log, size at which the program's own log is rotated
    uint64_t generations = 4;  // -gen, how many of them are kept; 0 of either keeps no log
    uint64_t runtime = 0;      // /runtime, seconds; 0 is one round
    uint64_t wait_usec = 0;    // -waitusec and -waitsec: the pause after each step
    uint64_t wait_sec = 0;
    std::optional<uint64_t> seed;    // -seed, where the test draws its choices from
    std::optional<uint64_t> budget;  // -budget, seconds that a round takes where it is by time
    bool trap = false;               // -dbg_trap: what is spoilt raises a signal
    bool patrol = false;             // -log or -gen was given: only patrol runs give them
};

// The options that fill `common`; the caller adds its own to them.
std::vector<Option> CommonOptionTable(CommonOptions* common);

// Reads the words after the program's name. Returns an empty text, or what is wrong in one line;
// the options that were right are taken in either case.
std::string ParseOptions(int argc, const char* const* argv, const std::vector<Option>& options);

// A whole unsigned number, decimal or hexadecimal with "0x"; nothing when it is none or does not
// fit.
std::optional<uint64_t> ParseNumber(std::string_view text);

// The parts of a list joined by "+", in lower case.
std::vector<std::string> SplitList(std::string_view list);

}  // namespace testprog
