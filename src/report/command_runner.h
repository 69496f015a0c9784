// Running one of the agent's commands to its end.
#pragma once

namespace patrol {

// Codes for put_error_message. The number that a message shows is the code in hexadecimal.
enum : int {
    kErrorFileOpen = 0x21,
    kErrorFileWrite = 0x24,
    kErrorCommand = 0x27,
    kErrorInternal = 0x36,
};

// Runs `path` with `arguments` (null-ended, the first being the command's name) for at most
// `seconds` (0 or below: no limit). Returns its exit status, 0 for one that a signal ended, or -1
// when it could not be started. While it runs, SIGTERM and the time limit end the command with
// SIGTERM, and SIGINT and SIGHUP wait. After SIGTERM, or when the time was up, the result is bits 8
// to 15 of what interproc returned.
int execute(const char* path, char* const* arguments, int seconds);

// Ends the running command with SIGTERM and waits for it. 1 for signal SIGTERM, else the wait
// status; -1 when it could not be signalled.
int interproc(int signal);

// Composes message `code` with `argument` (null: none), sends it to the agent unless it is of level
// 0, and traces it. An unknown code is an internal contradiction.
void put_error_message(int code, const char* argument);

}  // namespace patrol
