#include "base/blocking.h"

namespace patrol {
namespace {

// One routine is enough: profile writes are all that is ever put off. While there are none it is
// null, and a wait costs nothing more than waiting.
void (*before_blocking)() = nullptr;

}  // namespace

void CallBeforeBlocking(void (*routine)()) { before_blocking = routine; }

bool AnythingPutOff() { return before_blocking != nullptr; }

void PrepareToBlock() {
    if (AnythingPutOff()) before_blocking();
}

}  // namespace patrol
