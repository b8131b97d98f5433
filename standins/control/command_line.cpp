#include "command_line.h"

#include <cstring>
#include <utility>

namespace standins {

namespace {

constexpr char blanks[] = " \t\n";
constexpr char escapable[] = "\"\\$`\n"; // between double quotes

bool isOneOf(char c, const char* set) {
    return c != '\0' && std::strchr(set, c) != nullptr;
}

} // namespace

std::optional<std::vector<std::string>> splitCommandLine(const std::string& line) {
    std::vector<std::string> arguments;
    std::optional<std::string> argument; // the one being read; "" is an argument too
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\0' && isOneOf(c, blanks)) {
            if (argument)
                arguments.push_back(*std::exchange(argument, std::nullopt));
            continue;
        }
        if (!argument)
            argument.emplace();
        if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == '\\' && quote != '\'') {
            if (i + 1 == line.size())
                return std::nullopt;
            const char next = line[++i];
            if (quote == '"' && !isOneOf(next, escapable))
                *argument += c;
            if (next != '\n')
                *argument += next;
        } else {
            *argument += c;
        }
    }
    if (quote != '\0')
        return std::nullopt;
    if (argument)
        arguments.push_back(*argument);
    return arguments;
}

} // namespace standins
