// A file that takes another's place only when it is complete.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "base/file.h"
#include "sys/data_lock.h"

namespace patrol {

// The call that a change failed at, and its errno; no call: none.
struct FailedCall {
    const char* call = nullptr;
    int error = 0;
};

// Writes a file beside `path`, under a name of this process, and renames it to `path` at the end,
// so that a full disk, a kill, a failed call or a power cut never leaves half a file under the name
// that is read. Whatever fails, `path` keeps what it held and the side file is removed; one that a
// killed process left is removed by the next change. Holds the lock of the directory (DataLock) as
// long as it lives.
class FileReplacement {
 public:
    // Creates the side file. It fails for a `path` that exists and is no regular file. The new file
    // gets the permissions of the old one, but that others may write.
    explicit FileReplacement(const char* path);
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // Returns the stream to write to; null when the file could not be created.
    FILE* stream() const { return stream_.get(); }

    // Writes `bytes` as the whole file. Returns false when they did not all reach the disk.
    bool Write(std::string_view bytes);

    // Puts the file in place. Returns false when that, or anything written before, failed. The
    // place outlasts a power cut once SyncDirectory has followed.
    bool Commit();

    // What failed, once something has.
    const FailedCall& failure() const { return failure_; }

 private:
    // Brings what was written to the disk and closes the stream. Whether all is well so far.
    bool Finish();
    bool Fail(const char* call, int error);

    DataLock lock_;
    std::string path_;
    std::string temporary_;
    Stream stream_;
    FailedCall failure_;
    bool created_ = false;
};

// Gives the file at `path` the second name `link_path`, in place of what stood there. Both names
// must lie in one directory, whose lock the caller holds. Returns false, with `link_path` as it
// was, where the file cannot be brought to the disk, or links are refused. SyncDirectory is to
// follow.
bool LinkInPlace(const std::string& path, const std::string& link_path);

// Makes the renames in the directory of `path` outlast a power cut. Returns false when that fails.
bool SyncDirectory(const std::string& path);

// Returns "<path><suffix>" cut at 4095 characters.
std::string SideName(const char* path, const char* suffix);

}  // namespace patrol
