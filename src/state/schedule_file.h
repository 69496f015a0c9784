// The two Schedule files: what they call things, what a missing key counts as, and typed reads.
//
// A file is read by its path and needs no run around it; the builders in schedule/ write the files.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/text.h"
#include "sys/profile.h"

namespace patrol {

// The names of a kind of component.
struct ScheduleKeys {
    const char* section;    // null for disks, which have one section each
    const char* enabled;    // of the patrol file, as are the next two
    const char* due;        // in the next pass
    const char* timeout;    // in the test section
    const char* requested;  // of the padiag file
};

// Returns the row of `kind`, which must be one of the three.
const ScheduleKeys& KeysOf(int kind);

// The section of what holds for a whole run, and its other keys: how many disks there are, most
// disks that a pass makes due, whose turn is next (1: odd disks, else even ones), and where each
// group starts; and, of the padiag file, the level of the tests and their time limit.
inline constexpr char kTestSection[] = "TEST_SCHEDULE";
inline constexpr char kDiskCountKey[] = "hdd_all_num";
inline constexpr char kHddMaxKey[] = "hdd_max";
inline constexpr char kPhaseKey[] = "hdd_start_kigu";
inline constexpr char kOddStartKey[] = "hdd_next_kisu";
inline constexpr char kEvenStartKey[] = "hdd_next_gusu";
inline constexpr char kLevelKey[] = "level";
inline constexpr char kTimeLimitKey[] = "time";

// "HDD_SCHEDULE n", the section of disk `number`, and its other keys.
Text<32> DiskSection(int number);
inline constexpr char kDeviceKey[] = "device_name";
inline constexpr char kSerialKey[] = "serial_number";
inline constexpr char kAddressKey[] = "address";
inline constexpr char kIdeKey[] = "hdd_ide";

// What a missing key counts as.
inline constexpr int kDefaultTimeout = 45;      // seconds
inline constexpr int kDefaultHddMax = 128;      // disks a pass
inline constexpr int kDefaultLevel = 1;         // of a padiag run
inline constexpr int kDefaultTimeLimit = 3600;  // seconds, of a padiag run
inline constexpr char kNoDevice[] = "NO DATA";
inline constexpr char kFirstAddress[] = "0x0000000000000000";  // the builders write it, too
// Shorter than the other one where an address is read to be kept or moved on; it has always been.
inline constexpr char kShortFirstAddress[] = "0x00000000";

// How the value of an ON/OFF key reads.
enum class Flag : uint8_t {
    kOff,        // "OFF", as a missing key counts
    kBeginsOff,  // begins with it: off for the launchers, on for the selection
    kOn,         // anything else
};

// What stands in a Schedule file's place.
enum class Place : uint8_t {
    kMissing,   // nothing, or a file without a single section, of which nothing can be done
    kThere,     // a Schedule file; also one that cannot be looked at for the moment
    kTooLarge,  // a file that is too large to be read
    kUnusable,  // no regular file
};
Place LookAtSchedule(const char* path);

// Reads a flag of a Schedule file, or of test parameters.
Flag ReadFlag(const ProfileReader& profile, const char* section, const char* key);

// How a flag is written.
inline const char* OnOff(bool on) { return on ? "ON" : "OFF"; }

// A Schedule file, read once and asked many times. Texts are read into Size bytes, as
// ProfileReader::Value does it: up to Size characters whole, of a longer one the first Size - 1.
class ScheduleFile {
 public:
    explicit ScheduleFile(const char* path) : profile_(path) {}

    // Reads the file again if it was changed or replaced.
    void Refresh() { profile_.Refresh(); }

    // Returns whether the file could be read; else every answer is the default.
    bool loaded() const { return profile_.loaded(); }

    const ProfileReader& profile() const { return profile_; }

    // Returns a number of the test section.
    int TestNumber(const char* key, int default_value) const {
        return profile_.Int(kTestSection, key, default_value);
    }
    // Returns the seconds that the tests of `kind` are given.
    int Timeout(int kind) const { return TestNumber(KeysOf(kind).timeout, kDefaultTimeout); }
    // Return, from the padiag file, the level of its tests and their time limit in seconds.
    int Level() const { return TestNumber(kLevelKey, kDefaultLevel); }
    int TimeLimit() const { return TestNumber(kTimeLimitKey, kDefaultTimeLimit); }
    // Returns how many disks the file says it has: whatever number stands there, unchecked.
    int DiskCount() const { return TestNumber(kDiskCountKey, 0); }
    // Returns how many disks a pass makes due at most; below 0: no limit.
    int HddMax() const { return TestNumber(kHddMaxKey, kDefaultHddMax); }

    template <size_t Size>
    Text<Size + 1> Device(int number) const {
        return Value<Size>(number, kDeviceKey, kNoDevice);
    }
    template <size_t Size>
    Text<Size + 1> SerialNumber(int number) const {
        return Value<Size>(number, kSerialKey, kNoDevice);
    }
    // Returns the block that the disk's next test starts at, as text.
    template <size_t Size>
    Text<Size + 1> Address(int number, const char* missing = kFirstAddress) const {
        return Value<Size>(number, kAddressKey, missing);
    }
    // Returns whether the disk sits on an IDE path.
    bool IsIde(int number) const {
        return profile_.Int(DiskSection(number).c_str(), kIdeKey, 0) == 1;
    }

 private:
    template <size_t Size>
    Text<Size + 1> Value(int number, const char* key, const char* missing) const {
        return profile_.Value<Size>(DiskSection(number).c_str(), key, missing);
    }

    ProfileReader profile_;
};

// Returns as much of a device's name as the waits go by: up to 64 characters whole, of a longer
// one 63.
Text<65> WaitedName(std::string_view device);

// Returns the number of the disk that `schedule` calls `device`, by its waited name: `number` where
// it still does, else the first one that a configuration change has moved there. -1 when there is
// none any more.
int FindDisk(const ProfileReader& schedule, int number, const char* device);

// Makes the next test of `device`, launched as disk `number`, start at `address`, written with at
// least `digits` hexadecimal digits. The file is changed before this process next waits or reads
// it: see DeferProfileWrite. The address goes to the section that names the device by then; without
// one it is dropped (traced).
void SaveDiskAddress(const char* path, int number, const char* device, uint32_t address,
                     int digits);

}  // namespace patrol
