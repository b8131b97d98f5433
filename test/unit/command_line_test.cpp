#include "command_line.h"

#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;

TEST(CommandLine, IsSplitAsAShellDoes) {
    const std::pair<const char*, Arguments> cases[] = {
        {"", {}},
        {" \t\n ", {}},
        {"one", {"one"}},
        {"  one\ttwo\nthree ", {"one", "two", "three"}},
        {"'one two' \"three four\"", {"one two", "three four"}},
        {"'' \"\" x''y", {"", "", "xy"}},
        {"a'b'\"c\"d", {"abcd"}},
        {R"(one\ two \' \" \\)", {"one two", "'", "\"", "\\"}},
        {R"('a\b' "a\b" "\"\\\$\`")", {"a\\b", "a\\b", "\"\\$`"}},
        {"a\\\nb \"c\\\nd\"", {"ab", "cd"}},
        {"$HOME `id` * ~ ;|&", {"$HOME", "`id`", "*", "~", ";|&"}},
        {"grüße 日本語", {"grüße", "日本語"}},
    };
    for (const auto& [line, arguments] : cases)
        EXPECT_EQ(standins::splitCommandLine(line), arguments) << line;
}

TEST(CommandLine, IsRefusedUnfinished) {
    for (const char* line : {"'one", "\"one", "one\\", "\"one\\\"", "a 'b\" c"})
        EXPECT_EQ(standins::splitCommandLine(line), std::nullopt) << line;
}

} // namespace
