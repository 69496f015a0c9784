// The two Schedule files: what they call things, what a missing key counts as, and typed reads.
//
// A file is read by its path and needs no run around it; the builders in schedule/ write the files.
#pragma once

#include <cstdint>

#include "base/text.h"
#include "sys/profile.h"

namespace patrol {

// The names of a kind of component.
struct ScheduleKeys {
    int kind;
    const char* section;    // null for disks, which have one section each
    const char* enabled;    // of the patrol file, as are the next two
    const char* due;        // in the next pass
    const char* timeout;    // in the test section
    const char* requested;  // of the padiag file
};

// The row of `kind`, which must be one of the three.
const ScheduleKeys& KeysOf(int kind);

// The section of what holds for a whole run.
inline constexpr char kTestSection[] = "TEST_SCHEDULE";

// Its keys for the turns of the disks: whose turn is next (1: odd disks, else even ones), and where
// each group starts.
inline constexpr char kPhaseKey[] = "hdd_start_kigu";
inline constexpr char kOddStartKey[] = "hdd_next_kisu";
inline constexpr char kEvenStartKey[] = "hdd_next_gusu";

// "HDD_SCHEDULE n", the section of disk `number`.
Text<32> DiskSection(int number);
inline constexpr char kAddressKey[] = "address";

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

Flag ReadFlag(const ProfileReader& profile, const char* section, const char* key);

// A Schedule file, read once and asked many times. A value of up to N - 1 characters is read whole
// into a text of N bytes, a longer one is cut to N - 2.
class ScheduleFile {
 public:
    explicit ScheduleFile(const char* path) : profile_(path) {}

    // Reads the file again if it was changed or replaced.
    void Refresh() { profile_.Refresh(); }

    // Whether the file could be read; else every answer is the default.
    bool loaded() const { return profile_.loaded(); }

    const ProfileReader& profile() const { return profile_; }

    // A number of the test section.
    int TestNumber(const char* key, int default_value) const {
        return profile_.Int(kTestSection, key, default_value);
    }
    // Seconds that the tests of `kind` are given.
    int Timeout(int kind) const { return TestNumber(KeysOf(kind).timeout, kDefaultTimeout); }
    // Of the padiag file: the level of its tests, and their time limit in seconds.
    int Level() const { return TestNumber("level", kDefaultLevel); }
    int TimeLimit() const { return TestNumber("time", kDefaultTimeLimit); }
    // How many disks the file says it has: whatever number stands there, unchecked.
    int DiskCount() const { return TestNumber("hdd_all_num", 0); }
    // Most disks that a pass makes due; below 0: no limit.
    int HddMax() const { return TestNumber("hdd_max", kDefaultHddMax); }

    template <size_t N>
    Text<N> Device(int number) const {
        return Value<N>(number, "device_name", kNoDevice);
    }
    template <size_t N>
    Text<N> SerialNumber(int number) const {
        return Value<N>(number, "serial_number", kNoDevice);
    }
    // The block that the disk's next test starts at, as text.
    template <size_t N>
    Text<N> Address(int number, const char* missing = kFirstAddress) const {
        return Value<N>(number, kAddressKey, missing);
    }
    // Whether the disk sits on an IDE path.
    bool IsIde(int number) const {
        return profile_.Int(DiskSection(number).c_str(), "hdd_ide", 0) == 1;
    }

 private:
    template <size_t N>
    Text<N> Value(int number, const char* key, const char* missing) const {
        Text<N> value;
        profile_.String(DiskSection(number).c_str(), key, missing, &value);
        return value;
    }

    ProfileReader profile_;
};

// Has the next test of disk `number` start at `address`, written with at least `digits` hexadecimal
// digits. The file is changed before this process next waits or reads it: see DeferProfileWrite.
void SaveDiskAddress(const char* path, int number, uint32_t address, int digits);

}  // namespace patrol
