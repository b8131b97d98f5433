// Entries are empty files; the endpoints listen on named pipes, which have a space of names of their own. The user's
// own application data is closed to other users by the system, and so are pipes for writing.
#include "bus_folder.h"

#include <windows.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace standins {

namespace {

constexpr int makeAttempts = 100;

}

// Asked of the system: the runtime library's copy of the environment is older than what the program has set since.
std::string BusFolder::environment(const char* name) {
    const std::wstring wideName(name, name + std::strlen(name));
    wchar_t value[32768]; // the system's own limit
    const DWORD length = GetEnvironmentVariableW(wideName.c_str(), value, static_cast<DWORD>(std::size(value)));
    return std::filesystem::path(value, value + length).u8string();
}

std::filesystem::path BusFolder::openParent() {
    const std::string local = environment("LOCALAPPDATA");
    if (local.empty())
        throw std::runtime_error("cannot make a bus folder: LOCALAPPDATA is not set");
    const std::filesystem::path parent = std::filesystem::u8path(local) / "brivon-bus";
    makePrivateFolder(parent);
    return parent;
}

void BusFolder::makePrivateFolder(const std::filesystem::path& path) {
    std::error_code failure;
    // Whoever leaves a bus last removes its folder, be it between these two calls.
    for (int attempt = 0; attempt < makeAttempts; ++attempt) {
        std::filesystem::create_directory(path, failure);
        std::error_code ignored;
        if (std::filesystem::is_directory(path, ignored))
            return;
    }
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
    for (int attempt = 0; attempt < makeAttempts; ++attempt) {
        makePrivateFolder(path_);
        if (std::ofstream(path_ / id))
            return true;
    }
    throw std::runtime_error("cannot publish an endpoint in " + path_.u8string());
}

// Nothing stands in the folder before it is published.
void BusFolder::sweep() const {}

} // namespace standins
