#include "sys/profile.h"

#include <sys/resource.h>

#include <random>

#include "../support.h"
#include "fuzz/profile_model.h"

namespace patrol_test {
namespace {

namespace model = profile_model;

// Small files over what is awkward about the format.
class Random {
 public:
    std::string File() {
        static const Strings tokens = [] {
            Strings list = Split(
                "[|]|=|;|#| |\t|\r|\n|\n|k|s|-|1|+|\xff|\f|[s]|\nk|k= |\nk=|[ss|k=1|"
                "\n[t]\n|\n[s]]|\n[s]\n|\n[s]\n|\n[s]\nk=|\n;k=1|\n#=1|\nk=\n|99999999999",
                '|');
            for (const size_t size : {511, 2047}) {
                list.push_back("\n" + std::string(size, 'x') + "k=2");
                list.push_back("\nk=" + std::string(size - 2, '9'));
            }
            list.push_back(std::string(1, '\0'));
            list.push_back(std::string("\n[s\0]\n", 6));
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
    std::pair<int, std::string> String(const char* section, const std::string& key,
                                       size_t size) const {
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
        EXPECT_EQ(String(nullptr, key, size), model::Names(bytes, size));
        EXPECT_EQ(GetPrivateProfileInt(section.c_str(), key.c_str(), 5, path_.c_str()),
                  model::Int(bytes, section, key));
    }
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
