// patrolctl doctor: what is wrong with the settings.

#include <algorithm>

#include "commands/commands.h"
#include "commands/common.h"
#include "doctor/checks.h"
#include "model/files.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

const char* GradeWord(Grade grade) {
    static constexpr const char* kWords[] = {"note", "warning", "error"};
    return kWords[static_cast<size_t>(grade)];
}

Colour ColourOf(Grade grade) {
    if (grade == Grade::kError) return Colour::kRed;
    return grade == Grade::kWarning ? Colour::kYellow : Colour::kFaint;
}

// "FILE:LINE: warning: TEXT".
std::string Line(const Diagnosis& diagnosis, bool colour) {
    std::string place = diagnosis.file;
    if (diagnosis.line > 0) place += ":" + std::to_string(diagnosis.line);
    if (!place.empty()) place += ": ";
    const std::string word = GradeWord(diagnosis.grade);
    return ForTerminal(place) + (colour ? Coloured(word, ColourOf(diagnosis.grade)) : word) + ": " +
           ForTerminal(diagnosis.text) + "\n";
}

Json DiagnosisJson(const Diagnosis& diagnosis) {
    Json json;
    json["level"] = GradeWord(diagnosis.grade);
    json["file"] = TextOrNull(diagnosis.file);
    json["line"] = diagnosis.line > 0 ? Json(diagnosis.line) : Json();
    json["text"] = diagnosis.text;
    return json;
}

long Count(const Findings& findings, Grade grade) {
    return std::count_if(findings.list().begin(), findings.list().end(),
                         [grade](const Diagnosis& diagnosis) { return diagnosis.grade == grade; });
}

std::string Plural(long count, const std::string& word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

}  // namespace

int RunDoctor(const Options& options) {
    Findings findings;
    CheckPlaces(options.places, &findings);
    if (WhyClosed(options.places.data).empty()) {
        CheckCatalogue(options.places, &findings);
        const PassSettings settings = CheckSettings(options.places, &findings);
        CheckDisks(options.places, settings, &findings);
        CheckRemains(options.places, &findings);
    }
    const long errors = Count(findings, Grade::kError);
    const long warnings = Count(findings, Grade::kWarning);
    Json json = Json::array();
    std::string text;
    for (const Diagnosis& diagnosis : findings.list()) {
        json.push_back(DiagnosisJson(diagnosis));
        text += Line(diagnosis, options.colour);
    }
    text += Plural(errors, "error") + ", " + Plural(warnings, "warning") + ".\n";
    Print(options.json ? JsonText(json) : text);
    if (errors > 0) return 2;
    return warnings > 0 ? 1 : kExitOk;
}

}  // namespace patrolctl
