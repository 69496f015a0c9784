#include "options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "commands/commands.h"
#include "model/times.h"
#include "show/escape.h"

namespace patrolctl {
namespace {

// How many letters are to be changed, added or taken away to make `a` into `b`.
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row[b.size()];
}

// The word of `known` that is near enough to be what was meant; empty where none is.
std::string Nearest(const std::string& word, const std::vector<std::string>& known) {
    std::string nearest;
    const size_t letters = word.size() - std::min(word.find_first_not_of('-'), word.size());
    size_t least = std::max<size_t>(letters / 2, 1) + 1;
    for (const std::string& candidate : known) {
        // A beginning, or the letters in another order, is as near as can be.
        const bool near =
            candidate.find(word) == 0 ||
            std::is_permutation(word.begin(), word.end(), candidate.begin(), candidate.end());
        const size_t distance = near ? 1 : Distance(word, candidate);
        if (distance >= least) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

bool IsOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

// The words that `app` understands: its commands, or its options and those of what it belongs to.
std::vector<std::string> KnownWords(const CLI::App* app, bool options) {
    std::vector<std::string> words;
    if (!options) {
        for (const CLI::App* command : app->get_subcommands([](const CLI::App*) { return true; })) {
            words.push_back(command->get_name());
        }
        return words;
    }
    for (; app != nullptr; app = app->get_parent()) {
        for (const CLI::Option* option : app->get_options()) {
            if (option->get_group().empty()) continue;  // hidden
            for (const std::string& name : option->get_lnames()) words.push_back("--" + name);
        }
    }
    return words;
}

int Complain(const std::string& sentence, const std::string& suggestion) {
    const std::string more = suggestion.empty() ? "" : " Did you mean \"" + suggestion + "\"?";
    std::fprintf(stderr, "patrolctl: %s%s\n", sentence.c_str(), more.c_str());
    std::fputs("\"patrolctl --help\" shows what there is.\n", stderr);
    return kExitUsage;
}

// The command that was given, the innermost.
const CLI::App* GivenCommand(const CLI::App* app) {
    const auto given = app->get_subcommands();
    return given.empty() ? app : GivenCommand(given.front());
}

int ComplainOfWord(const CLI::App& app, const std::string& word) {
    const CLI::App* command = GivenCommand(&app);
    const bool option = IsOption(word);
    const std::string shown = ForTerminal(word.substr(0, option ? word.find('=') : word.npos));
    if (option && command != &app && command->get_option_no_throw(shown) != nullptr) {
        return Complain("\"" + shown + "\" goes after \"" + command->get_name() + "\".", "");
    }
    const std::string where = command == &app ? "" : " of \"" + command->get_name() + "\"";
    const std::string what = option ? "option" : command == &app ? "command" : "argument";
    return Complain("there is no " + what + " \"" + shown + "\"" + where + ".",
                    Nearest(shown, KnownWords(command, option)));
}

bool WantsColour(bool no_colour) {
    const char* wish = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return !no_colour && isatty(STDOUT_FILENO) == 1 && (wish == nullptr || *wish == '\0') &&
           terminal != nullptr && std::string(terminal) != "dumb";
}

std::string CheckSpan(const std::string& text) {
    return ParseSpan(text) ? "" : "\"" + ForTerminal(text) + "\" is no age such as 2d or 12h";
}

std::string CheckTime(const std::string& text) {
    return ParseSpan(text) || ParseIsoTime(text)
               ? ""
               : "\"" + ForTerminal(text) +
                     "\" is neither a time such as 2026-11-21T22:15 nor an age such as 2d";
}

std::string CheckKinds(const std::string& text) {
    for (const std::string& kind : CLI::detail::split(text, ',')) {
        if (kind != "cpu" && kind != "mem" && kind != "hdd") {
            return "\"" + ForTerminal(kind) + "\" is none of cpu, mem and hdd";
        }
    }
    return "";
}

// The whole command line: CLI11's part of it, and what it has found.
class CommandLine {
 public:
    explicit CommandLine(Options* options) : options_(options) {
        app_.name("patrolctl");
        app_.set_version_flag("--version", "patrolctl " PATROL_VERSION);
        app_.require_subcommand(0, 1);
        app_.get_formatter()->label("SUBCOMMAND", "COMMAND");
        app_.fallthrough();
        Places& places = options->places;
        app_.add_option("--data", places.data, "Directory of settings and schedules (KVX_data)")
            ->type_name("DIR");
        app_.add_option("--log", places.log, "Directory of histories and logs (KVX_log)")
            ->type_name("DIR");
        app_.add_option("--bin", places.bin, "Directory of the test programs (KVX_bin)")
            ->type_name("DIR");
        app_.add_option("--temp", places.temp, "Directory of part reports (KVX_temp)")
            ->type_name("DIR");
        app_.add_flag("--no-color", no_colour_, "No colours, even on a terminal");
        // It may stand before the command as well; the commands that have it say so themselves.
        app_.add_flag("--json", json_, "JSON instead of text")->group("");
        AddQuestions();
        AddActions();
        // Last, as the commands would have it from here.
        app_.footer(
            "\"patrolctl COMMAND --help\" says more. Exit statuses: 0 done, 1 it could not be "
            "done,\n"
            "3 something could not be read, 64 the words were wrong; \"check\", \"doctor\" and "
            "\"run\"\n"
            "have others: see patrolctl(1).\n");
    }

    CLI::App& app() { return app_; }
    Command command() const { return command_; }
    bool no_colour() const { return no_colour_; }

 private:
    CLI::App* Add(const char* name, const char* description, Command routine, bool json) {
        CLI::App* added = app_.add_subcommand(name, description)->group("Commands");
        added->fallthrough();
        added->callback([this, routine, json] {
            command_ = routine;
            if (json_ && !json) throw CLI::ExtrasError({"--json"});
            options_->json = options_->json || json_;
        });
        if (json) added->add_flag("--json", options_->json, "JSON instead of text");
        return added;
    }

    void AddQuestions() {
        Add("status", "What is tested, when, and what was found", RunStatus, true);
        CLI::App* next = Add("next", "What the next passes will test", RunNext, true);
        next->add_option("N", options_->passes, "How many passes (4)")
            ->option_text(" ")
            ->check(CLI::Range(1, 1000));
        CLI::App* history = Add("history", "The results that are kept", RunHistory, true);
        history
            ->add_option("--since", options_->since,
                         "Only from this time (2026-11-21T22:15) or age (2d) on")
            ->type_name("TIME")
            ->check(CheckTime);
        history
            ->add_option("--component", options_->component,
                         "Only of a kind, a test program or a device")
            ->type_name("NAME");
        history->add_flag("--failed", options_->failed, "Only ERROR, TIMEOUT and ABORT");
        CLI::App* faults = Add("faults", "Open faults, the newest first", RunFaults, true);
        CLI::App* clear = faults->add_subcommand("clear", "Move a fault aside")->group("Commands");
        clear->fallthrough();
        clear->add_option("ID", options_->fault_id, "The fault's ID")
            ->option_text(" ")
            ->required()
            ->check([](const std::string& id) { return id.empty() ? "it is empty" : ""; });
        CLI::App* check =
            Add("check", "One line and a status for a monitoring system", RunCheck, true);
        check->add_option("--max-age", max_age_, "How old a result may be (2d)")
            ->type_name("AGE")
            ->check(CheckSpan)
            ->each([this](const std::string& text) { options_->max_age = *ParseSpan(text); });
        check->add_flag("--npd", options_->npd, "Statuses for node-problem-detector");
        Add("metrics", "The same for Prometheus", RunMetrics, false);
        Add("doctor", "What is wrong with the settings", RunDoctor, true);
    }

    void AddActions() {
        CLI::App* run = Add("run", "Diagnose now, and show the progress", RunDiagnosis, false);
        run->add_option("LEVEL", options_->level, "1, 2 or 3 (1)")
            ->option_text(" ")
            ->check(CLI::Range(1, 3));
        run->add_option("--kinds", options_->kinds, "Some of cpu,mem,hdd (all)")
            ->type_name("KINDS")
            ->check(CheckKinds);
        run->add_option("--time", options_->seconds, "Seconds for each test; 0: one round (60)")
            ->option_text("SECONDS")
            ->check(CLI::Range(0, 604800));
        run->add_option("--controller", options_->controller, "Where patrol.exe is")
            ->type_name("FILE");
        CLI::App* validate =
            Add("validate",
                "Judge the records of a test program: from FILE, from standard input, "
                "or as \"-- COMMAND ...\" writes them",
                RunValidate, false);
        validate->add_option("FILE", options_->file, "The records")->option_text(" ");
        CLI::App* report = Add("report", "One page with everything", RunReport, false);
        report->add_option("-o,--output", options_->output, "The file to write")
            ->type_name("FILE")
            ->required();
    }

    Options* options_;
    CLI::App app_{"Shows what the patrol diagnosis does, asks it, and warns."};
    Command command_ = nullptr;
    bool no_colour_ = false;
    bool json_ = false;
    std::string max_age_;
};

// Takes what follows "--" from the words: the command that "validate" is to start.
std::vector<std::string> TakeCommand(int* count, char** words) {
    const auto end = words + *count;
    const auto is = [](const char* wanted) {
        return [wanted](const char* word) { return std::string(word) == wanted; };
    };
    const auto dashes = std::find_if(words, end, is("--"));
    if (dashes == end || std::find_if(words, dashes, is("validate")) == dashes) return {};
    *count = static_cast<int>(dashes - words);
    return {dashes + 1, end};
}

int ReportParseError(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // help and version
    const std::vector<std::string> strange = app.remaining(true);
    if (!strange.empty()) return ComplainOfWord(app, strange.front());
    if (error.get_name() == "ExtrasError") return ComplainOfWord(app, "--json");
    return Complain(ForTerminal(error.what()) + ".", "");
}

}  // namespace

Command ParseCommandLine(int count, char** words, Options* options, int* status) {
    const int all = count;
    options->words = TakeCommand(&count, words);
    CommandLine line(options);
    try {
        line.app().parse(count, words);
    } catch (const CLI::ParseError& error) {
        *status = ReportParseError(line.app(), error);
        return nullptr;
    }
    if (count != all && (options->words.empty() || !options->file.empty())) {
        *status = Complain("\"validate\" takes a file, or \"--\" and a command.", "");
        return nullptr;
    }
    if (line.command() == nullptr) {
        std::fputs(line.app().help().c_str(), stderr);
        *status = kExitUsage;
        return nullptr;
    }
    options->places = FindPlaces(options->places);
    options->colour = WantsColour(line.no_colour());
    return line.command();
}

}  // namespace patrolctl
