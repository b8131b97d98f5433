#include "platform.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using platform::WideString;
using namespace std::string_literals;

WideString wide(const std::u16string& text) {
    return {text.begin(), text.end()};
}

using Text = std::pair<std::string, std::u16string>;

// Both measure first, then convert into exactly the measured size, as callers do. -1: up to the terminator.
WideString toWide(const std::string& text, int length = -1) {
    const auto convert = [&](WCHAR* to, int size) {
        return MultiByteToWideChar(CP_UTF8, 0, text.data(), length, to, size);
    };
    WideString result(static_cast<std::size_t>(convert(nullptr, 0)), 0);
    const int size = static_cast<int>(result.size());
    EXPECT_EQ(0, size == 1 ? 0 : convert(result.data(), size - 1)) << "too small";
    EXPECT_EQ(size, convert(result.data(), size));
    return result;
}

std::string toUtf8(const std::u16string& text, int length = -1) {
    const WideString from = wide(text);
    const auto convert = [&](char* to, int size) {
        return WideCharToMultiByte(CP_UTF8, 0, from.data(), length, to, size, nullptr, nullptr);
    };
    std::string result(static_cast<std::size_t>(convert(nullptr, 0)), 0);
    const int size = static_cast<int>(result.size());
    EXPECT_EQ(0, size == 1 ? 0 : convert(result.data(), size - 1)) << "too small";
    EXPECT_EQ(size, convert(result.data(), size));
    return result;
}

TEST(Text, ConvertsBothWays) {
    const Text text("\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0001F680\U0010FFFF",
                    u"\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0001F680\U0010FFFF");
    EXPECT_EQ(wide(text.second + u'\0'), toWide(text.first));
    EXPECT_EQ(text.first + '\0', toUtf8(text.second));
    EXPECT_EQ(wide(u"a\0b"s), toWide("a\0bc"s, 3));
    EXPECT_EQ("a\0b"s, toUtf8(u"a\0bc"s, 3));
    EXPECT_EQ(wide(u"\uFFFD"), toWide("\u20AC", 2)) << "cut within a character";
    EXPECT_EQ("\uFFFD", toUtf8(u"\U0001F680", 1)) << "cut within a pair";
}

TEST(Text, ReplacesWhatIsBroken) {
    const Text sequences[] = {
        {"\x80|\xBF\xBF", u"\uFFFD|\uFFFD\uFFFD"},                           // nothing to continue
        {"\xC0\x80|\xC1\xBF", u"\uFFFD\uFFFD|\uFFFD\uFFFD"},                 // overlong, two bytes
        {"\xE0\x80\xAF|\xE0\x9F\xBF", u"\uFFFD\uFFFD|\uFFFD\uFFFD"},         // overlong, three bytes
        {"\xF0\x8F\xBF\xBF|", u"\uFFFD\uFFFD\uFFFD|"},                       // overlong, four bytes
        {"\xED\xA0\x80|\xED\xBF\xBF", u"\uFFFD\uFFFD|\uFFFD\uFFFD"},         // surrogates
        {"\xF4\x90\x80\x80|", u"\uFFFD\uFFFD\uFFFD|"},                       // beyond U+10FFFF
        {"\xF5\x80|\xFF|", u"\uFFFD\uFFFD|\uFFFD|"},                         // no lead bytes at all
        {"\xC3|\xE2\x82|\xF0\x9F\x9A|", u"\uFFFD|\uFFFD|\uFFFD|"},           // broken off
        {"\xE2\xC3\xA9|\xF0\x9F\xE2\x82\xAC", u"\uFFFD\u00E9|\uFFFD\u20AC"}, // broken off by a good one
        {"\xF0\x9F\x9A", u"\uFFFD"},                                         // broken off by the terminator
    };
    for (const auto& [utf8, utf16] : sequences)
        EXPECT_EQ(wide(utf16 + u'\0'), toWide(utf8)) << utf8;

    const std::pair<std::u16string, std::string> surrogates[] = {
        {{0xD83D, 'a'}, "\uFFFDa"},
        {{0xDE80, 0xD83D}, "\uFFFD\uFFFD"},
        {{0xD83D, 0xD83D, 0xDE80}, "\uFFFD\U0001F680"},
        {{0xD83D, 0xE000}, "\uFFFD\uE000"},
        {{0xDE80, 0xDE80}, "\uFFFD\uFFFD"},
    };
    for (const auto& [units, utf8] : surrogates)
        EXPECT_EQ(utf8 + '\0', toUtf8(units)) << utf8;
}

} // namespace
