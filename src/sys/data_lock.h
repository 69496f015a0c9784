// One process at a time changes what is kept in files.
//
// Runs overlap: a reload comes while a pass ends, two configuration changes come at once. Each
// reads a file, changes it and puts it in place, and what the other did in between would be lost.
// So a change, from its first read to its last rename, is made under an advisory lock on the
// directory of the file. The lock needs no file of its own, goes with the process, and is not
// handed to children. Readers need none: they see the file before a rename or the one after it.
#pragma once

#include <string>

#include "base/file.h"

namespace patrol {

// Returns the directory that the file at `path` lies in.
std::string DirectoryOf(const std::string& path);

class DataLock {
 public:
    // Locks the directory of the file at `path`. A lock that this process holds already is shared.
    // While another process holds it, waits: at most 10 seconds, counted over all locks of this
    // run, so that many changes behind a hanging process do not add up. On a file system that knows
    // no such locks the change goes on without.
    explicit DataLock(const char* path);
    ~DataLock();
    DataLock(const DataLock&) = delete;
    DataLock& operator=(const DataLock&) = delete;

    // Returns whether the change may be made; else it counts as a failed write. `error` is the
    // errno of the failure, that of `call`.
    bool held() const { return error_ == 0; }
    const char* call() const { return call_; }
    int error() const { return error_; }

 private:
    std::string directory_;
    Descriptor lock_;  // none where an outer lock is shared
    const char* call_ = "flock";
    int error_ = 0;
};

// Notes that a run of `mode` (a number of base/run_mode.h) is under way on `directory`, for the
// rest of this process. Returns false when another process has noted the same. Modes do not exclude
// each other. Where the file system cannot tell, nobody else counts as running.
bool ClaimRun(const char* directory, int mode);

}  // namespace patrol
