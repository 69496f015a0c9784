// Progress of several things at once.
#pragma once

#include <string>
#include <vector>

namespace patrolctl {

struct Bar {
    std::string name;   // harmless already
    double done = 0;    // 0 to 1
    std::string state;  // "waiting", "24 of 60 s", "ended", ...
};

// On a terminal a bar each, drawn over the last ones; elsewhere a plain line whenever a quarter
// more is done or the state turns to another word.
class Bars {
 public:
    Bars();

    void Show(const std::vector<Bar>& bars);

 private:
    void Draw(const std::vector<Bar>& bars);
    void Tell(const std::vector<Bar>& bars);

    bool terminal_;
    size_t drawn_ = 0;               // lines on the terminal
    std::vector<std::string> told_;  // what was last said of each
};

}  // namespace patrolctl
