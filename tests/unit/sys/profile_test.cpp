#include "sys/profile.h"

#include <sys/resource.h>

#include <algorithm>
#include <climits>
#include <random>

#include "../support.h"

namespace patrol_test {
namespace {

// The rules of profiles once more, line by line and with no thought of speed.
namespace model {

using Value = std::pair<int, std::string>;

Strings Pieces(const std::string& bytes, size_t limit) {
    Strings pieces = {""};
    for (const char c : bytes) {
        pieces.back() += c;
        if (c == '\n' || pieces.back().size() == limit) pieces.emplace_back();
    }
    if (pieces.back().empty()) pieces.pop_back();
    return pieces;
}

bool Space(char c) { return std::string(" \t\n\v\f\r").find(c) != kNone; }

bool Begins(const std::string& line, const std::string& start) {
    return line.compare(0, start.size(), start) == 0;
}

// The lines that a reader looks at.
Strings Lines(const std::string& bytes, size_t limit) {
    Strings lines;
    for (const std::string& piece : Pieces(bytes, limit)) {
        std::string line;
        for (const char c : piece.substr(0, piece.find('\0'))) {
            if (c != '\r' && c != '\n') line += c;
        }
        while (!line.empty() && Space(line.back())) line.pop_back();
        while (!line.empty() && Space(line.front())) line.erase(0, 1);
        if (!line.empty() && line[0] != ';') lines.push_back(line);
    }
    return lines;
}

// What stands behind "key=" in the section, each time.
Strings Values(const Strings& lines, const std::string& section, const std::string& key,
               bool header_needs_end) {
    Strings values;
    int state = 0;
    for (const std::string& line : lines) {
        if (line[0] == '[') {
            if (header_needs_end && line.find(']') == kNone) continue;
            if (line.find("[" + section + "]") != kNone || state == 1) ++state;
            if (state == 2) break;
        } else if (state == 1 && Begins(line, key + "=")) {
            values.push_back(line.substr(key.size() + 1));
        }
    }
    return values;
}

Value String(const std::string& bytes, const std::string& section, const std::string& key,
             size_t size) {
    Strings values = Values(Lines(bytes, 2047), section, key, true);
    std::string text = values.empty() ? "d" : values.back();
    const bool cut = text.size() > size;
    if (cut) text.resize(size - 1);
    return {static_cast<int>(text.size()) - (cut ? 1 : 0), text};
}

int Int(const std::string& bytes, const std::string& section, const std::string& key) {
    double value = 5;
    for (const std::string& text : Values(Lines(bytes, 511), section, key, false)) {
        size_t at = 0;
        while (at < text.size() && Space(text[at])) ++at;
        const double sign = text[at] == '-' ? -1 : 1;
        if (text[at] == '-' || text[at] == '+') ++at;
        if (text[at] >= '0' && text[at] <= '9') value = 0;
        for (; text[at] >= '0' && text[at] <= '9'; ++at)
            value = value * 10 + sign * (text[at] - '0');
    }
    return static_cast<int>(std::clamp<double>(value, INT_MIN, INT_MAX));
}

std::string Write(const std::string& bytes, const std::string& section, const std::string& key,
                  const std::string& value) {
    const std::string entry = key + "=" + value + "\n";
    std::string out;
    int state = 0;
    bool written = false;
    for (const std::string& piece : Pieces(bytes, 511)) {
        const std::string text = piece.substr(0, piece.find('\0'));
        const bool header = text[0] == '[' && text.find(']') != kNone;
        if (header && (text.find("[" + section + "]") != kNone || state == 1)) ++state;
        const bool replaced = state == 1 && std::string("[; \n\r#").find(piece[0]) == kNone &&
                              Begins(text, key + "=");
        if (replaced || (header && state == 2 && !written)) {
            out += entry;
            written = true;
        }
        if (!replaced) out += piece;
    }
    if (written) return out;
    // The last line is one even without its line feed.
    return out + (out.empty() || out.back() == '\n' ? "" : "\n") + entry;
}

}  // namespace model

// Small files over what is awkward about the format.
class Random {
 public:
    std::string File() {
        static const Strings tokens = [] {
            Strings list = Split(
                "[|]|=|;|#| |\t|\r|\n|\n|k|s|-|1|+|\xff|\f|[s]|\nk|k= |\nk=|[ss|k=1|"
                "\n[t]\n|\n[s]\n|\n[s]\n|\n[s]\nk=|\n;k=1|\n#=1|\nk=\n|99999999999",
                '|');
            for (const size_t size : {511, 2047}) {
                list.push_back("\n" + std::string(size, 'x') + "k=2");
                list.push_back("\nk=" + std::string(size - 2, '9'));
            }
            list.push_back(std::string(1, '\0'));
            return list;
        }();

        std::string file;
        for (size_t n = Below(30); n > 0; --n) file += Pick(tokens);
        return file;
    }
    std::string Section() { return Pick({"s", "s", "s", "ss", "t", "s]", "[s", "s[s", " "}); }
    std::string Key() { return Pick({"k", "k", "k", "kk", "k=k", "1", "s", "#", " k", ";k"}); }
    const std::string& Pick(const Strings& list) { return list[Below(list.size())]; }
    size_t Below(size_t end) { return std::uniform_int_distribution<size_t>(0, end - 1)(engine_); }

