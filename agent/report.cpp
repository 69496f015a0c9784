#include "report.h"

namespace agent {
namespace {

constexpr std::string_view kDetail = "\nDETAIL=";

// The value of the first line that begins with "KEY="; none where no line does.
std::optional<std::string> Value(std::string_view lines, std::string_view key) {
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(lines.size(), line.size() + 1));
        if (line.size() > key.size() && line.substr(0, key.size()) == key &&
            line[key.size()] == '=') {
            return std::string(line.substr(key.size() + 1));
        }
    }
    return std::nullopt;
}

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// The unit of a processor or memory report is the machine's partition, so the program that found
// the fault says what it is about; where there is no result block the name of the file does.
std::string KindOf(const Report& report) {
    if (report.fru.compare(0, 4, "HDD;") == 0) return "HDD";
    if (Contains(report.detail, "PROGRAM : cputest")) return "CPU";
    if (Contains(report.detail, "PROGRAM : memtest")) return "Memory";
    if (Contains(report.name, "_cpu")) return "CPU";
    return Contains(report.name, "_mem") ? "Memory" : "Unknown";
}

}  // namespace

std::optional<Report> ParseReport(std::string_view name, std::string_view text) {
    const size_t detail = text.find(kDetail);
    const std::string_view head = text.substr(0, detail);
    Report report;
    report.name = name;
    const auto fru = Value(head, "FRU1");
    if (!fru.has_value() || fru->empty()) return std::nullopt;
    report.fru = *fru;
    // The key stands twice on its line; the second time has the zone.
    report.time = Value(head, "TIME").value_or("");
    report.time.erase(0, report.time.rfind('=') + 1);
    report.flag = Value(head, "FLAG").value_or("");
    report.summary = Value(head, "SUMMARY").value_or("");
    report.operation = Value(head, "OPERATION").value_or("");
    if (detail != std::string_view::npos) report.detail = text.substr(detail + kDetail.size());
    report.kind = KindOf(report);
    constexpr std::string_view kPlace = "HDD;/SCSI";
    if (report.kind == "HDD" && report.fru.compare(0, kPlace.size(), kPlace) == 0) {
        report.device = report.fru.substr(kPlace.size());
    }
    return report;
}

}  // namespace agent
