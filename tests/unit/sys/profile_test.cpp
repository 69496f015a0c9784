#include "sys/profile.h"

#include <sys/resource.h>

#include "../support.h"

namespace patrol_test {
namespace {

using namespace std::string_literals;

class ProfileTest : public UnitTest {
 protected:
    void Put(const std::string& bytes) { agent_.Write("data/p.ini", bytes); }
    std::string File(const std::string& suffix = "") const {
        const std::string name = "data/p.ini" + suffix;
        return agent_.Exists(name) ? agent_.Read(name) : "(none)";
    }
    // The whole block behind the count.
    std::pair<int, std::string> String(const char* section, const char* key, size_t size) const {
        std::string block(size + 1, '!');
        const int count = GetPrivateProfileString(section, key, "d", block.data(),
                                                  static_cast<int>(size), path_.c_str());
        return {count, block};
    }

    const std::string path_ = agent_.Path("data/p.ini");
};

TEST_F(ProfileTest, LinesAreReadByTheseRules) {
    // A file, a key of section "s", its text and its number, which are "d" and 5 without one.
    const std::tuple<std::string, const char*, std::string, int> cases[] = {
        {"k=0\n[x][s] y\nk=1\n[t]\nk=2\n", "k", "1", 1},
        {"[t]\nk=2\n[s]\n[s]\nk=1\n", "k", "d", 5},  // the first such section alone
        {"[s]\nk=1\nk=-7x\n", "k", "-7x", -7},       // the last line, and the last number
        {"[s]\nk=1\nk=\n", "k", "", 1},
        {"[s]\n \tk=\ra b\r \r\n", "k", "a b", 5},
        {"[s]\n;k=1\n#k=2\nk =3\nkk=4\nK=6\n", "k", "d", 5},
        {"[s]\n#k=2\n", "#k", "2", 2},
        {"[s]\n;k=2\n[k=3\n", ";k", "d", 5},
        {"[s]\nk=1\n[t\nk=2\n", "k", "2", 1},  // a "[" that nothing closes ends it for numbers
        {"[s]\nk= +99999999999", "k", " +99999999999", 2147483647},
        {"[s]\nk=k=1\n", "k=k", "1", 1},
        {"[s]\nk=1\0=2\n"s, "k", "1", 1},
        {"[s\0]\nk=1\n"s, "k", "d", 5},
        {"[s]\n" + std::string(511, 'x') + "k=2\n", "k", "d", 2},  // a line has so many for numbers
        {"[s]\n" + std::string(2047, 'x') + "k=2\n", "k", "2", 5},
    };
    for (const auto& [file, key, text, number] : cases) {
        Put(file);
        EXPECT_EQ(String("s", key, 99).second.c_str(), text) << file;
        EXPECT_EQ(GetPrivateProfileInt("s", key, 5, path_.c_str()), number) << file;
    }
    Put("[s]\nk=abcd\n [bc] x\n[" + std::string(1030, 'd'));
    const std::tuple<const char*, size_t, int, std::string> blocks[] = {
        {"s", 5, 4, "abcd\0!"s},      {"s", 4, 4, "abcd\0"s},       {"s", 3, 1, "ab\0!"s},
        {"s", 1, -1, "\0\0"s},        {"t", 1, 1, "d\0"s},          {nullptr, 6, 4, "s\0bc\0\0!"s},
        {nullptr, 5, 4, "s\0bc\0!"s}, {nullptr, 4, 1, "s\0\0\0!"s},
    };
    for (const auto& [section, size, count, block] : blocks) {
        EXPECT_EQ(String(section, "k", size), std::make_pair(count, block)) << size;
    }
    EXPECT_EQ(String(nullptr, "k", 2000).first, 4 + 1 + 1022) << "a name ends with its line";
}

TEST_F(ProfileTest, WritesChangeTheirLinesAndNoOthersOneByOneAndTogether) {
    const std::string x511(511, 'x');
    // A file, and what becomes of it when "v" is written to "k" of section "s".
    const std::pair<std::string, std::string> cases[] = {
        {"[s]\nk=1\na=2\nk=3\n[t]\nk=4\n", "[s]\nk=v\na=2\nk=v\n[t]\nk=4\n"},
        {"k=0\n[s]\na=1\n[s]\nk=1\n", "k=0\n[s]\na=1\nk=v\n[s]\nk=1\n"},
        {"[s]\n\n;k=1\n#k=2\n k=3\nkk=4\n[x", "[s]\n\n;k=1\n#k=2\n k=3\nkk=4\n[x\nk=v\n"},
        {"[t]\nk=1", "[t]\nk=1\nk=v\n"},
        {"[a][s] x\r\nk=1\r\n[t]", "[a][s] x\r\nk=v\n[t]"},
        {" [s]\nk=1\n[s\0]\n"s, " [s]\nk=1\n[s\0]\nk=v\n"s},
        {"[s]\nk=" + x511 + "\n", "[s]\nk=v\nxx\n"},
        {"[s]\n" + x511 + "k=1\n", "[s]\n" + x511 + "k=v\n"},
        {"[s]\n" + x511, "[s]\n" + x511 + "\nk=v\n"},
        {"", "k=v\n"},
    };
    for (const auto& [before, after] : cases) {
        Put(before);
        WritePrivateProfileString("s", "k", "v", path_.c_str());
        EXPECT_EQ(File(), after);
        EXPECT_EQ(File(".old"), before);
        Put(before);
        for (const char* key : {"k", "n"}) {
            WritePrivateProfileString("s", key, "w", path_.c_str());
        }
        const std::string one_by_one = File() + File(".old");
        Put(before);
        ProfileWriter together(path_.c_str());
        for (const char* nothing : {"", static_cast<const char*>(nullptr)}) {
            together.Write(nothing, "k", "z");
            together.Write("s", nothing, "z");
            together.Write("s", "k", nothing);
        }
        EXPECT_TRUE(together.Save());
        EXPECT_EQ(File(), before) << "nothing was to be written";
        for (const char* key : {"k", "n"}) together.Write("s", key, "w");
        EXPECT_TRUE(together.Save());
        EXPECT_EQ(File() + File(".old"), one_by_one);
        EXPECT_FALSE(agent_.LeftUnfinished());
    }
    agent_.Remove("data/p.ini");
    WritePrivateProfileString("s", "k", "v", path_.c_str());
    EXPECT_EQ(File(), "(none)");
    EXPECT_FALSE(agent_.LeftUnfinished());
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
        EXPECT_FALSE(agent_.LeftUnfinished());
    }
}

}  // namespace
}  // namespace patrol_test
