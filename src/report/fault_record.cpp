// Naming the unit that failed.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "base/file.h"
#include "base/kinds.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"
#include "report/parts.h"

namespace patrol {

FaultRecord errlog_inf;

namespace {

constexpr unsigned kTraceText = kRelayed | kToTrace | kToDebug;

using Compare = int (*)(const char*, const char*, size_t);

// What follows `label` on the first line that begins with it, up to the line feed.
std::optional<std::string> LineText(const std::string& text, const char* label, Compare compare) {
    const size_t label_size = std::strlen(label);
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = std::min(text.find('\n', at), text.size());
        if (compare(text.c_str() + at, label, label_size) == 0) {
            const size_t from = std::min(at + label_size, end);
            return text.substr(from, end - from);
        }
        at = end + 1;
    }
    return std::nullopt;
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
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

void LocatePartition(FaultRecord* record) {
    record->fru_name.Assign("Partition");
    record->fru_index.Assign("0");
    const int found = find_partition_num(&record->location);
    if (found == 0) record->location.Assign("0");
    if (found < 0) {
        record->fru_name.Assign("BB");
        record->location.Assign("BB");
    }
}

}  // namespace

void set_parts_errinf(FaultRecord* record, const char* status, size_t length) {
    *record = FaultRecord();
    record->mark.Assign("777");
    const std::string text(status, strnlen(status, length));
    const std::string program = Lower(LineText(text, "PROGRAM : ", strncasecmp).value_or(""));
    const auto names = [&](const char* name) {
        return program.compare(0, std::strlen(name), name) == 0;
    };
    if (names(FindKind(kKindHdd)->program)) {
        record->fru_name.Assign("HDD");
        record->fru_index.Assign("0");
        record->location.Assign("/SCSI" + LineText(text, "DEVICE  : ", std::strncmp).value_or(""));
        OutTracef("set_parts_errinf() checking RAID ended. err->phypath=%s",
                  record->location.c_str());
    } else if (names(FindKind(kKindCpu)->program) || names(FindKind(kKindMemory)->program)) {
        LocatePartition(record);
    }
    record->summary.Assign(LineText(text, "ERROR   : ", std::strncmp).value_or(""));
}

int find_partition_num(Text<40>* number) {
    const char* directory = std::getenv("KVX_data");
    if (directory == nullptr) {
        directory = "/var/opt/ZQWNkvx/data";
        ptl_printf(kTraceText, nullptr, "find_partition_num() warning getenv ret=NULL");
    }
    const std::string path = std::string(directory) + "/devconf_cur.xml";
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        const int error = errno;
        ptl_printf(kTraceText, nullptr, "find_partition_num() %s stat error( errno:%d, %s )", path,
                   error, std::strerror(error));
        return -1;
    }
    if (status.st_size == 0) {
        ptl_printf(kTraceText, nullptr, "find_partition_num() %s just creating(not finish yet)",
                   path);
        return -1;
    }
    const Stream file = OpenForReading(path.c_str());
    if (file == nullptr) {
        ptl_printf(kTraceText, nullptr, "find_partition_num() %s open err ret=%d", path, -1);
        return -1;
    }
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
