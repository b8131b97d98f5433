#include "platform.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using platform::WideString;

// Both measure first, then convert into exactly the measured size, as callers do.
WideString toWide(const std::string& text) {
    const auto convert = [&](WCHAR* to, int size) {
        return MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, to, size);
    };
    WideString result(static_cast<std::size_t>(convert(nullptr, 0)), 0);
    const int size = static_cast<int>(result.size());
    EXPECT_EQ(0, size == 1 ? 0 : convert(result.data(), size - 1)) << "too small";
    EXPECT_EQ(size, convert(result.data(), size));
    return result;
}

std::string toUtf8(const WideString& text) {
    const auto convert = [&](char* to, int size) {
        return WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, to, size, nullptr, nullptr);
    };
    std::string result(static_cast<std::size_t>(convert(nullptr, 0)), 0);
    const int size = static_cast<int>(result.size());
    EXPECT_EQ(0, size == 1 ? 0 : convert(result.data(), size - 1)) << "too small";
    EXPECT_EQ(size, convert(result.data(), size));
    return result;
}

TEST(Text, ConvertsBothWays) {
    const std::pair<std::string, std::u16string> text("\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF",
                                                      u"\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF");
    EXPECT_EQ(text.second + u'\0', toWide(text.first));
    EXPECT_EQ(text.first + '\0', toUtf8(text.second));
}

TEST(Text, ReplacesWhatIsBroken) {
    const std::pair<std::string, std::u16string> sequences[] = {
        {"\x80|\xFF|", u"\uFFFD|\uFFFD|"},                                   // no lead byte
        {"\xE0\x80\xAF|\xED\xA0\x80", u"\uFFFD\uFFFD|\uFFFD\uFFFD"},         // overlong, or a surrogate
        {"\xE2\xC3\xA9|\xF0\x9F\xE2\x82\xAC", u"\uFFFD\u00E9|\uFFFD\u20AC"}, // broken off by a good one
        {"\xF0\x9F\x9A", u"\uFFFD"},                                         // broken off by the terminator
    };
    for (const auto& [utf8, utf16] : sequences)
        EXPECT_EQ(utf16 + u'\0', toWide(utf8)) << utf8;
    EXPECT_EQ("\uFFFDa\uFFFD\U0001F680" + std::string(1, '\0'), toUtf8({0xD83D, 'a', 0xDE80, 0xD83D, 0xDE80}));
}

} // namespace
