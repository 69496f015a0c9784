// Everything that the controller's files say, read once.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "model/faults.h"
#include "model/places.h"
#include "model/results.h"

namespace patrolctl {

// Of a component whose turn never comes, and of one whose turn comes later than was looked.
inline constexpr int kNoTurn = 0;
inline constexpr int kLateTurn = -1;

// What is diagnosed: the processors, the memory, or one disk.
struct Component {
    int kind = 0;        // of base/kinds.h
    std::string device;  // "CPU", "Memory" or the disk's name, as in the histories
    std::string serial;  // of a disk; empty where the schedule has none
    bool enabled = false;
    bool due = false;    // in the next pass
    int turn = kNoTurn;  // the pass that tests it next, 1 being the one that is due now
    // Of a disk: the address that its next test begins at (docs/test-programs.md), and its size in
    // blocks of 512 bytes where that can be had.
    uint64_t address = 0;
    std::optional<uint64_t> blocks;
    std::optional<double> ratio;  // of the disk that lies before the address, 0 to 1
    const Result* last = nullptr;
    std::vector<const Fault*> faults;
};

// How the last patrol pass ended, as far as the trace tells.
enum class PassEnd { kUnknown, kDone, kFailed, kKeptAway };

struct State {
    Places places;
    std::time_t now = 0;
    bool has_schedule = false;      // also where it cannot be seen whether there is one
    std::time_t schedule_time = 0;  // when the Schedule file was last written; 0: not known
    std::vector<Component> components;
    Results results;
    FaultStore faults;
    // Last results of what is not in the schedule, where there is none or it is not whole, so that
    // these may be of components all the same.
    std::vector<const Result*> unplaced;
    PassEnd last_pass = PassEnd::kUnknown;
    // What could not be read, or not be understood: a sentence each.
    std::vector<std::string> problems;
};

// Reads all of it. The pointers in a component point into the state, which is therefore not copied.
void ReadState(const Places& places, State* state);

// Reads the components out of the Schedule file alone.
void ReadSchedule(const Places& places, State* state);

}  // namespace patrolctl
