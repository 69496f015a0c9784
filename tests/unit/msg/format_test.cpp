#include "msg/format.h"

#include <gtest/gtest.h>

#include <climits>

namespace patrol {
namespace {

std::string Format(const std::string& format, const std::vector<FormatArg>& arguments) {
    return FormatMessage(format, arguments.data(), arguments.size());
}

TEST(FormatTest, FormatsAsPrintfDoes) {
    // Through a plain pointer, as these formats are composed.
    int (*const print)(char*, size_t, const char*, ...) = std::snprintf;
    char expected[64];
    for (const std::string flags : {"", "-", "0", "+", " ", "+0", "-+0", "#", "#0", "-#"}) {
        for (const char* size : {"", "1", "7", "20", ".1", ".4", ".12", "7.4", "20.12"}) {
            for (const char letter : std::string(flags.find('#') < 2 ? "xX" : "diuxX")) {
                const std::string format = "<%" + flags + size + letter + ">";
                for (const int number : {0, 1, -1, -1234567, INT_MIN, INT_MAX}) {
                    print(expected, sizeof expected, format.c_str(), number);
                    EXPECT_EQ(Format(format, {number}), expected) << format << " " << number;
                }
            }
            if (!flags.empty() && flags != "-") continue;  // C leaves the rest undefined for texts
            for (const char* text : {"", "abc", "abcdefghijklmnop"}) {
                const std::string format = "<%" + flags + size + "s>";
                print(expected, sizeof expected, format.c_str(), text);
                EXPECT_EQ(Format(format, {text}), expected) << format << " " << text;
            }
        }
    }
}

TEST(FormatTest, AConversionNeverTakesWhatIsNotThere) {
    const Text<4> cut("abcdef");
    const std::tuple<std::string, std::vector<FormatArg>, std::string> cases[] = {
        {"%s %08.3llx|", {"a"}, "a %08.3llx|"},
        {"%s|%5s|%-5s|", {7, -7, 7}, "7|   -7|7    |"},
        {"%d|%6x|%.2d", {"text", "t", "text"}, "text|     t|text"},
        {"%c%s%s", {'A', cut, static_cast<const char*>(nullptr)}, "Aabc(null)"},
        {"%x %u %lld", {-1, uint8_t{255}, int64_t{-5000000000}}, "ffffffff 255 -5000000000"},
        {"%n%hhn%f%p%s%s", {"%d%n", 2}, "%n%hhn%f%p%d%n2"},
        {"%*d %1$s%-08.5l", {5, 6}, "%*d %1$s%-08.5l"},
        {"%% %%d %%%d 100%", {5}, "% %d %5 100%"}};
    for (const auto& [format, arguments, text] : cases) EXPECT_EQ(Format(format, arguments), text);
    for (const char* format : {"%99999999999999999999d", "%.99999999999999999999x"}) {
        EXPECT_EQ(Format(format, {5}).size(), 4096U) << format;
    }
}

}  // namespace
}  // namespace patrol
