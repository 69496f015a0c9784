#include "hdd/pace.h"

#include <algorithm>

namespace testprog {

namespace {

constexpr double kShareOfTime = 100;  // the reads take this part of it where others are busy
constexpr double kRare = 0.4;         // others that are seen less often count for less
constexpr double kWeight = 1.0 / 16;  // of one read in what the last ones tell
constexpr double kLongestRest = 5;
constexpr double kMuchSlower = 3;  // than the best
constexpr double kMostly = 0.5;    // single slow reads have many reasons
// The best goes down and up by small steps, down in larger ones, and so stays below all but a
// tenth of the reads: one that a cache has served moves it little, and it follows what the disk
// can do on its inner tracks.
constexpr double kStepDown = 0.98;
constexpr double kStepUp = 1.002;

}  // namespace

double Pace::RestAfter(double seconds, uint64_t blocks, bool others_busy) {
    const auto length = static_cast<double>(std::max<uint64_t>(blocks, 1));
    const double now = seconds / length;
    if (best_ == 0) best_ = now;
    const bool hindered = alike_ && now > kMuchSlower * best_;
    best_ *= now < best_ ? kStepDown : kStepUp;
    const auto note = [](double* share, bool seen) {
        *share += kWeight * ((seen ? 1 : 0) - *share);
    };
    note(&busy_, others_busy);
    note(&hindered_, hindered);
    const double guessed = hindered_ > kMostly ? hindered_ / 3 : 0;
    const double seen = std::max(busy_, guessed);
    const double share = seen * std::min(1.0, seen / kRare);
    // What the disk itself needs for the read is what the others have to wait for.
    const double needed = std::min(seconds, best_ * length);
    return std::clamp(needed * (kShareOfTime * share - 1), 0.0, kLongestRest);
}

}  // namespace testprog
