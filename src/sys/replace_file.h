// A file that takes another's place only when it is complete.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "base/file.h"

namespace patrol {

// Writes "<path>.new" and renames it to `path` at the end, so that a full disk, a kill or a failed
// call never leaves half a file under the name that is read. Whatever fails, `path` keeps what it
// held and "<path>.new" is removed. Names are cut at 4095 characters.
class FileReplacement {
 public:
    // Creates "<path>.new" afresh. It fails, with errno set, for a `path` that exists and is no
    // regular file. The new file gets the permissions of the old one.
    explicit FileReplacement(const char* path);
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    // Returns the stream to write to; null when the file could not be created.
    FILE* stream() const { return stream_.get(); }

    // Writes `bytes` as the whole file. False when they did not all reach the system.
    bool Write(std::string_view bytes);

    // Puts the file in place. False when that, or anything written before, failed.
    bool Commit();

 private:
    // Closes the stream, which is when the last bytes reach the system. Whether all is well so far.
    bool Finish();

    std::string path_;
    std::string temporary_;
    Stream stream_;
    bool created_ = false;
    bool finished_ = false;
};

// Returns "<path><suffix>" cut at 4095 characters.
std::string SideName(const char* path, const char* suffix);

}  // namespace patrol
