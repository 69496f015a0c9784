// Which frames of the machine's memory have been tested, kept between the runs.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "lib/file.h"

namespace testprog {

// The file "memtest_frames": a page of text that says since when and how many, then one bit a
// frame. It is begun anew when a month is over, or the machine's memory has changed. A bit that was
// lost makes a frame be tested again, so the file is changed in place. Frames may lie far apart:
// what has no bit is a hole in the file.
class FrameMap {
 public:
    // Reads the map of `directory` and locks it as long as it lives; `stop` as for LockInTime.
    // `frames` is the number of frames that the machine has, `now` the time in seconds. Without a
    // directory, or where another process has the lock, the map is empty and is kept nowhere.
    FrameMap(const std::string& directory, uint64_t frames, int64_t now,
             const std::function<bool()>& stop);

    bool Tested(uint64_t frame) const;
    // How many of these have been tested.
    size_t CountTested(const std::vector<uint64_t>& frames) const;
    // Marks the frames as tested and saves that. Returns false where it cannot be saved.
    bool Mark(const std::vector<uint64_t>& frames);

    uint64_t tested() const { return tested_; }
    // "NN % of the memory tested since YYYY-MM-DD"
    std::string Summary() const;

 private:
    // Of the bits: what is read and written at once.
    using Piece = std::array<unsigned char, 4096>;

    void Load(int64_t now);
    void LoadPieces();
    bool SaveHeader() const;

    Descriptor file_;
    uint64_t frames_;
    int64_t since_;
    uint64_t tested_ = 0;
    std::map<uint64_t, Piece> pieces_;  // those with bits, by their numbers
};

}  // namespace testprog
