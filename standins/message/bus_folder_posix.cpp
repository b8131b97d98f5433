// Entries are the endpoints' sockets themselves.
#include "bus_folder.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace standins {

namespace {

constexpr int makeAttempts = 100;
constexpr char unpublished[] = ".new";

// Whether connecting is refused, as it is when the process that has bound the socket is gone.
bool isAbandoned(const std::string& socketName) {
    sockaddr_un address{};
    if (socketName.size() >= sizeof address.sun_path)
        return false;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketName.c_str(), socketName.size() + 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    const bool isRefused =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 && errno == ECONNREFUSED;
    close(descriptor);
    return isRefused;
}

} // namespace

std::string BusFolder::environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::filesystem::path BusFolder::openParent() {
    std::filesystem::path parent = "/tmp/brivon-" + std::to_string(geteuid());
    makePrivateFolder(parent);
    return parent;
}

void BusFolder::makePrivateFolder(const std::filesystem::path& path) {
    const std::string name = path.string();
    struct stat status {};
    int found = -1;
    // Whoever leaves a bus last removes its folder, be it between these two calls.
    for (int attempt = 0; found != 0 && attempt < makeAttempts; ++attempt) {
        if (mkdir(name.c_str(), 0700) != 0 && errno != EEXIST)
            throw std::runtime_error("cannot make the bus folder " + name + ": " + std::strerror(errno));
        found = lstat(name.c_str(), &status);
    }
    if (found != 0)
        throw std::runtime_error("cannot read the bus folder " + name + ": " + std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        throw std::runtime_error("the bus folder " + name + " is not a folder");
    if (status.st_uid != geteuid())
        throw std::runtime_error("the bus folder " + name + " belongs to another user (uid " +
                                 std::to_string(status.st_uid) + ")");
    if ((status.st_mode & 077) != 0)
        throw std::runtime_error("the bus folder " + name + " is open to other users; close it with: chmod 700 " +
                                 name);
}

std::string BusFolder::address(const std::string& id) const {
    return (path_ / id).string();
}

std::string BusFolder::unpublishedAddress(const std::string& id) const {
    return address(id) + unpublished;
}

bool BusFolder::publish(const std::string& id) const {
    if (std::rename(unpublishedAddress(id).c_str(), address(id).c_str()) == 0)
        return true;
    if (errno == ENOENT)
        return false;
    throw std::runtime_error("cannot publish an endpoint in " + path_.string() + ": " + std::strerror(errno));
}

// One that has been bound and does not listen yet is taken for abandoned too; its endpoint then begins anew.
void BusFolder::sweep() const {
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(path_, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const std::filesystem::path& path = entry->path();
        if (path.extension() == unpublished && isEndPointId(path.stem().string()) && isAbandoned(path.string()))
            unlink(path.c_str());
    }
}

} // namespace standins
