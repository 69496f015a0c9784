#include "state/machine.h"

#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "base/file.h"
#include "base/paths.h"
#include "base/running_tests.h"
#include "msg/ptl_printf.h"

namespace patrol {
namespace {

constexpr unsigned kTraceText = kRelayed | kToTrace | kToDebug;

// The path of the configuration; null without a data directory. The main board's lies apart.
std::optional<std::string> ConfigurationPath(bool main_board) {
    const char* directory = DirectoryVariable("KVX_data");
    if (directory == nullptr) return std::nullopt;
    return std::string(directory) + (main_board ? "/MB" : "") + "/devconf_cur.xml";
}

// Returns null when there is no file, or no data directory.
Stream OpenConfiguration(bool main_board) {
    const std::optional<std::string> path = ConfigurationPath(main_board);
    return path.has_value() ? OpenForReading(path->c_str()) : nullptr;
}

// The text between the first ">" and the next "<", where it is 2 to 99 characters long.
void TakeValue(const char* line, Text<100>* value) {
    const char* open = std::strchr(line, '>');
    const char* close = open != nullptr ? std::strchr(open, '<') : nullptr;
    if (close == nullptr) return;
    const auto length = static_cast<size_t>(close - open - 1);
    if (length >= 2 && length < Text<100>::kSize) value->Assign({open + 1, length});
}

// The value of the attribute path="..." on a line; not that of phypath="...".
std::optional<std::string> PathAttribute(const std::string& line) {
    constexpr std::string_view kName = "path=\"";
    size_t at = line.find(kName);
    while (at != std::string::npos && at > 0 &&
           std::isalnum(static_cast<unsigned char>(line[at - 1])) != 0) {
        at = line.find(kName, at + 1);
    }
    if (at == std::string::npos) return std::nullopt;
    const size_t from = at + kName.size();
    const size_t end = line.find('"', from);
    if (end == std::string::npos) return std::nullopt;
    return line.substr(from, end - from);
}

// Opens the configuration for find_partition_num, which tells what is wrong with it.
Stream OpenForPartition() {
    std::string path = ConfigurationPath(false).value_or("");
    // Alone of the readers of this file, this one knows where it lies without being told.
    if (path.empty()) {
        path = "/var/opt/ZQWNkvx/data/devconf_cur.xml";
        ptl_printf(kTraceText, nullptr, "find_partition_num() warning getenv ret=NULL");
    }
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        const int error = errno;
        ptl_printf(kTraceText, nullptr, "find_partition_num() %s stat error( errno:%d, %s )", path,
                   error, std::strerror(error));
        return nullptr;
    }
    if (status.st_size == 0) {
        ptl_printf(kTraceText, nullptr, "find_partition_num() %s just creating(not finish yet)",
                   path);
        return nullptr;
    }
    Stream file = OpenForReading(path.c_str());
    if (file == nullptr) {
        ptl_printf(kTraceText, nullptr, "find_partition_num() %s open err ret=%d", path, -1);
    }
    return file;
}

}  // namespace

const char* get_phypath(int kind, const char* needle) {
    static PhysicalPath found;
    constexpr char kAttribute[] = "phypath=\"";
    constexpr char kNoData[] = "no data";
    if (kind == kPathOfCpu) needle = "<dev type=\"CPU_summary\"";
    if (kind == kPathOfMemory) needle = "<dev type=\"DIMM_summary\"";

    const Stream file = needle != nullptr ? OpenConfiguration(false) : nullptr;
    if (file == nullptr) {
        found.Assign(kNoData);
        return found.c_str();
    }
    char line[2048];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
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

int get_serial_model(MachineIdentity* identity) {
    *identity = MachineIdentity();
    const char* server = std::getenv("KVX_SVTYPE");
    const Stream file = OpenConfiguration(server != nullptr && std::strcmp(server, "MB") == 0);
    if (file == nullptr) return -1;
    // Readers of the serial number have always met lines cut at this length; a longer one counts as
    // several.
    char line[99];
    bool inside = false;
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (!inside) {
            inside = std::strstr(line, "<dev type=\"SYSTEM\"") != nullptr;
            continue;
        }
        if (std::strstr(line, "<dev") != nullptr) break;
        if (std::strstr(line, "<attr name=\"S/N\"") != nullptr) {
            TakeValue(line, &identity->serial_number);
        }
        if (std::strstr(line, "<attr name=\"model\"") != nullptr) {
            TakeValue(line, &identity->model);
        }
    }
    return 0;
}

int find_partition_num(Text<40>* number) {
    const Stream file = OpenForPartition();
    if (file == nullptr) return -1;
    char line[4096];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strstr(line, "<dev type=\"Partition\"") == nullptr) continue;
        const std::optional<std::string> value = PathAttribute(line);
        if (!value.has_value()) continue;
        number->Assign(*value);
        ptl_printf(kTraceText, nullptr, "find_partition_num() partition path={'%s'} ret=%d",
                   *number, 1);
        ptl_printf(kTraceText, nullptr, "find_partition_num() finding success ..p_num={'%s'}",
                   *number);
        return 1;
    }
    return 0;
}

}  // namespace patrol