 private:
    std::mt19937 engine_{20101};
};

class ProfileTest : public UnitTest {
 protected:
    void Put(const std::string& bytes) { agent_.Write("data/p.ini", bytes); }
    std::string File(const std::string& suffix = "") const {
        const std::string name = "data/p.ini" + suffix;
        return agent_.Exists(name) ? agent_.Read(name) : "(none)";
    }
    model::Value String(const char* section, const std::string& key, size_t size) const {
        std::string result(size + 1, '!');
        const int count = GetPrivateProfileString(section, key.c_str(), "d", result.data(),
                                                  static_cast<int>(size), path_.c_str());
        return {count, result.substr(0, section == nullptr ? size : result.find('\0'))};
    }

    const std::string path_ = agent_.Path("data/p.ini");
};

TEST_F(ProfileTest, ReadersFollowTheRulesOnAnyFile) {
    Random random;
    for (int i = 0; i < 1500 && !HasFailure(); ++i) {
        const std::string bytes = random.File(), section = random.Section(), key = random.Key();
        const size_t size = 1 + random.Below(8);
        SCOPED_TRACE(::testing::PrintToString(bytes) + " [" + section + "] " + key);
        Put(bytes);
        EXPECT_EQ(String(section.c_str(), key, size), model::String(bytes, section, key, size));
        EXPECT_EQ(GetPrivateProfileInt(section.c_str(), key.c_str(), 5, path_.c_str()),
                  model::Int(bytes, section, key));
    }
}

TEST_F(ProfileTest, SectionNamesAreListedAsLongAsTheyFit) {
    const std::string names("a\0bc\0\0last\0", 11);
    Put("[a] x\n;[no]\n [bc]]\n[]\r\nk=[no]\n[last");
    EXPECT_EQ(String(nullptr, "", 11), model::Value(10, names));
    EXPECT_EQ(String(nullptr, "", 10), model::Value(5, names.substr(0, 6) + std::string(4, '\0')));
    EXPECT_EQ(String(nullptr, "", 2), model::Value(0, std::string(2, '\0')));
}

TEST_F(ProfileTest, WritesFollowTheRulesOnAnyFileOneByOneAndTogether) {
    Random random;
    for (int i = 0; i < 500 && !HasFailure(); ++i) {
        const std::string bytes = random.File();
        std::string now = bytes, before;
        SCOPED_TRACE(::testing::PrintToString(bytes));
        Put(bytes);
        ProfileWriter together(path_.c_str());
        for (size_t n = 1 + random.Below(3); n > 0; --n) {
            const std::string section = random.Section(), key = random.Key();
            const std::string value = random.Pick({"ON", "0x1", " v;[s]"});
            before = now;
            now = model::Write(before, section, key, value);
            together.Write(section.c_str(), key.c_str(), value.c_str());
            WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), path_.c_str());
            EXPECT_EQ(File(), now) << "[" << section << "] " << key;
            EXPECT_EQ(File(".old"), before);
        }
        Put(bytes);
        EXPECT_TRUE(together.Save());
        EXPECT_EQ(File(), now);
        EXPECT_EQ(File(".old"), before);
        EXPECT_EQ(File(".new"), "(none)");
    }
}

TEST_F(ProfileTest, NothingIsWrittenWithoutAFileANameAndAValue) {
    Put("[s]\nk=1\n");
    for (const char* nothing : {"", static_cast<const char*>(nullptr)}) {
        WritePrivateProfileString(nothing, "k", "v", path_.c_str());
        WritePrivateProfileString("s", nothing, "v", path_.c_str());
        WritePrivateProfileString("s", "k", nothing, path_.c_str());
    }
    EXPECT_EQ(File() + File(".old"), "[s]\nk=1\n(none)");
    agent_.Remove("data/p.ini");
    WritePrivateProfileString("s", "k", "v", path_.c_str());
    EXPECT_EQ(File() + File(".new") + File(".old"), "(none)(none)(none)");
}

TEST_F(ProfileTest, AFailedWriteLeavesTheFileAsItWas) {
    const std::string bytes = "[s]\nk=" + std::string(300, '1') + "\n";
    const std::string longer = "[s]\nk=" + std::string(200, 'v') + "\n", v = "[s]\nk=v\n";
    // The most bytes of a file, the values written to k, what the file and its .old hold then.
    const std::tuple<rlim_t, Strings, std::string, std::string> cases[] = {
        {7, {"v"}, bytes, "(none)"},
        {8, {"v"}, v, bytes},
        {300, {std::string(200, 'v'), "v"}, v, longer},
        {100, {std::string(200, 'v'), "v"}, v, bytes}};  // the .old due is too long
    for (const auto& [limit, values, file, old_file] : cases) {
        agent_.Remove("data/p.ini.old");
        Put(bytes);
        Fork writing([this, most = limit, &list = values] {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit size = {most, most};
            setrlimit(RLIMIT_FSIZE, &size);
            ProfileWriter writer(path_.c_str());
            for (const std::string& value : list) writer.Write("s", "k", value.c_str());
            return writer.Save() ? 7 : 8;
        });
        EXPECT_EQ(writing.Wait(), file == bytes ? 8 : 7) << limit;
        EXPECT_EQ(File() + File(".old"), file + old_file) << limit;
        EXPECT_EQ(File(".new") + File(".old.new"), "(none)(none)");
    }
}

}  // namespace
}  // namespace patrol_test
