#include "sys/deferred_writes.h"

#include <string>
#include <utility>
#include <vector>

#include "base/blocking.h"

namespace patrol {
namespace {

// All to one profile.
std::vector<DeferredWrite> deferred;
std::string deferred_path;

void FlushAll() { FlushDeferredWrites(); }

}  // namespace

// One list will do: a run puts off writes to one Schedule file alone.
void DeferProfileWrite(const char* path, DeferredWrite write) {
    if (deferred_path != path) FlushAll();
    deferred_path = path;
    deferred.push_back(std::move(write));
    CallBeforeBlocking(FlushAll);
}

void FlushDeferredWrites(const char* path) {
    if (deferred.empty() || (path != nullptr && deferred_path != path)) return;
    CallBeforeBlocking(nullptr);
    // Emptied first: the writer reads the profile, and so comes by here again.
    const std::vector<DeferredWrite> writes = std::exchange(deferred, {});
    ProfileWriter writer(deferred_path.c_str());
    const ProfileReader now(deferred_path.c_str());
    for (const DeferredWrite& write : writes) write(now, &writer);
    writer.SaveOrReport(__func__);
}

}  // namespace patrol
