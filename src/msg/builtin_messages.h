// The message texts that are not for users (L, T, D). Those for users are in the catalogue.
#pragma once

namespace patrol {

struct BuiltinMessage {
    const char* number;
    const char* format;
};

// The entry "X" ends them.
extern const BuiltinMessage local_msg_list[];

}  // namespace patrol
