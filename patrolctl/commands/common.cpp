#include "commands/common.h"

#include <cctype>
#include <cstdio>

#include "base/kinds.h"
#include "show/escape.h"

namespace patrolctl {

void Print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void PrintProblems(const std::vector<std::string>& problems) {
    // Where both go to one place, what was found comes first.
    if (!problems.empty()) std::fflush(stdout);
    for (const std::string& problem : problems) {
        std::fprintf(stderr, "patrolctl: %s\n", ForTerminal(problem).c_str());
    }
}

bool PlacesKnown(const Places& places) {
    const std::string missing = MissingPlaces(places);
    if (!missing.empty()) PrintProblems({missing});
    return missing.empty();
}

int StatusOf(const std::vector<std::string>& problems) {
    return problems.empty() ? kExitOk : kExitUnreadable;
}

Colour ColourOf(Level level) {
    switch (level) {
        case Level::kOk:
            return Colour::kGreen;
        case Level::kCritical:
            return Colour::kRed;
        default:
            return Colour::kYellow;
    }
}

Colour ColourOf(const Result& result) {
    if (result.code == patrol::kResultError) return Colour::kRed;
    return result.code == patrol::kResultOk && !result.Skipped() ? Colour::kGreen : Colour::kYellow;
}

std::string ResultText(const Result& result) {
    return result.Skipped() ? "OK (not tested)" : result.Word();
}

std::string SizeText(uint64_t blocks) {
    static constexpr const char* kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB"};
    double size = static_cast<double>(blocks) * 512;
    size_t unit = 0;
    for (; size >= 1000 && unit + 1 < std::size(kUnits); ++unit) size /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%.*f %s", size < 10 && unit > 0 ? 1 : 0, size, kUnits[unit]);
    return text;
}

std::string PositionText(const Component& component) {
    if (component.kind != patrol::kKindHdd) return "";
    char text[64];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(component.address));
    std::string position = text;
    if (component.ratio) {
        std::snprintf(text, sizeof text, " (%.1f %%)", *component.ratio * 100);
        position += text;
    }
    return position;
}

std::string Capital(std::string text) {
    if (!text.empty() && text[0] != '/') {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text;
}

}  // namespace patrolctl
