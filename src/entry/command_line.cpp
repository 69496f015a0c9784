#include "entry/command_line.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/number.h"
#include "base/run_mode.h"
#include "base/terminal.h"
#include "entry/environment.h"
#include "msg/catalogue.h"
#include "msg/ptl_exit.h"
#include "msg/ptl_printf.h"
#include "msg/trace.h"

namespace patrol {
namespace {

constexpr char kVersion[] = PATROL_VERSION;  // of the project, in CMakeLists.txt
constexpr char kUsage[] =
    "patrol.exe {KVXstart|KVXend|reload|confchg|start|pastart|version} [debug]";
constexpr int kParameterError = 3;

// The two warnings differ by a full stop; both are required as they stand.
constexpr char kSecondMode[] = "Warning:Execution Parameter Error";
constexpr char kNoMode[] = "Warning:Execution Parameter Error.";

// Paths and catalogue come first, as the message and the traces need them.
[[noreturn]] void ParameterError(const char* warning, const CommandText& command) {
    TellTerminal(std::string("usage: ") + kUsage);
    set_filepath();
    ptl_set_msglist();
    ptl_printf(kAgentEvent, nullptr, "W2896");
    Ptltrprintf("[%s] %s\n", "main", warning);
    Ptltrprintf("[%s] execute   : %s\n", "main", command.c_str());
    Ptltrprintf("[%s] usage     : %s\n", "main", kUsage);
    ptl_exit(kParameterError);
}

bool Is(const char* word, const char* name) { return std::strcmp(word, name) == 0; }

// Returns the mode that a word selects; 0 when it is no mode word.
uint8_t ModeOf(const char* word) {
    if (Is(word, "KVXstart")) return kModeAgentStart;
    if (Is(word, "start")) return kModeStart;
    if (Is(word, "reload")) return kModeReload;
    if (Is(word, "confchg")) return kModeConfigChange;
    // Agents append their own endings to this word.
    if (StartsWith(word, "pastart")) return kModePadiag;
    return 0;
}

// Takes the number of the word "point="; without one it stays as it was.
void TakePoint(const char* word) {
    constexpr size_t kNumberAt = sizeof "point=" - 1;
    if (word[kNumberAt] != '\0') error_point = ParseInt(word + kNumberAt, 0);
}

// The order matters: "version" counts even behind a mode, "KVXend" does not.
void TakeWord(const char* word, const CommandText& command) {
    if (Is(word, "version")) {
        std::printf("%s\n", kVersion);
        std::fflush(stdout);
        ptl_exit(0);
    }
    if (Is(word, "debug")) {
        entry_cmd |= kDebugFlag;
    } else if (StartsWith(word, "point=")) {
        TakePoint(word);
    } else {
        if (RunMode() != 0) ParameterError(kSecondMode, command);
        if (Is(word, "KVXend")) ptl_exit(0);
        const uint8_t mode = ModeOf(word);
        if (mode == 0) ParameterError(kNoMode, command);
        entry_cmd |= mode;
    }
}

}  // namespace

CommandText JoinWords(int count, const char* const* words) {
    CommandText command;
    for (int i = 0; i < count; ++i) {
        command.Append(words[i]);
        command.Append(" ");
    }
    return command;
}

void ParseCommandLine(int count, const char* const* words, const CommandText& command) {
    for (int i = 1; i < count; ++i) TakeWord(words[i], command);
    if (RunMode() == 0) ParameterError(kNoMode, command);
}

}  // namespace patrol
