#include "base/terminal.h"

#include <unistd.h>

#include <string>

#include "base/file.h"

namespace patrol {

void TellTerminal(std::string_view line) {
    if (isatty(STDERR_FILENO) == 1) WriteAll(STDERR_FILENO, std::string(line) + "\n");
}

}  // namespace patrol
