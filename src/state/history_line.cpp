#include "state/history_line.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/local_time.h"
#include "base/number.h"

namespace patrol {
namespace {

constexpr size_t kStampSize = 19;
constexpr char kStampFormat[] = "%Y/%m/%d %H:%M:%S";

// Takes a stamp and the blank behind it from the line.
bool TakeStamp(std::string_view* line, std::time_t* time) {
    if (line->size() <= kStampSize || (*line)[kStampSize] != ' ') return false;
    const Text<kStampSize + 1> stamp(line->substr(0, kStampSize));
    std::tm local = {};
    const char* end = strptime(stamp.c_str(), kStampFormat, &local);
    if (end == nullptr || *end != '\0') return false;
    line->remove_prefix(kStampSize + 1);
    // The line does not say whether it was summer time. In the hour that comes twice mktime
    // chooses.
    local.tm_isdst = -1;
    *time = std::mktime(&local);
    return true;
}

// Takes a word and the blanks behind it.
std::string_view TakeWord(std::string_view* line) {
    const std::string_view word = line->substr(0, line->find(' '));
    line->remove_prefix(word.size());
    line->remove_prefix(std::min(line->find_first_not_of(' '), line->size()));
    return word;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Where " [Ns]" begins, the first place that has it.
size_t FindSeconds(std::string_view line) {
    for (size_t at = line.find(" ["); at != std::string_view::npos; at = line.find(" [", at + 1)) {
        size_t end = at + 2;
        while (end < line.size() && IsDigit(line[end])) ++end;
        if (end > at + 2 && line.substr(end, 2) == "s]") return at;
    }
    return std::string_view::npos;
}

}  // namespace

Text<32> HistoryStamp(std::time_t seconds) {
    const std::tm local = LocalTime(seconds);
    Text<32> stamp;
    std::strftime(stamp.data(), stamp.kSize, kStampFormat, &local);
    return stamp;
}

std::string ResultHead(std::time_t time, const char* result, const char* component,
                       const char* device, int seconds) {
    Text<64> head;
    head.Format("%s %-7s %s ", HistoryStamp(time).c_str(), result, component);
    return std::string(head.view()) + device + " [" + std::to_string(seconds) + "s]";
}

std::optional<ResultLine> ParseResult(std::string_view line) {
    ResultLine parsed;
    if (!TakeStamp(&line, &parsed.time)) return std::nullopt;
    const std::string_view word = TakeWord(&line);
    size_t code = 0;
    while (code < std::size(kResultWords) && word != kResultWords[code]) ++code;
    if (code == std::size(kResultWords)) return std::nullopt;
    parsed.result = static_cast<int>(code);
    parsed.component = TakeWord(&line);
    const size_t seconds = FindSeconds(line);
    if (parsed.component.empty() || seconds == std::string_view::npos) return std::nullopt;
    parsed.device = line.substr(0, seconds);
    parsed.seconds = ParseInt(std::string(line.substr(seconds + 2)).c_str(), 10);
    parsed.rest = line.substr(line.find(']', seconds) + 1);
    return parsed;
}

Text<128> FormatDetail(const PadiagDetail& detail) {
    Text<128> text;
    if (detail.has_progress) {
        text.Format("%d[%%] -> %d[%%](pass=%d)", detail.progress_before, detail.progress_after,
                    detail.passes);
    } else {
        text.Format("pass=%d", detail.passes);
    }
    return text;
}

std::optional<PadiagDetail> ParseDetail(const std::string& rest) {
    PadiagDetail detail;
    int end = 0;
    // NOLINTBEGIN(cert-err34-c): a number of nine digits always fits, and `end` tells of success
    std::sscanf(rest.c_str(), " pass=%9d%n", &detail.passes, &end);
    if (end == 0) {
        detail.has_progress = true;
        std::sscanf(rest.c_str(), " %9d[%%] -> %9d[%%](pass=%9d)%n", &detail.progress_before,
                    &detail.progress_after, &detail.passes, &end);
    }
    // NOLINTEND(cert-err34-c)
    if (end == 0) return std::nullopt;
    const auto from = static_cast<size_t>(end) + 1;
    if (rest.size() > from) detail.message = rest.substr(from);
    return detail;
}

bool ParseChange(std::string_view line, std::time_t* time) {
    constexpr std::string_view kTarget = "] Target ";
    return TakeStamp(&line, time) && StartsWith(line, "[") &&
           line.find(kTarget) != std::string_view::npos;
}

}  // namespace patrol
