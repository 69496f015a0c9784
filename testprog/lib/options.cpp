#include "lib/options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

namespace testprog {

namespace {

constexpr uint64_t kMaxSeconds = 0x7fffffff;

}  // namespace

std::optional<uint64_t> ParseNumber(std::string_view text) {
    int base = 10;
    if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
        base = 16;
        text.remove_prefix(2);
    }
    uint64_t number = 0;
    const char* begin = text.data();
    const char* end = begin + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, base);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

std::vector<std::string> SplitList(std::string_view list) {
    std::vector<std::string> parts(1);
    for (const char c : list) {
        if (c == '+') {
            parts.emplace_back();
        } else {
            const int lower = std::tolower(static_cast<unsigned char>(c));
            parts.back() += static_cast<char>(lower);
        }
    }
    return parts;
}

Option TextOption(std::string word, std::string* target) {
    return {std::move(word), true, [target](const std::string& value) {
                if (value.empty()) return false;
                *target = value;
                return true;
            }};
}

Option NumberOption(std::string word, uint64_t* target, uint64_t least, uint64_t most) {
    return {std::move(word), true, [target, least, most](const std::string& value) {
                const auto number = ParseNumber(value);
                if (!number || *number < least || *number > most) return false;
                *target = *number;
                return true;
            }};
}

Option SwitchOption(std::string word, bool* target) {
    return {std::move(word), false, [target](const std::string&) { return *target = true; }};
}

std::vector<Option> CommonOptionTable(CommonOptions* common) {
    const auto patrol_number = [common](std::string word, uint64_t* target) {
        Option option = NumberOption(std::move(word), target, 0, kMaxSeconds);
        const auto take = option.take;
        option.take = [common, take](const std::string& value) {
            common->patrol = true;
            return take(value);
        };
        return option;
    };
    const auto take_seed = [common](const std::string& value) {
        common->seed = ParseNumber(value);
        return common->seed && *common->seed <= UINT32_MAX;
    };
    const auto take_budget = [common](const std::string& value) {
        common->budget = ParseNumber(value);
        return common->budget && *common->budget <= kMaxSeconds;
    };
    return {TextOption("dev", &common->device),
            TextOption("tp", &common->pattern),
            NumberOption("lv", &common->level, 0, 255),
            patrol_number("log", &common->log_kib),
            patrol_number("gen", &common->generations),
            NumberOption("runtime", &common->runtime, 0, kMaxSeconds),
            NumberOption("waitusec", &common->wait_usec, 0, kMaxSeconds),
            NumberOption("waitsec", &common->wait_sec, 0, kMaxSeconds),
            SwitchOption("dbg_trap", &common->trap),
            {"seed", true, take_seed},
            {"budget", true, take_budget}};
}

std::string ParseOptions(int argc, const char* const* argv, const std::vector<Option>& options) {
    std::string complaint;
    const auto complain = [&complaint](const std::string& text) {
        if (complaint.empty()) complaint = text;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool marked = !word.empty() && (word[0] == '-' || word[0] == '/');
        const auto option =
            std::find_if(options.begin(), options.end(), [&word, marked](const Option& known) {
                return marked && word.compare(1, std::string::npos, known.word) == 0;
            });
        if (option == options.end()) {
            complain("unknown option \"" + word + "\"");
        } else if (!option->has_value) {
            option->take({});
        } else if (++i == argc) {
            complain("option \"" + word + "\" without a value");
        } else if (!option->take(argv[i])) {
            complain("option \"" + word + "\" with a wrong value \"" + argv[i] + "\"");
        }
    }
    return complaint;
}

}  // namespace testprog
