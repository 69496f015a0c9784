#include "base/running_tests.h"

namespace patrol {
namespace {

RunningTest TestOf(int kind) {
    RunningTest test;
    test.kind = kind;
    test.device_name.Assign(FindKind(kind)->name);
    return test;
}

}  // namespace

RunningTest cpu_test = TestOf(kKindCpu);
RunningTest mem_test = TestOf(kKindMemory);

}  // namespace patrol
