#include "base/kinds.h"

namespace patrol {

const Kind* FindKind(int code) {
    for (const Kind& kind : kKinds) {
        if (kind.code == code) return &kind;
    }
    return nullptr;
}

}  // namespace patrol
