#include "msg/catalogue.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/paths.h"
#include "base/terminal.h"
#include "msg/builtin_messages.h"
#include "msg/call_failure.h"
#include "msg/ptl_exit.h"
#include "msg/ptl_printf.h"

namespace patrol {

CatalogueEntry global_msg_list[kCatalogueSize];

namespace {

constexpr size_t kTextColumn = 9;  // where the text begins in a catalogue line
constexpr size_t kNumberSize = 5;

bool OneOf(std::string_view line, size_t at, const char* accepted) {
    return at < line.size() && std::strchr(accepted, line[at]) != nullptr;
}

// Returns whether the line holds a message that is this program's.
bool Accepted(std::string_view line) {
    return OneOf(line, 0, "\"") && OneOf(line, 1, "IWE") && OneOf(line, 3, "8") &&
           OneOf(line, 4, "02349") && OneOf(line, 6, "\"");
}

// The two messages that tell of the missing catalogue would be in it.
void ReportMissingCatalogue(const char* path, int error) {
    TellTerminal(std::string("patrol.exe: the message catalogue ") + path +
                 " cannot be read: " + std::strerror(error));
    global_msg_list[0] = {"E3895", "System call error <<%s>>, errno:<<%d>>"};
    global_msg_list[1] = {"E3899", "<<file name = %s>>"};
    CallFailure failure("fopen", error);
    failure.file = path;
    failure.mode = "r";
    failure.event_text = path;
    ReportCallFailure(failure);
}

}  // namespace

bool TakeCatalogueLine(std::string_view line, CatalogueEntry* entry) {
    if (!Accepted(line)) return false;
    entry->number.Assign(line.substr(1, kNumberSize));
    std::string_view text = line.size() > kTextColumn ? line.substr(kTextColumn) : "";
    text = text.substr(0, MessageFormat::kSize - 1);
    // The last one, because texts may hold a ";" of their own.
    const size_t end = text.rfind(';');
    // The character before the ";" is the closing quote.
    entry->format.Assign(end == std::string_view::npos || end == 0 ? "" : text.substr(0, end - 1));
    return true;
}

int ptl_set_msglist() {
    for (CatalogueEntry& entry : global_msg_list) entry = CatalogueEntry();
    Path path;
    path.Format("%s/%s", path_name, "pat_msge.txt");
    const Stream file = OpenForReading(path.c_str());
    if (file == nullptr) {
        ReportMissingCatalogue(path.c_str(), errno);
        ptl_exit(1);
    }
    char line[512];
    int used = 0;
    while (used < kCatalogueSize && std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (TakeCatalogueLine(line, &global_msg_list[used])) ++used;
    }
    return 0;
}

const char* msgno_to_fmt(const char* number) {
    if (std::strchr("IWE", number[0]) != nullptr && number[0] != '\0') {
        for (const CatalogueEntry& entry : global_msg_list) {
            if (std::strncmp(entry.number.c_str(), number, kNumberSize) == 0) {
                return entry.format.c_str();
            }
        }
        return nullptr;
    }
    for (const BuiltinMessage* message = local_msg_list; message->number[0] != 'X'; ++message) {
        if (std::strncmp(message->number, number, kNumberSize) == 0) return message->format;
    }
    return nullptr;
}

}  // namespace patrol
