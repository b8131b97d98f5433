// The programs of a folder, and the processes that run them. Keeps nothing but the folder; any thread.
#ifndef STANDINS_CONTROL_CATALOGUE_H
#define STANDINS_CONTROL_CATALOGUE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace standins {

class Catalogue {
public:
    Catalogue() = default;
    // An empty folder, or one that is not there, holds no programs.
    explicit Catalogue(std::string folder)
        : folder_(std::move(folder)) {}

    // The names of the programs, sorted by bytes.
    std::vector<std::string> names() const;
    // The absolute path of a program of the folder; nothing for any other name, and for one that would leave the
    // folder.
    std::optional<std::string> pathOf(const std::string& name) const;

private:
    std::string folder_;
};

// The id of a process that runs the program: of several, the lowest. 0 when none does.
std::int32_t processRunning(const std::string& path);
// Whether any process runs a program of this file name, in whatever folder.
bool isNameRunning(const std::string& name);
// Starts the program on its own: without our standard streams, surviving us. The command line is split as this platform
// does. False when it cannot be started.
bool launch(const std::string& path, const std::string& commandLine);

} // namespace standins

#endif
