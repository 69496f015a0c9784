// patrolctl status: what is tested, when, and what was found.

#include "base/kinds.h"
#include "commands/commands.h"
#include "commands/common.h"
#include "model/running.h"
#include "model/times.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

// What goes on now, beside what the files say.
struct Now {
    std::vector<RunningTest> running;
    std::optional<Hold> hold;
};

std::string TurnText(const Component& component) {
    if (component.turn == kLateTurn) return "later";
    if (component.turn == kNoTurn) return component.enabled ? "never" : "";
    return component.turn == 1 ? "next pass" : "in " + std::to_string(component.turn) + " passes";
}

std::string FaultIds(const Component& component) {
    std::string ids;
    for (const Fault* fault : component.faults) ids += (ids.empty() ? "" : ", ") + fault->id;
    return ids;
}

std::vector<Cell> Row(const Component& component) {
    const Result* last = component.last;
    const bool turns = component.turn != kNoTurn || !component.enabled;
    return {component.device,
            component.serial,
            component.blocks ? SizeText(*component.blocks) : "",
            {component.enabled ? "on" : "off", component.enabled ? Colour::kNone : Colour::kFaint},
            {TurnText(component), turns ? Colour::kNone : Colour::kYellow},
            last == nullptr ? Cell("none") : Cell(ResultText(*last), ColourOf(*last)),
            last == nullptr ? "" : PlainTime(last->time),
            last == nullptr ? "" : std::to_string(last->seconds) + " s",
            PositionText(component),
            {FaultIds(component), Colour::kRed},
            last == nullptr ? "" : last->text};
}

std::string ProgressText(const RunningTest& test) {
    if (!test.progress) return "";
    std::string text = std::to_string(static_cast<int>(test.progress->Done() * 100)) + " %";
    if (test.progress->limit > 0) text += " of " + std::to_string(test.progress->limit) + " s";
    return text;
}

std::string RunningText(const std::vector<RunningTest>& running, bool colour) {
    Table table({"RUNNING", "DEVICE", "FOR", "PROGRESS", "ON"});
    for (const RunningTest& test : running) {
        table.Add({patrol::FindKind(test.kind)->program, test.device, Span(test.seconds),
                   ProgressText(test), test.on_request ? "request" : "patrol"});
    }
    return table.Text(colour);
}

// The first line: all of it in one sentence.
std::string Sentence(const Now& now, const Verdict& verdict) {
    std::string sentence = Capital(verdict.sentence);
    if (now.hold) sentence += "; passes are kept away: " + now.hold->reason;
    if (now.running.size() == 1) sentence += "; a test is running";
    if (now.running.size() > 1) {
        sentence += "; " + std::to_string(now.running.size()) + " tests are running";
    }
    return sentence + ".";
}

std::string Text(const State& state, const Now& now, const Options& options) {
    const Verdict verdict = Judge(state, kDefaultMaxAge);
    const std::string sentence = ForTerminal(Sentence(now, verdict));
    std::string text =
        (options.colour ? Coloured(sentence, ColourOf(verdict.level)) : sentence) + "\n";
    Table table({"COMPONENT", "SERIAL", "SIZE", "TESTS", "TURN", "LAST", "AT", "TOOK", "POSITION",
                 "FAULTS", "TEXT"});
    for (const Component& component : state.components) table.Add(Row(component));
    for (const std::string& part :
         {table.Text(options.colour), RunningText(now.running, options.colour)}) {
        if (!part.empty()) text += "\n" + part;
    }
    if (now.hold) {
        text += "\n" +
                ForTerminal("HOLD  " + (now.hold->word.empty() ? "" : now.hold->word + ": ") +
                            now.hold->reason) +
                "\n";
    }
    return text;
}

Json ComponentJson(const Component& component) {
    Json json;
    json["kind"] = KindJson(component.kind);
    json["device"] = component.device;
    json["serial"] = TextOrNull(component.serial);
    json["bytes"] = component.blocks ? Json(*component.blocks * 512) : Json();
    json["enabled"] = component.enabled;
    json["due"] = component.due;
    json["turn"] = component.turn > 0 ? Json(component.turn) : Json();
    json["last"] = nullptr;
    if (component.last != nullptr) {
        const Json last = ResultJson(*component.last);
        for (const char* key : {"result", "time", "text", "seconds"}) json["last"][key] = last[key];
    }
    const bool disk = component.kind == patrol::kKindHdd;
    json["address"] = disk ? Json(component.address) : Json();
    json["percent"] = component.ratio ? Json(*component.ratio * 100) : Json();
    json["faults"] = Json::array();
    for (const Fault* fault : component.faults) json["faults"].push_back(fault->id);
    return json;
}

Json RunningJson(const RunningTest& test) {
    Json json;
    json["kind"] = KindJson(test.kind);
    json["device"] = test.device;
    json["pid"] = test.pid;
    json["seconds"] = test.seconds;
    json["on_request"] = test.on_request;
    json["percent"] = test.progress ? Json(test.progress->Done() * 100) : Json();
    return json;
}

Json StatusJson(const State& state, const Now& now) {
    const Verdict verdict = Judge(state, kDefaultMaxAge);
    Json json;
    json["version"] = 1;
    json["state"] = LevelWord(verdict.level);
    json["sentence"] = Sentence(now, verdict);
    json["time"] = IsoTime(state.now);
    json["schedule"] = TimeOrNull(state.schedule_time);
    json["components"] = Json::array();
    for (const Component& component : state.components) {
        json["components"].push_back(ComponentJson(component));
    }
    json["running"] = Json::array();
    for (const RunningTest& test : now.running) json["running"].push_back(RunningJson(test));
    json["hold"] = nullptr;
    if (now.hold) json["hold"] = {{"word", now.hold->word}, {"reason", now.hold->reason}};
    json["problems"] = state.problems;
    return json;
}

}  // namespace

int RunStatus(const Options& options) {
    if (!PlacesKnown(options.places)) return kExitUnreadable;
    State state;
    ReadState(options.places, &state);
    Now now;
    now.running = FindRunningTests(options.places);
    now.hold = FindHold(options.places);
    Print(options.json ? JsonText(StatusJson(state, now)) : Text(state, now, options));
    if (!options.json) PrintProblems(state.problems);
    return StatusOf(state.problems);
}

}  // namespace patrolctl
