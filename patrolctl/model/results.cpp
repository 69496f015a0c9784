#include "model/results.h"

#include <algorithm>
#include <utility>

#include "base/kinds.h"
#include "model/files.h"

namespace patrolctl {
namespace {

// The controller ages its histories at one MiB; a larger one was made so by somebody else.
constexpr size_t kMaxHistory = 64 << 20;

enum class Source { kPatrol, kRequest, kEither };

int KindOf(std::string_view program) {
    for (const patrol::Kind& kind : patrol::kKinds) {
        if (program == kind.program) return kind.code;
    }
    return 0;
}

Result MakeResult(patrol::ResultLine line, Source source) {
    Result result;
    result.time = line.time;
    result.code = line.result;
    result.kind = KindOf(line.component);
    result.program = std::move(line.component);
    result.device = std::move(line.device);
    result.seconds = line.seconds;
    if (source != Source::kPatrol) result.request = patrol::ParseDetail(line.rest);
    const std::string& text = result.request ? result.request->message : line.rest;
    result.text = text.substr(std::min(text.find_first_not_of(' '), text.size()));
    return result;
}

// Takes the lines of one file.
class Reader {
 public:
    Reader(Results* results, Source source) : results_(results), source_(source) {}

    void TakeLine(std::string_view line, size_t number) {
        std::time_t time = 0;
        if (std::optional<patrol::ResultLine> result = patrol::ParseResult(line)) {
            time = result->time;
            results_->list.push_back(MakeResult(std::move(*result), source_));
        } else if (!patrol::ParseChange(line, &time)) {
            if (strange_++ == 0) first_strange_ = number;
            return;
        }
        if (results_->first == 0 || time < results_->first) results_->first = time;
    }

    std::string Fault() const {
        if (strange_ == 0) return "";
        const std::string lines = "line " + std::to_string(first_strange_) + " is no result";
        return strange_ == 1 ? lines
                             : lines + ", nor are " + std::to_string(strange_ - 1) + " others";
    }

 private:
    Results* results_;
    Source source_;
    size_t strange_ = 0;
    size_t first_strange_ = 0;
};

void ReadHistory(const std::string& path, Source source, Results* results) {
    const FileText file = ReadText(path, kMaxHistory);
    if (file.missing()) return;
    Reader reader(results, source);
    ForEachLine(file.text,
                [&](std::string_view line, size_t number) { reader.TakeLine(line, number); });
    for (const std::string& fault : {file.Fault(), reader.Fault()}) {
        if (!fault.empty()) results->faults.push_back(Said(path, fault));
    }
}

}  // namespace

bool Result::Failed() const {
    return code == patrol::kResultError || code == patrol::kResultTimeout ||
           code == patrol::kResultAbort;
}

Results ReadResults(const Places& places) {
    Results results;
    const std::string closed = WhyClosed(places.log);
    if (!closed.empty()) {
        results.faults.push_back(Said(places.log, closed));
        return results;
    }
    const std::pair<const char*, Source> histories[] = {{patrol::kPatrolHistory, Source::kPatrol},
                                                        {patrol::kPadiagHistory, Source::kRequest},
                                                        {patrol::kAgedHistory, Source::kEither}};
    for (const auto& [name, source] : histories) {
        // Behind the name of an aged file stands its generation.
        for (const char* generation : {"3", "2", "1", ""}) {
            ReadHistory(PathIn(places.log, std::string(name) + generation), source, &results);
        }
    }
    // Lines of one second stay in the order in which they stand.
    std::stable_sort(results.list.begin(), results.list.end(),
                     [](const Result& a, const Result& b) { return a.time < b.time; });
    return results;
}

std::vector<Result> ParseRequestResults(std::string_view text) {
    std::vector<Result> list;
    ForEachLine(text, [&](std::string_view line, size_t) {
        if (auto result = patrol::ParseResult(line)) {
            list.push_back(MakeResult(std::move(*result), Source::kRequest));
        }
    });
    return list;
}

}  // namespace patrolctl
