// Which disks a new or reloaded schedule makes due first.
#pragma once

namespace patrol {

// Hands out the due flags of the disks in order. Only even disks fall due, as long as fewer than
// `limit` have; an even disk met when the limit is reached is noted as where the even group goes
// on. Later even disks replace the note, so it ends at the last one beyond the limit and those
// between are passed over. This is odd, but the schedule's readers count on it.
class DueRule {
 public:
    explicit DueRule(int limit) : limit_(limit) {}

    // Returns whether enabled disk `number` is due.
    bool Due(int number) {
        if (number % 2 != 0) return false;
        if (made_due_ < limit_) {
            ++made_due_;
            return true;
        }
        if (made_due_ == limit_) resume_ = number;
        return false;
    }

    // Returns the number of the noted disk; 0 when no even disk went beyond the limit.
    int resume() const { return resume_; }

 private:
    int limit_;
    int made_due_ = 0;
    int resume_ = 0;
};

}  // namespace patrol
