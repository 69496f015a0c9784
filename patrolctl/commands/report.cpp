// patrolctl report: one page with everything, for people who have no terminal at hand.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/file.h"
#include "base/kinds.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "model/running.h"
#include "model/times.h"
#include "show/escape.h"
#include "show/timeline.h"
#include "sys/replace_file.h"

namespace patrolctl {
namespace {

// More would make the page slow; the rest is for "patrolctl history".
constexpr size_t kMaxHistoryRows = 500;

constexpr char kStyle[] = R"(
:root { color-scheme: light dark; --ink: #1c2733; --paper: #fff; --faint: #66727f; --line: #d9dfe5;
  --ok: #2e7d4f; --error: #c62828; --late: #c77700; --skipped: #8a6d00; --cancel: #8795a1; }
@media (prefers-color-scheme: dark) { :root { --ink: #e3e8ed; --paper: #14191f; --faint: #94a1ae;
  --line: #323c46; --ok: #58b97f; --error: #f0706a; --late: #eda340; --skipped: #d6bb4d; } }
@media print { :root { --ink: #000; --paper: #fff; --faint: #444; --line: #bbb; --ok: #2e7d4f;
  --error: #c62828; --late: #c77700; --skipped: #8a6d00; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1rem; max-width: 68rem; background: var(--paper); color: var(--ink);
  font: 15px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.35rem; margin: 0; } h2 { font-size: 1.05rem; margin: 1.8rem 0 .5rem; }
.state { border-left: .4rem solid var(--skipped); padding: .5rem .8rem; margin: 1rem 0; }
.state.ok { border-color: var(--ok); } .state.critical { border-color: var(--error); }
.faint { color: var(--faint); }
.wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: .25rem .7rem .25rem 0; border-bottom: 1px solid var(--line);
  vertical-align: top; white-space: nowrap; }
th { color: var(--faint); font-weight: normal; } td:last-child { white-space: normal; min-width: 14rem; }
tr { break-inside: avoid; }
td.ok { color: var(--ok); } td.error { color: var(--error); font-weight: bold; }
td.late { color: var(--late); font-weight: bold; } td.skipped { color: var(--skipped); }
td.cancel { color: var(--cancel); }
svg { width: 100%; max-width: 46rem; height: auto; display: block; }
svg text { font: 8px system-ui, sans-serif; fill: var(--ink); } svg .tick { fill: var(--faint); }
svg .grid { stroke: var(--line); } rect.ok { fill: var(--ok); } rect.error { fill: var(--error); }
rect.late { fill: var(--late); } rect.skipped { fill: var(--skipped); }
rect.cancel { fill: var(--cancel); }
.key span { margin-right: 1rem; white-space: nowrap; } .key i { display: inline-block; width: .7rem;
  height: .7rem; margin-right: .3rem; }
pre { overflow-x: auto; border: 1px solid var(--line); padding: .6rem; font-size: 12px; }
@media print { h2 { break-after: avoid; } body { padding: 0; font-size: 11px; } .wide { overflow: visible; }
  td, td:last-child { white-space: normal; min-width: 0; }
  pre { white-space: pre-wrap; overflow-wrap: anywhere; } }
@media screen and (max-width: 44rem) { tr { display: block; padding: .3rem 0; border-bottom: 1px solid var(--line); }
  td, td:last-child { display: inline-block; border: 0; padding: 0 .7rem 0 0; white-space: normal;
    min-width: 0; }
  td[data-head]::before { content: attr(data-head) " "; color: var(--faint); }
  td:first-child { font-weight: bold; } td:empty, th { display: none; }
  svg text { font-size: 12px; } svg .minor { display: none; } }
)";

const char* ClassOf(const Result& result) {
    if (result.Skipped()) return "skipped";
    static constexpr const char* kClasses[] = {"ok", "error", "late", "late", "cancel"};
    return kClasses[result.code];
}

std::string Element(const char* name, const std::string& text, const std::string& style = "") {
    const std::string attribute = style.empty() ? "" : " class=\"" + style + "\"";
    return std::string("<") + name + attribute + ">" + ForHtml(text) + "</" + name + ">";
}

std::string Head(const std::vector<const char*>& heads) {
    std::string html = "<div class=\"wide\"><table>\n<tr>";
    for (const char* head : heads) html += Element("th", head);
    return html + "</tr>\n";
}

// In place of what could not be read.
constexpr char kUnknown[] = "<p>It is not known.</p>\n";
constexpr char kTableEnd[] = "</table></div>\n";

// A cell that says its column's head where the page is too narrow for columns.
std::string Named(const char* head, const std::string& text) {
    if (text.empty()) return "<td></td>";
    return std::string("<td data-head=\"") + head + "\">" + ForHtml(text) + "</td>";
}

// The cells of a result, its time, how long it took and what it says; of none, empty ones.
struct ResultCells {
    explicit ResultCells(const Result* result) {
        if (result == nullptr) {
            word = Element("td", "none", "faint");
            return;
        }
        word = Element("td", ResultText(*result), ClassOf(*result));
        time = Element("td", PlainTime(result->time));
        took = Named("took", std::to_string(result->seconds) + " s");
        text = Element("td", result->text);
    }

    std::string word;
    std::string time = "<td></td>";
    std::string took = "<td></td>";
    std::string text = "<td></td>";
};

std::string ComponentsHtml(const State& state) {
    if (!state.has_schedule) return "<p>There is no schedule.</p>\n";
    if (state.components.empty()) return kUnknown;
    std::string html = Head({"Component", "Serial number", "Size", "Tests", "Last result", "At",
                             "Took", "Position", "Text"});
    for (const Component& component : state.components) {
        const ResultCells last(component.last);
        html += "<tr>" + Element("td", component.device) +
                Named("serial number", component.serial) +
                Element("td", component.blocks ? SizeText(*component.blocks) : "") +
                Named("tests", component.enabled ? "on" : "off") + last.word + last.time +
                last.took + Named("at", PositionText(component)) + last.text + "</tr>\n";
    }
    return html + kTableEnd;
}

std::string NoResults(const State& state) {
    return state.results.faults.empty() ? "<p>There are no results yet.</p>\n" : kUnknown;
}

std::string TimelineHtml(const State& state) {
    static constexpr const char* kKey[][2] = {{"ok", "OK"},
                                              {"error", "ERROR"},
                                              {"late", "TIMEOUT or ABORT"},
                                              {"skipped", "not tested"},
                                              {"cancel", "CANCEL"}};
    const std::string svg = TimelineSvg(state);
    if (svg.empty()) return NoResults(state);
    std::string html = svg + "<p class=\"key faint\">";
    for (const auto& [style, text] : kKey) {
        html += std::string("<span><i style=\"background: var(--") + style + ")\"></i>" + text +
                "</span>";
    }
    return html + "</p>\n";
}

std::string FaultsHtml(const State& state) {
    if (state.faults.list.empty()) {
        return state.faults.faults.empty() ? "<p>No fault is open.</p>\n" : kUnknown;
    }
    std::string html;
    for (const Fault& fault : state.faults.list) {
        html += "<p><strong>" + ForHtml(fault.id) + "</strong> " +
                ForHtml(fault.fru + ", " + std::to_string(fault.count) + " times, last " +
                        (fault.last == 0 ? "at an unknown time" : PlainTime(fault.last))) +
                "<br>" + ForHtml(fault.summary) + "</p>\n";
        if (!fault.detail.empty()) html += Element("pre", fault.detail) + "\n";
    }
    return html;
}

std::string HistoryHtml(const State& state) {
    const std::vector<Result>& list = state.results.list;
    const size_t shown = std::min(list.size(), kMaxHistoryRows);
    if (shown == 0) return NoResults(state);
    std::string html;
    if (shown < list.size()) {
        html = "<p class=\"faint\">The newest " + std::to_string(shown) + " of " +
               std::to_string(list.size()) + " results.</p>\n";
    }
    html += Head({"Time", "Result", "Test", "Device", "Took", "On", "Text"});
    for (size_t i = list.size(); i-- > list.size() - shown;) {
        const Result& result = list[i];
        const ResultCells cells(&result);
        html += "<tr>" + cells.time + cells.word + Element("td", result.program) +
                Element("td", result.device) + cells.took +
                Named("on", result.request ? "request" : "patrol") + cells.text + "</tr>\n";
    }
    return html + kTableEnd;
}

std::string ProblemsHtml(const State& state) {
    if (state.problems.empty()) return "";
    std::string html = "<h2>Could not be read</h2>\n<ul>\n";
    for (const std::string& problem : state.problems) html += Element("li", problem) + "\n";
    return html + "</ul>\n";
}

std::string HostName() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

std::string Page(const State& state, const std::optional<Hold>& hold) {
    const Verdict verdict = Judge(state, kDefaultMaxAge);
    const std::string title = "Patrol diagnosis of " + HostName();
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n" +
        Element("title", title) + "\n<style>" + kStyle + "</style>\n</head>\n<body>\n" +
        Element("h1", title) + "\n" + Element("p", "As of " + IsoTime(state.now), "faint") +
        "\n<div class=\"state " + LevelWord(verdict.level) + "\">" +
        ForHtml(Capital(verdict.findings.empty() ? verdict.sentence : verdict.findings[0].text) +
                ".");
    if (hold) html += "<br>" + ForHtml("Passes are kept away: " + hold->reason);
    for (size_t i = 1; i < verdict.findings.size(); ++i) {
        html += "<br>" + ForHtml(Capital(verdict.findings[i].text) + ".");
    }
    return html + "</div>\n<h2>Components</h2>\n" + ComponentsHtml(state) +
           "<h2>Results over time</h2>\n" + TimelineHtml(state) + "<h2>Open faults</h2>\n" +
           FaultsHtml(state) + "<h2>History</h2>\n" + HistoryHtml(state) + ProblemsHtml(state) +
           "</body>\n</html>\n";
}

// Takes the place of a file; what else stands there, such as a pipe or "/dev/stdout", which is a
// link, stays and is written to. False with errno set.
bool Write(const std::string& path, const std::string& page) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        const patrol::Descriptor fd(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY));
        return fd.ok() && patrol::WriteAll(fd.get(), page);
    }
    patrol::FileReplacement file(path.c_str());
    return file.stream() != nullptr && file.Write(page) && file.Commit();
}

}  // namespace

int RunReport(const Options& options) {
    if (!PlacesKnown(options.places)) return kExitUnreadable;
    State state;
    ReadState(options.places, &state);
    const std::string page = Page(state, FindHold(options.places));
    if (options.output == "-") {
        Print(page);
    } else if (!Write(options.output, page)) {
        PrintProblems({options.output + " cannot be written: " + std::strerror(errno)});
        return kExitFailed;
    }
    PrintProblems(state.problems);
    return StatusOf(state.problems);
}

}  // namespace patrolctl
