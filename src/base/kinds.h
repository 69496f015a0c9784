// The three kinds of component that are diagnosed.
#pragma once

namespace patrol {

// These numbers travel: launch, wait, history and parts routines all take them.
enum : int { kKindCpu = 1, kKindMemory = 2, kKindHdd = 4 };

struct Kind {
    int code;
    const char* name;        // as the traces and reports say it
    const char* short_name;  // as the traces say it within a word, such as "ProcessIdCpu"
    const char* program;     // the test program, and the word in the histories
};

inline constexpr Kind kKinds[] = {
    {kKindCpu, "CPU", "Cpu", "cputest"},
    {kKindMemory, "Memory", "Mem", "memtest"},
    {kKindHdd, "HDD", "Hdd", "hddtest"},
};

// Returns the row of `code`; null for any other number.
const Kind* FindKind(int code);

// Who asks for a diagnosis; the numbers are those that the status and parts routines take.
enum : int { kRunPadiag = 1, kRunPatrol = 2 };

}  // namespace patrol
