#include "machine.h"

#include <dirent.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "text.h"

namespace agent {
namespace {

// What makers leave in the firmware when they do not fill it in.
bool IsPlaceholder(const std::string& text) {
    static constexpr const char* kPlaceholders[] = {"none",
                                                    "default string",
                                                    "not specified",
                                                    "not applicable",
                                                    "not available",
                                                    "system serial number",
                                                    "system product name",
                                                    "to be filled by o.e.m.",
                                                    "0123456789",
                                                    "unknown",
                                                    "n/a"};
    return std::any_of(std::begin(kPlaceholders), std::end(kPlaceholders),
                       [&](const char* known) { return strcasecmp(text.c_str(), known) == 0; });
}

std::string FirstIdentity(const std::string& sys, std::initializer_list<const char*> files) {
    for (const char* file : files) {
        std::string text = ReadWord(sys + "/" + file);
        if (text.size() > 1 && !IsPlaceholder(text)) return text;
    }
    return {};
}

// The number of members of a list such as "0-3,8".
unsigned CountList(const std::string& list) {
    unsigned count = 0;
    const char* at = list.c_str();
    while (*at >= '0' && *at <= '9') {
        char* end = nullptr;
        const unsigned long first = std::strtoul(at, &end, 10);
        const unsigned long last = *end == '-' ? std::strtoul(end + 1, &end, 10) : first;
        if (last < first || last - first > 0xffff) break;
        count += static_cast<unsigned>(last - first) + 1;
        at = *end == ',' ? end + 1 : end;
    }
    return count;
}

uint64_t MemoryBytes(const std::string& directory) {
    const uint64_t block =
        std::strtoull(ReadWord(directory + "/block_size_bytes").c_str(), nullptr, 16);
    const std::unique_ptr<DIR, int (*)(DIR*)> blocks(opendir(directory.c_str()), closedir);
    if (blocks == nullptr) return 0;
    uint64_t count = 0;
    while (const dirent* entry = readdir(blocks.get())) {
        const std::string online = directory + "/" + entry->d_name + "/online";
        if (entry->d_name[0] == 'm' && ReadWord(online) == "1") ++count;
    }
    return count * block;
}

}  // namespace

Machine LookAtMachine(const std::string& sys) {
    Machine machine;
    machine.model = FirstIdentity(sys, {"class/dmi/id/product_name", "class/dmi/id/board_name",
                                        "firmware/devicetree/base/model"});
    machine.serial =
        FirstIdentity(sys, {"class/dmi/id/product_serial", "class/dmi/id/chassis_serial",
                            "class/dmi/id/board_serial", "firmware/devicetree/base/serial-number"});
    machine.processors = CountList(ReadWord(sys + "/devices/system/cpu/present"));
    machine.memory_bytes = MemoryBytes(sys + "/devices/system/memory");
    return machine;
}

}  // namespace agent
