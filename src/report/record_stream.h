// The framing of records: a prefix that says how many bytes follow, then those bytes.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>

#include "sys/pipe_reader.h"

namespace patrol {

inline constexpr char kRecordMagic[] = "ONLPTL";
inline constexpr size_t kPrefixSize = 18;  // "ONLPTL,0x%08x,"

// A body above this is refused: no record is near it.
inline constexpr int kMaxBody = 1 << 30;

// Returns the number of bytes that a prefix announces, whatever that is; none when the 18 bytes are
// no prefix.
std::optional<int> AnnouncedLength(const char* prefix);

// Reads the records of a test from the pipe that it writes to.
class RecordReader {
 public:
    // `fd` stays the caller's.
    explicit RecordReader(int fd) : pipe_(fd) {}

    enum class Prefix { kFound, kStray, kNone };

    // Reads 18 bytes. kFound: they are a prefix, and `*length` is the number of bytes that it
    // announces, whatever that is. kStray: they are something else; where the next prefix begins is
    // not searched for, the stream goes on in steps of 18 bytes. kNone: they did not all come.
    Prefix ReadPrefix(int* length);

    enum class Body { kWhole, kShort, kNoMemory };

    // Reads the `length` bytes behind a prefix; memory is taken as they come. kShort: they did not
    // all come, `size` did; a length below 0 is short at once. kNoMemory: there is no room for
    // them, or there are to be more than 1 GiB.
    Body ReadBody(int length);

    // The bytes that the last ReadBody has read, with kRecordSlack zero bytes behind them.
    char* body() { return body_.get(); }
    const char* body() const { return body_.get(); }
    size_t size() const { return size_; }

 private:
    bool Grow(size_t size);

    PipeReader pipe_;
    std::unique_ptr<char, decltype(&std::free)> body_{nullptr, std::free};
    size_t size_ = 0;
};

// Looks for the next record in the open file "pat_temp.txt", a stream that was saved, from
// `*offset` on. Returns the length that the first prefix with a positive one announces, with
// `*offset` moved behind that prefix; 0 at the end of the file; -1 when the file is not open, or
// cannot be sought or read (a read is reported).
int check_pipedata(long* offset);

}  // namespace patrol
