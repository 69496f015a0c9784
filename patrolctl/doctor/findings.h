// What the doctor finds.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "model/files.h"

namespace patrolctl {

enum class Grade { kNote, kWarning, kError };

struct Diagnosis {
    Grade grade = Grade::kNote;
    std::string file;  // empty where it is about none
    int line = 0;      // 0 where it is about no line of it
    std::string text;
};

// Collects findings about one file after the other.
class Findings {
 public:
    // What follows is about this file; empty: about none.
    void About(std::string file) { file_ = std::move(file); }

    void Note(int line, std::string text) { Add(Grade::kNote, line, std::move(text)); }
    void Warn(int line, std::string text) { Add(Grade::kWarning, line, std::move(text)); }
    void Fail(int line, std::string text) { Add(Grade::kError, line, std::move(text)); }

    // The file is missing, which is so bad, or cannot be read, which is a warning at least.
    void Absent(Grade missing, const std::string& then) {
        const std::string fault = WhyUnreadable(file_);
        Add(fault.empty() ? missing : std::max(missing, Grade::kWarning), 0,
            (fault.empty() ? "is missing" : fault) + ": " + then);
    }

    const std::vector<Diagnosis>& list() const { return list_; }

 private:
    void Add(Grade grade, int line, std::string text) {
        list_.push_back({grade, file_, line, std::move(text)});
    }

    std::string file_;
    std::vector<Diagnosis> list_;
};

}  // namespace patrolctl
