// The programs of a folder, and the processes that run them. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace standins {

// The names of the programs in the folder, sorted by bytes. An empty path, and a folder that is not there, have none.
std::vector<std::string> programsIn(const std::string& folder);
// The absolute path of a program of the folder; nothing for any other name, and for one that would leave the folder.
std::optional<std::string> pathOfProgram(const std::string& folder, const std::string& name);
// The id of a process that runs the program: of several, the lowest. 0 when none does.
std::int32_t processRunning(const std::string& path);
// Whether any process runs a program of this file name, in whatever folder.
bool isNameRunning(const std::string& name);
// Starts the program on its own: without our standard streams, surviving us. The command line is split as this platform
// does. False when it cannot be started.
bool launch(const std::string& path, const std::string& commandLine);

} // namespace standins
