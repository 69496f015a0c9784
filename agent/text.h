// Small texts from files of the kernel.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent {

// The text without white space and NULs at its ends, every other character that is not printable
// ASCII as "?", cut at `limit`. Firmware says what it likes; readers of the configuration need one
// line.
std::string Clean(std::string_view text, size_t limit = 120);

// The first 4096 bytes of a file from `skip` on, cleaned; empty where it cannot be read.
std::string ReadWord(const std::string& path, size_t skip = 0);

// The first `limit` bytes of a regular file; none when it is no regular file or cannot be read.
std::optional<std::string> ReadRegularFile(const std::string& path, size_t limit);

// `text` as a value in the device configuration.
std::string EscapeXml(std::string_view text);

}  // namespace agent
