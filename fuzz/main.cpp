// What libFuzzer calls: the one target that this program is made of.

#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    patrol_fuzz::Input input(std::string(reinterpret_cast<const char*>(data), size));
    patrol_fuzz::Targets().begin()->second(input);
    return 0;
}
