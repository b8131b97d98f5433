// A command line as a shell of this platform splits it into arguments, expanding nothing.
#ifndef STANDINS_CONTROL_COMMAND_LINE_H
#define STANDINS_CONTROL_COMMAND_LINE_H

#include <optional>
#include <string>
#include <vector>

namespace standins {

// Blanks separate arguments; single quotes keep everything, double quotes all but \" \\ \$ \` and an escaped line end,
// a backslash elsewhere the next character. Nothing when a quotation or an escape is not finished.
std::optional<std::vector<std::string>> splitCommandLine(const std::string& line);

} // namespace standins

#endif
