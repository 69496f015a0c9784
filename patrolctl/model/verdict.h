// How it all stands, in one word and one sentence.
#pragma once

#include <string>
#include <vector>

#include "model/state.h"

namespace patrolctl {

enum class Level { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };

// "ok", "warning", "critical", "unknown".
const char* LevelWord(Level level);

struct Finding {
    Level level = Level::kWarning;
    std::string text;
};

struct Verdict {
    Level level = Level::kOk;
    std::string sentence;
    std::vector<Finding> findings;  // the worst first
};

inline constexpr long long kDefaultMaxAge = 2LL * 86400;

// Judges the state: an open fault or an ERROR as the last result is critical, and goes before what
// could not be read, which is unknown. `max_age` is how many seconds an enabled component may be
// without a result.
Verdict Judge(const State& state, long long max_age);

}  // namespace patrolctl
