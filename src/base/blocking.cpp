#include "base/blocking.h"

namespace patrol {
namespace {

void (*before_blocking)() = nullptr;

}  // namespace

void CallBeforeBlocking(void (*routine)()) { before_blocking = routine; }

bool AnythingPutOff() { return before_blocking != nullptr; }

void PrepareToBlock() {
    if (AnythingPutOff()) before_blocking();
}

}  // namespace patrol
