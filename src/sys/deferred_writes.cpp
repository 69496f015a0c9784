#include "sys/deferred_writes.h"

#include <string>
#include <utility>
#include <vector>

#include "base/blocking.h"
#include "sys/profile_writer.h"

namespace patrol {
namespace {

struct DeferredWrite {
    std::string section;
    std::string key;
    std::string value;
};

// All to one profile.
std::vector<DeferredWrite> deferred;
std::string deferred_path;

void FlushAll() { FlushDeferredWrites(); }

}  // namespace

void DeferProfileWrite(const char* section, const char* key, const char* value, const char* path) {
    if (deferred_path != path) FlushAll();
    deferred_path = path;
    deferred.push_back({section, key, value});
    CallBeforeBlocking(FlushAll);
}

void FlushDeferredWrites(const char* path) {
    if (deferred.empty() || (path != nullptr && deferred_path != path)) return;
    CallBeforeBlocking(nullptr);
    // Emptied first: the writer reads the profile, and so comes by here again.
    const std::vector<DeferredWrite> writes = std::exchange(deferred, {});
    ProfileWriter writer(deferred_path.c_str());
    for (const DeferredWrite& write : writes) {
        writer.Write(write.section.c_str(), write.key.c_str(), write.value.c_str());
    }
    writer.SaveOrReport(__func__);
}

}  // namespace patrol
