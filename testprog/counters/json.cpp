#include "counters/json.h"

#include <algorithm>

namespace testprog {

namespace {

constexpr int kDeepest = 32;
constexpr size_t kLongestName = 200;

class Reader {
 public:
    explicit Reader(const std::string& text) : text_(text) {}

    // Reads the value that comes next into values(), all that is in it under names that begin with
    // this one. Returns false where there is none.
    bool Read(const std::string& name, int depth) {
        const char first = Next();
        if (first == '{' || first == '[') return depth > 0 && ReadParts(name, first, depth - 1);
        std::string& value = values_[name];
        if (first == '"') return ReadText(&value);
        const size_t start = at_;
        at_ = std::min(text_.find_first_of(",]} \t\r\n", at_), text_.size());
        value = text_.substr(start, at_ - start);
        return !value.empty();
    }

    const std::map<std::string, std::string>& values() const { return values_; }

 private:
    // The next character that is no blank; '\0' at the end.
    char Next() {
        at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size());
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    bool Pass(char c) {
        if (Next() != c) return false;
        ++at_;
        return true;
    }

    bool ReadText(std::string* value) {
        for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
            if (text_[at_] == '\\') ++at_;
            if (at_ == text_.size()) return false;
            *value += text_[at_];
        }
        return Pass('"');
    }

    // The members of an object or the elements of an array.
    bool ReadParts(const std::string& name, char first, int depth) {
        const char last = first == '{' ? '}' : ']';
        ++at_;
        if (Pass(last)) return true;
        size_t count = 0;
        do {
            std::string part = name + "[" + std::to_string(count++) + "]";
            if (first == '{') {
                std::string key;
                if (Next() != '"' || !ReadText(&key) || !Pass(':')) return false;
                part = name.empty() ? key : name + "." + key;
            }
            // Every value has a name of its own, which must not add up to much.
            if (part.size() > kLongestName || !Read(part, depth)) return false;
        } while (Pass(','));
        return Pass(last);
    }

    const std::string& text_;
    size_t at_ = 0;
    std::map<std::string, std::string> values_;
};

}  // namespace

std::map<std::string, std::string> FlattenJson(const std::string& text) {
    Reader reader(text);
    reader.Read("", kDeepest);
    return reader.values();
}

}  // namespace testprog
