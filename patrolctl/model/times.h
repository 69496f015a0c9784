// Times as people and other programs write them.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace patrolctl {

// "2026-11-21T22:15:07+01:00"; local.
std::string IsoTime(std::time_t time);

// "2026-11-21 22:15:07"; local.
std::string PlainTime(std::time_t time);

// "20261121T221507"; local, for file names.
std::string FileStamp(std::time_t time);

// How long ago, in words: "12 minutes".
std::string Span(long long seconds);

// ISO 8601: a date, a date and a time with or without an offset (without: local), or a time of
// today.
std::optional<std::time_t> ParseIsoTime(std::string text);

// A number and a unit (s, m, h, d, w), such as "2d", in seconds.
std::optional<long long> ParseSpan(const std::string& text);

}  // namespace patrolctl
