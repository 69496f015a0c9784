// Files that test programs read and leave behind.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace testprog {

// The value of an environment variable; empty where it is not set.
std::string Environment(const char* name);

// A descriptor that closes itself.
struct Descriptor {
    explicit Descriptor(int number) : fd(number) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int fd;
};

// Returns the whole of a regular file of at most `limit` bytes, or nothing with errno set. `mode`,
// if given, gets its permission bits. Files of the system that name no size are read to their end.
std::optional<std::string> ReadWhole(const std::string& path, size_t limit, mode_t* mode = nullptr);

// Returns a file of the system (sysfs, procfs) from byte `skip` on as one line without control
// characters and outer blanks; empty where there is none.
std::string ReadAttribute(const std::string& path, size_t skip = 0);

// Returns the numbers of a list of the system, as "0-3,8"; none where there is no such file.
std::vector<int> ReadNumbers(const std::string& path);

// Replaces a file by way of "PATH.SUFFIX" next to it, so that a reader never sees half of it and a
// failure leaves the old one. Returns false with errno set on failure.
bool ReplaceWhole(const std::string& path, const std::string& suffix, const std::string& text,
                  mode_t mode);

// Takes the lock that processes have agreed on for as long as `fd` is open. Waits about a second
// for it and asks `stop` meanwhile: when that is true it waits a tenth of a second at most. Returns
// false with errno set where the lock could not be had.
bool LockInTime(int fd, const std::function<bool()>& stop);

}  // namespace testprog
