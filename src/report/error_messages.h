// The numbered error texts of the parts reports and the command runner.
#pragma once

namespace patrol {

// Codes for put_error_message. The number that a message shows is the code in hexadecimal.
enum : int {
    kErrorFileOpen = 0x21,
    kErrorFileWrite = 0x24,
    kErrorCommand = 0x27,
    kErrorInternal = 0x36,
};

// Composes message `code` with `argument` (null: none), sends it to the agent unless it is of level
// 0, and traces it. An unknown code is an internal contradiction.
void put_error_message(int code, const char* argument);

}  // namespace patrol
