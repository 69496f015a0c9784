// The controller's part reports.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent {

// What a report says, as docs/agent.md calls it.
struct Report {
    std::string name;    // of its file
    std::string kind;    // "CPU", "Memory", "HDD" or "Unknown"
    std::string device;  // "/dev/sda"; empty unless a disk is meant
    std::string fru;     // "HDD;/SCSI/dev/sda"
    std::string time;    // ISO 8601
    std::string flag;    // "patrol" or "diag"
    std::string summary;
    std::string operation;  // "E3890"
    std::string detail;     // the lines from DETAIL= on
};

// Takes a report of KEY=VALUE lines apart; DETAIL, the last, may have several. None when it names
// no unit (FRU1).
std::optional<Report> ParseReport(std::string_view name, std::string_view text);

}  // namespace agent
