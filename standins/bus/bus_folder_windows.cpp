// Entries are empty files. The endpoints listen on named pipes, whose names are in no folder. The system closes the
// user's application data to other users, and pipes for writing.
#include "bus_folder.h"

#include <fstream>
#include <stdexcept>

namespace standins {

std::filesystem::path BusFolder::parent() {
    const std::string local = environment("LOCALAPPDATA");
    if (local.empty())
        throw std::runtime_error("cannot make a bus folder: LOCALAPPDATA is not set");
    return std::filesystem::u8path(local) / "brivon-bus";
}

void BusFolder::makePrivateFolder(const std::filesystem::path& path) {
    std::error_code failure;
    std::filesystem::create_directory(path, failure);
    if (failure)
        throw std::runtime_error("cannot make the bus folder " + path.u8string() + ": " + failure.message());
}

std::string BusFolder::address(const std::string& id) const {
    return "\\\\.\\pipe\\brivon-bus-" + id;
}

// Nobody looks for a pipe whose id is in no folder.
std::string BusFolder::unpublishedAddress(const std::string& id) const {
    return address(id);
}

bool BusFolder::publish(const std::string& id) const {
    if (std::ofstream(path_ / id))
        return true;
    throw std::runtime_error("cannot publish an endpoint in " + path_.u8string());
}

// No entry is made before it is published.
void BusFolder::removeIfAbandoned(const std::filesystem::path&) {}

} // namespace standins
