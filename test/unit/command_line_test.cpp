#include "command_line.h"

#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;

TEST(CommandLine, IsSplitAsAShellDoes) {
    const std::pair<const char*, Arguments> cases[] = {
        {" \t\n ", {}},
        {"  one\ttwo\nthree ", {"one", "two", "three"}},
        {"'' \"two words\" a'b'\"c\"d", {"", "two words", "abcd"}},
        {R"(one\ two \' 'a\b' "a\b" "\"\\\$\`")", {"one two", "'", "a\\b", "a\\b", "\"\\$`"}},
        {"a\\\nb \"c\\\nd\"", {"ab", "cd"}},
        {"$HOME `id` * ~ ;|&", {"$HOME", "`id`", "*", "~", ";|&"}},
    };
    for (const auto& [line, arguments] : cases)
        EXPECT_EQ(standins::splitCommandLine(line), arguments) << line;
}

TEST(CommandLine, IsRefusedUnfinished) {
    for (const char* line : {"'one", "one\\", "\"one\\\""})
        EXPECT_EQ(standins::splitCommandLine(line), std::nullopt) << line;
}

} // namespace
