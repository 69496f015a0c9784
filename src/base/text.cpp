#include "base/text.h"

namespace patrol {

int snprintfx(char* buffer, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

std::string WithoutControls(std::string_view text) {
    std::string kept;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '\t' || (code >= ' ' && code != 0x7f)) kept += c;
    }
    return kept;
}

}  // namespace patrol
