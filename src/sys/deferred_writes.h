// Profile writes that are put off.
//
// The disks of a pass report their next addresses one after the other, and each write would cost a
// rewrite of the whole Schedule file. So the writes are collected and put in place together, by one
// ProfileWriter, before this process next makes a BlockingCall, starts a child, or reads that
// profile or writes to it in another way (ProfileReader::Refresh apart).
#pragma once

#include <functional>

#include "sys/profile_reader.h"
#include "sys/profile_writer.h"

namespace patrol {

// Writes what it has to write, by what the profile holds by then: another process may have changed
// it since, but will not until the writes are in place.
using DeferredWrite = std::function<void(const ProfileReader& now, ProfileWriter* writer)>;

// Puts off a write to the profile at `path`. Writes to another profile that were put off before are
// done now.
void DeferProfileWrite(const char* path, DeferredWrite write);

// Puts the writes in place now; with a path, only if they are to that profile. A failure is traced
// and told to the agent, and the writes are gone.
void FlushDeferredWrites(const char* path = nullptr);

}  // namespace patrol
