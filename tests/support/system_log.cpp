// Preloaded into the program, takes the place of the C library's system log: a record becomes a
// line "<priority>identity:text" of the file that SYSTEM_LOG names. It is as busy as a system log
// may be as long as there is a file of that name and ".busy", for a minute at most.

#include <stdlib.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

static const char* identity = "";

static void Put(int priority, const char* format, va_list arguments) {
    const char* path = getenv("SYSTEM_LOG");
    if (path == nullptr) return;
    const std::string busy = std::string(path) + ".busy";
    for (int n = 0; n < 6000 && access(busy.c_str(), F_OK) == 0; ++n) usleep(10000);
    std::FILE* file = std::fopen(path, "ae");
    if (file == nullptr) return;
    std::fprintf(file, "<%d>%s:", priority, identity);
    std::vfprintf(file, format, arguments);
    std::fputc('\n', file);
    std::fclose(file);
}

extern "C" void openlog(const char* name, int, int) { identity = name; }
extern "C" void closelog() { identity = ""; }

extern "C" void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Put(priority, format, arguments);
    va_end(arguments);
}
