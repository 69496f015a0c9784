// What a person has asked for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/places.h"
#include "model/verdict.h"

namespace patrolctl {

// Exit statuses that hold for every command; some have others of their own.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUnreadable = 3;  // something could not be read; what could is shown
inline constexpr int kExitUsage = 64;      // the words were wrong

struct Options {
    Places places;
    bool json = false;
    bool colour = false;  // standard output is a terminal that may be coloured

    int passes = 4;                      // next
    std::string since;                   // history
    std::string component;               // history
    bool failed = false;                 // history
    std::string fault_id;                // faults clear; empty: list them
    long long max_age = kDefaultMaxAge;  // check
    bool npd = false;                    // check
    int level = 1;                       // run
    std::string kinds = "cpu,mem,hdd";   // run
    int seconds = 60;                    // run
    std::string controller;              // run: where patrol.exe is; empty: it is looked for
    std::string file;                    // validate: what to read; empty: standard input
    std::vector<std::string> words;      // validate: a command to read from; empty: none
    std::string output;                  // report
};

using Command = int (*)(const Options& options);

// Takes the words apart, and says what is wrong with them on standard error. Returns the command to
// run with `options`, or null with `*status` set where there is nothing to run.
Command ParseCommandLine(int count, char** words, Options* options, int* status);

}  // namespace patrolctl
