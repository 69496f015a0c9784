// The JSON shapes that several commands share; docs/patrolctl.md describes them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "model/faults.h"
#include "model/results.h"

namespace patrolctl {

// Keys stay in the order in which they are entered.
using Json = nlohmann::ordered_json;

Json ResultJson(const Result& result);
Json FaultJson(const Fault& fault);

// `text`, or null when it is empty.
Json TextOrNull(std::string_view text);

// An ISO 8601 time with offset, or null for 0.
Json TimeOrNull(std::time_t time);

// The name of a kind as the histories have it, or null.
Json KindJson(int kind);

// The whole text with a line feed at its end. What is no UTF-8 becomes U+FFFD.
std::string JsonText(const Json& json);

}  // namespace patrolctl
