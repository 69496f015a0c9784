#include "control/physical_path.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/padiag_state.h"

namespace patrol {

const char* get_phypath(int kind, const char* needle) {
    static PhysicalPath found;
    constexpr char kAttribute[] = "phypath=\"";
    constexpr char kNoData[] = "no data";
    if (kind == kPathOfCpu) needle = "<dev type=\"CPU_summary\"";
    if (kind == kPathOfMemory) needle = "<dev type=\"DIMM_summary\"";

    const char* directory = std::getenv("KVX_data");
    Stream file;
    if (directory != nullptr) {
        file = OpenForReading((std::string(directory) + "/devconf_cur.xml").c_str());
    }
    if (needle == nullptr) file.reset();
    if (file == nullptr) found.Assign(kNoData);
    char line[2048];
    while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strstr(line, "<dev type=\"SOFTWARE\"") != nullptr) {
            found.Assign(kNoData);
            break;
        }
        const char* value = std::strstr(line, kAttribute);
        if (value == nullptr || std::strstr(line, needle) == nullptr) continue;
        value += std::strlen(kAttribute);
        found.Assign({value, std::strcspn(value, "\"\r\n")});
        break;
    }
    return found.c_str();
}

}  // namespace patrol
