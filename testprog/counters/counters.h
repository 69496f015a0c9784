// What the hardware itself counts: errors that the kernel or a drive has seen, whether or not a
// test met them. With error-correcting memory a test sees no single-bit fault; these counts do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib/run.h"

namespace testprog {

struct Counter {
    enum class Kind {
        kCorrected,    // of errors that something made good, and of other warnings
        kUncorrected,  // of errors that nothing made good
        kFailing       // no count: not 0 while the part says of itself that it is failing
    };
    Kind kind;
    std::string part;  // as people know it: "DIMM_A1 (mc0/dimm0)", "processor 3"
    std::string what;  // in the plural: "corrected memory errors"
    uint64_t value;
};
using Counters = std::vector<Counter>;

// `root` is what stands before "/sys" and "/proc" ("" on the machine itself). What is not there is
// left out, and so is a count that does not read as a number.

// The kernel's counts of memory errors, by memory module; those that it can lay to no module, by
// memory controller.
Counters MemoryCounters(const std::string& root);

// Machine checks, by processor, and how often each was throttled for heat.
Counters ProcessorCounters(const std::string& root);

// What the kernel counts of a disk ("/dev/sda"): failed and timed-out commands, errors of its PCI
// link.
Counters DiskCounters(const std::string& root, const std::string& device);

// What a disk says of itself, from the output of "smartctl --json": health, error counters,
// sectors that cannot be read or were replaced.
Counters SmartCounters(const std::string& device, const std::string& output);

// What is new in `after`: uncorrected errors and failing parts are faulty. At most four parts are
// named for the same thing. A count that is lower than before was begun anew; one that is new has
// nothing to be compared with.
std::vector<Remark> Differences(const Counters& before, const Counters& after);

// Which of them a test answers for.
enum class Watched { kProcessors, kMemory, kDisk };

// Reads the counters now and again at the end of the run. What is new is a remark of the run (see
// Run::AtEnd); errors of parts that the test is not about are warnings, and so is a machine check
// while the memory has counted an uncorrected error, which is the likelier reason. The environment
// variable "TESTPROG_ROOT" names the root; `device` is a disk, which is asked by smartctl: that of
// the root ("usr/sbin/smartctl") where there is one, or else the one in PATH.
void Watch(Watched watched, const std::string& device, Run* run);

}  // namespace testprog
