#include "report/error_messages.h"

#include <cstring>
#include <string>

#include "msg/event.h"
#include "msg/trace.h"

namespace patrol {
namespace {

// What stands before the two digits of a message's number.
constexpr char kNumberPrefix[] = "E39";

struct ErrorText {
    int code;
    const char* number;
    bool takes_argument;
    int level;  // 0: not for the agent
    const char* text;
};

constexpr int kEndOfTable = 0x9999;

constexpr ErrorText kErrorTexts[] = {
    {0x21, "21", true, 1, ":The file opening error was detected.<<(File name:"},
    {0x23, "23", true, 1, ":The file read error was detected.<<(File name:"},
    {0x24, "24", true, 1, ":The file write error was detected.<<(File name:"},
    {0x25, "25", false, 2, ":There is no data that coressponds to the condition."},
    {0x26, "26", true, 2, ":The command is not found.<<("},
    {0x27, "27", true, 2, ":It failed in the execution of the command.<<("},
    {0x28, "28", true, 2, ":The parameter outside correspondence I/F was detected.<<("},
    {0x29, "29", true, 1, ":The file is broken.<<(File name:"},
    {0x33, "33", false, 1, ":It failed in the area securing.<<>>"},
    {0x34, "34", false, 2,
     ":The file undefinition of the key word of the log list error was detected."},
    {0x36, "36", true, 1, ":Internal contradiction was detected.<<("},
    {0x41, "41", false, 2, ":The specification of a start origin is not \"launch.\"."},
    {0x42, "42", false, 2, ":The date is not a form of yyyy-mm-ddThh:mm:ss+hh:mm."},
    {0x43, "43", false, 2, ":The date will be set in the future."},
    {0x44, "44", false, 2, ":The specified end date is the past from the beginning date."},
    {0x45, "45", false, 2, ":The specified device is off the subject a device."},
    {0x46, "46", false, 2, ":The specified mounting position is improper."},
    {0x47, "47", true, 2, ":The mistake is found in the argument.<<("},
    {0x51, "51", false, 0, ":Analysis processing has already been started.<<>>"},
    {0x52, "52", false, 2, ":File pointer error."},
    {0x53, "53", false, 1,
     ":Since the updating maximum was reached. renewal of an analysis file is interrupted.<<>>"},
    {0x54, "54", false, 2, ":Outside device detection for an omen."},
    {0x55, "55", false, 1,
     ":The statistics information file interrupted the device addition by the registration "
     "maximum.<<>>"},
    {0x62, "62", false, 2, ":KVX_config path is not found."},
    {0x63, "63", false, 2, ":KVX_data path is not found."},
    {0x64, "64", false, 2, ":KVX_log path is not found."},
    {0x74, "74", false, 0, ":The processing of the object data is off the subject.<<>>"},
    {0x00, "00", true, 0, ":("},
    {kEndOfTable, "", false, 0, ""},
};

// Returns the row of `code`, or that of an internal contradiction.
const ErrorText& FindError(int code) {
    const ErrorText* internal = nullptr;
    for (const ErrorText& row : kErrorTexts) {
        if (row.code == code && code != kEndOfTable) return row;
        if (row.code == kErrorInternal) internal = &row;
    }
    return *internal;
}

}  // namespace

void put_error_message(int code, const char* argument) {
    const ErrorText& row = FindError(code);
    std::string message = std::string(kNumberPrefix) + row.number + row.text;
    const bool opened = row.takes_argument && std::strstr(row.text, "<<(") != nullptr;
    if (row.takes_argument && argument != nullptr) message += argument;
    if (opened) message += argument == nullptr && row.level == 2 ? "---)>>" : ">>";
    message += "\n";
    // A failure to tell the agent is itself told to the trace alone: there is nobody else.
    if (row.level != 0 && SendEvent(message) != 0) {
        outtrace(":An error message cannot be outputted");
    }
    outtrace(message.c_str());
}

}  // namespace patrol
