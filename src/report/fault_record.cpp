#include "report/fault_record.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>
#include <string>

#include "base/kinds.h"
#include "msg/trace.h"
#include "state/machine.h"

namespace patrol {
namespace {

using Compare = int (*)(const char*, const char*, size_t);

// Returns what follows `label` on the first line that begins with it, up to the line feed.
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

// Test programs have always been free to write their own name as they like.
std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Processors and memory have no place of their own in the report: it names their partition.
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

// The program that the result text names decides what has failed, not the kind that was launched. A
// text that names none leaves the unit open.
void set_parts_errinf(FaultRecord* record, const char* status, size_t length) {
    *record = FaultRecord();
    record->mark.Assign("777");
    const std::string text(status, strnlen(status, length));
    const std::string program = Lower(LineText(text, "PROGRAM : ", strncasecmp).value_or(""));
    const auto names = [&](int kind) { return StartsWith(program, FindKind(kind)->program); };
    if (names(kKindHdd)) {
        record->fru_name.Assign("HDD");
        record->fru_index.Assign("0");
        record->location.Assign("/SCSI" + LineText(text, "DEVICE  : ", std::strncmp).value_or(""));
        OutTracef("set_parts_errinf() checking RAID ended. err->phypath=%s",
                  record->location.c_str());
    } else if (names(kKindCpu) || names(kKindMemory)) {
        LocatePartition(record);
    }
    record->summary.Assign(LineText(text, "ERROR   : ", std::strncmp).value_or(""));
}

}  // namespace patrol
