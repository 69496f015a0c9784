#include "show/bars.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "show/escape.h"

namespace patrolctl {
namespace {

constexpr size_t kBarWidth = 24;

winsize TerminalSize() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        size.ws_col = 80;
        size.ws_row = 24;
    }
    return size;
}

int Percent(const Bar& bar) { return static_cast<int>(bar.done * 100); }

// One line of at most so many columns; names are plain ASCII where it has to be cut.
std::string Line(const Bar& bar, size_t name_width, size_t columns) {
    const auto filled = static_cast<size_t>(bar.done * static_cast<double>(kBarWidth));
    std::string line = bar.name + std::string(name_width - Columns(bar.name), ' ') + " [" +
                       std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3d %% ", Percent(bar));
    line += percent + bar.state;
    if (Columns(line) >= columns) line.resize(std::min(line.size(), columns - 1));
    return line;
}

bool IsTerminal() {
    const char* name = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && name != nullptr && std::string(name) != "dumb";
}

}  // namespace

Bars::Bars() : terminal_(IsTerminal()) {}

void Bars::Show(const std::vector<Bar>& bars) {
    terminal_ ? Draw(bars) : Tell(bars);
    std::fflush(stdout);
}

void Bars::Draw(const std::vector<Bar>& bars) {
    const winsize size = TerminalSize();
    size_t name_width = 0;
    for (const Bar& bar : bars) name_width = std::max(name_width, Columns(bar.name));
    // What has scrolled off the top cannot be drawn over.
    const size_t room = std::max<size_t>(size.ws_row, 3) - 2;
    const size_t shown = std::min(bars.size(), room);
    std::string text = drawn_ > 0 ? "\x1b[" + std::to_string(drawn_) + "A" : "";
    for (size_t i = 0; i < shown; ++i) {
        text += "\r\x1b[K" + Line(bars[i], name_width, size.ws_col) + "\n";
    }
    drawn_ = shown;
    if (shown < bars.size()) {
        text += "\r\x1b[K... and " + std::to_string(bars.size() - shown) + " more\n";
        ++drawn_;
    }
    // What else was typed or printed below goes.
    std::fputs((text + "\x1b[J").c_str(), stdout);
}

void Bars::Tell(const std::vector<Bar>& bars) {
    constexpr int kStep = 25;
    told_.resize(bars.size());
    for (size_t i = 0; i < bars.size(); ++i) {
        const int quarter = Percent(bars[i]) / kStep * kStep;
        // A state with numbers in it changes all the time.
        const bool counts = bars[i].state.find_first_of("0123456789") != std::string::npos;
        const std::string news = counts ? std::to_string(quarter) + " %" : bars[i].state;
        if (news == told_[i]) continue;
        told_[i] = news;
        std::printf("%s: %s\n", bars[i].name.c_str(), news.c_str());
    }
}

}  // namespace patrolctl
