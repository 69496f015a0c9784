#include "show/timeline.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string_view>

#include "model/times.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

// Measures of the picture; it is stretched to the page's width.
constexpr int kLabelWidth = 84;
constexpr int kPlotWidth = 402;
constexpr int kRowHeight = 18;
constexpr int kTop = 6;
constexpr int kAxisHeight = 24;
constexpr int kMark = 3;  // the width of a mark: results nearer together become one
constexpr int kTicks = 4;

struct Look {
    const char* style;  // a class of the page
    int height;         // so that failures stand out without colours, too
    int rank;           // of two results in one place the higher is shown
};

Look LookOf(const Result& result) {
    if (result.Skipped()) return {"skipped", 10, 2};
    switch (result.code) {
        case patrol::kResultOk:
            return {"ok", 8, 0};
        case patrol::kResultError:
            return {"error", 16, 4};
        case patrol::kResultCancel:
            return {"cancel", 8, 1};
        default:
            return {"late", 13, 3};
    }
}

// The span of time that is drawn.
struct Range {
    std::time_t from;
    std::time_t to;

    int Place(std::time_t time) const {
        const double share = static_cast<double>(time - from) / static_cast<double>(to - from);
        return static_cast<int>(share * (kPlotWidth - kMark)) / kMark * kMark;
    }
};

std::string Number(int number) { return std::to_string(number); }

// The name without the folder that all disks are in.
std::string ShortName(const std::string& device) {
    constexpr std::string_view kFolder = "/dev/";
    return device.compare(0, kFolder.size(), kFolder) == 0 ? device.substr(kFolder.size()) : device;
}

std::string MarkSvg(const Result& result, int x, int middle) {
    const Look look = LookOf(result);
    std::string title = PlainTime(result.time) + " " + result.Word();
    if (!result.text.empty()) title += " " + result.text;
    return std::string("<rect class=\"") + look.style + "\" x=\"" + Number(x) + "\" y=\"" +
           Number(middle - look.height / 2) + "\" width=\"" + Number(kMark - 1) + "\" height=\"" +
           Number(look.height) + "\"><title>" + ForHtml(title) + "</title></rect>\n";
}

// One component's marks: the worst of the results that fall into one place.
std::string RowSvg(const std::vector<const Result*>& results, const Range& range, int middle) {
    std::map<int, const Result*> places;
    for (const Result* result : results) {
        const Result*& shown = places[range.Place(result->time)];
        if (shown == nullptr || LookOf(*result).rank >= LookOf(*shown).rank) shown = result;
    }
    std::string svg;
    for (const auto& [place, result] : places) svg += MarkSvg(*result, kLabelWidth + place, middle);
    return svg;
}

std::string AxisSvg(const Range& range, int bottom) {
    std::string svg;
    for (int i = 0; i <= kTicks; ++i) {
        const std::time_t time = range.from + (range.to - range.from) * i / kTicks;
        const int x = kLabelWidth + kPlotWidth * i / kTicks;
        const char* anchor = i == 0 ? "start" : i == kTicks ? "end" : "middle";
        // Where there is little room every other time is left out.
        const char* style = i % 2 == 0 ? "tick" : "tick minor";
        svg += "<line class=\"grid\" x1=\"" + Number(x) + "\" y1=\"0\" x2=\"" + Number(x) +
               "\" y2=\"" + Number(bottom) + "\"/>\n<text class=\"" + style + "\" text-anchor=\"" +
               anchor + "\" x=\"" + Number(x) + "\" y=\"" + Number(bottom + 16) + "\">" +
               PlainTime(time).substr(5, 11) + "</text>\n";
    }
    return svg;
}

}  // namespace

std::string TimelineSvg(const State& state) {
    std::map<std::string, std::vector<const Result*>> by_device;
    for (const Result& result : state.results.list) {
        by_device[std::to_string(result.kind) + result.device].push_back(&result);
    }
    if (state.results.list.empty()) return "";
    Range range = {state.results.list.front().time, state.now};
    range.to = std::max({range.to, state.results.list.back().time, range.from + 1});
    std::string rows;
    int row = 0;
    for (const Component& component : state.components) {
        const auto found = by_device.find(std::to_string(component.kind) + component.device);
        if (found == by_device.end()) continue;
        const int middle = kTop + row++ * kRowHeight + kRowHeight / 2;
        rows += "<text class=\"label\" x=\"0\" y=\"" + Number(middle + 4) + "\">" +
                ForHtml(ShortName(component.device)) + "</text>\n" +
                RowSvg(found->second, range, middle);
    }
    if (row == 0) return "";
    const int bottom = kTop + row * kRowHeight;
    return "<svg role=\"img\" aria-label=\"Results over time\" viewBox=\"0 0 " +
           Number(kLabelWidth + kPlotWidth) + " " + Number(bottom + kAxisHeight) + "\">\n" +
           AxisSvg(range, bottom) + rows + "</svg>\n";
}

}  // namespace patrolctl
