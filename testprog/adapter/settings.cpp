#include "adapter/settings.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <sstream>

#include "lib/options.h"

namespace testprog {

namespace {

constexpr uint64_t kMaxSeconds = 100UL * 24 * 3600;
constexpr int kNotMeant = 4;
constexpr size_t kLongestPattern = 1000;

std::string Trimmed(const std::string& text) {
    constexpr char kBlanks[] = " \t\r";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// How far a section is from the device and level: 0 names both, 3 neither.
int Distance(const std::string& section, const std::string& device, uint64_t level) {
    const std::string words = "LEVEL " + std::to_string(level);
    if (section == "TEST") return 3;
    if (section == words) return 2;
    const size_t blank = section.find(' ');
    const bool any_level = blank == std::string::npos;
    if (!any_level && section.substr(blank + 1) != words) return kNotMeant;
    if (fnmatch(section.substr(0, blank).c_str(), device.c_str(), 0) != 0) return kNotMeant;
    return any_level ? 1 : 0;
}

}  // namespace

ExternalSettings::ExternalSettings(const std::string& text, const std::string& device,
                                   uint64_t level) {
    std::map<std::string, int> distances;
    int distance = kNotMeant;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        line = Trimmed(line);
        const size_t equals = line.find('=');
        if (line.empty() || line[0] == ';' || line[0] == '#') continue;
        if (line[0] == '[') {
            distance = Distance(line.substr(1, line.find(']') - 1), device, level);
        } else if (equals != std::string::npos && distance < kNotMeant) {
            const std::string key = Trimmed(line.substr(0, equals));
            const auto known = distances.find(key);
            if (known != distances.end() && known->second <= distance) continue;
            distances[key] = distance;
            values_[key] = Trimmed(line.substr(equals + 1));
        }
    }
}

const std::string& ExternalSettings::Text(const std::string& key) const {
    static const std::string none;
    const auto found = values_.find(key);
    return found == values_.end() ? none : found->second;
}

std::optional<uint64_t> ExternalSettings::Seconds(const std::string& key, uint64_t fallback) const {
    if (Text(key).empty()) return fallback;
    const auto number = ParseNumber(Text(key));
    return number && *number <= kMaxSeconds ? number : std::nullopt;
}

bool Statuses::Parse(const std::string& text) {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (word == "signal") {
            signal_ = true;
            continue;
        }
        const size_t dash = std::min(word.find('-'), word.size());
        const auto first = ParseNumber(word.substr(0, dash));
        const auto last = dash == word.size() ? first : ParseNumber(word.substr(dash + 1));
        if (!first || !last) return false;
        ranges_.emplace_back(*first, *last);
    }
    return true;
}

bool Statuses::Has(bool exited, int number) const {
    if (!exited) return signal_;
    const auto status = static_cast<uint64_t>(number);
    return std::any_of(ranges_.begin(), ranges_.end(), [status](const auto& range) {
        return range.first <= status && status <= range.second;
    });
}

void Pattern::Free::operator()(regex_t* pattern) const {
    regfree(pattern);
    delete pattern;
}

std::string Pattern::Parse(const std::string& text) {
    if (text.empty()) return {};
    // Each parenthesis may take a part of the stack.
    if (text.size() > kLongestPattern) return "a pattern has 1000 characters at the most";
    auto fresh = std::make_unique<regex_t>();
    const int error = regcomp(fresh.get(), text.c_str(), REG_EXTENDED);
    if (error == 0) {
        compiled_.reset(fresh.release());
        return {};
    }
    std::array<char, 128> reason = {};
    regerror(error, fresh.get(), reason.data(), reason.size());
    return reason.data();
}

bool Pattern::Matches(const std::string& line) const {
    return compiled_ && regexec(compiled_.get(), line.c_str(), 0, nullptr, 0) == 0;
}

std::optional<unsigned> Pattern::Percent(const std::string& line) const {
    std::array<regmatch_t, 2> places = {};
    if (!compiled_ || regexec(compiled_.get(), line.c_str(), 2, places.data(), 0) != 0) return {};
    if (places[1].rm_so < 0) return std::nullopt;
    const auto start = static_cast<size_t>(places[1].rm_so);
    const auto number =
        ParseNumber(line.substr(start, static_cast<size_t>(places[1].rm_eo) - start));
    if (!number || *number > 100) return std::nullopt;
    return static_cast<unsigned>(*number);
}

bool SplitWords(const std::string& line, const std::map<std::string, std::string>& values,
                std::vector<std::string>* words) {
    std::vector<std::string> found;
    bool quoted = false, open = false;  // within quotes; within a word
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (!quoted && (c == ' ' || c == '\t')) {
            open = false;
            continue;
        }
        if (!open) found.emplace_back();
        open = true;
        if (c == '"') {
            quoted = !quoted;
        } else if (c != '{' || line.compare(i, 2, "{{") == 0) {
            found.back() += c;
            i += c == '{' ? 1 : 0;
        } else {
            const size_t end = std::min(line.find('}', i), line.size());
            const auto value = values.find(line.substr(i + 1, end - i - 1));
            if (value == values.end() || end == line.size()) return false;
            found.back() += value->second;
            i = end;
        }
    }
    if (quoted || found.empty() || found[0].empty()) return false;
    *words = found;
    return true;
}

}  // namespace testprog
