// adapter: commands as tests and nothing else, for who has no other test program or one of his own.
//
// Called by another program's name (a link "cputest") it stands for that, else for the one that
// tests the device.

#include <string>

#include "adapter/external.h"
#include "lib/run.h"

namespace {

std::string ProgramFor(int argc, const char* const* argv) {
    const std::string path = argc > 0 ? argv[0] : "";
    const std::string own = path.substr(path.rfind('/') + 1);
    for (const char* name : {"cputest", "memtest", "hddtest"}) {
        if (own == name) return name;
    }
    std::string device;
    for (int i = 1; i + 1 < argc; ++i) {
        const std::string word = argv[i];
        if (word == "-dev" || word == "/dev") device = argv[++i];
    }
    if (device == "mem") return "memtest";
    return device.rfind("/dev/", 0) == 0 ? "hddtest" : "cputest";
}

}  // namespace

int main(int argc, char** argv) {
    testprog::EnterBackground();
    return testprog::RunExternal(ProgramFor(argc, argv), argc, argv);
}
