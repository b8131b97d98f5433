// Entries are the endpoints' sockets themselves.
#include "bus_folder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace standins {

namespace {

constexpr char unpublished[] = ".new";

// Whether connecting is refused, as it is when the process that has bound the socket is gone.
bool isRefused(const std::string& socketName) {
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

std::filesystem::path BusFolder::parent() {
    return "/tmp/brivon-" + std::to_string(geteuid());
}

void BusFolder::makePrivateFolder(const std::filesystem::path& path) {
    const std::string name = path.string();
    const auto refuse = [&](const std::string& fault) { throw std::runtime_error("the bus folder " + name + fault); };
    struct stat status {};
    if (mkdir(name.c_str(), 0700) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot make the bus folder " + name + ": " + std::strerror(errno));
    if (lstat(name.c_str(), &status) != 0)
        throw std::runtime_error("cannot read the bus folder " + name + ": " + std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        refuse(" is not a folder");
    if (status.st_uid != geteuid())
        refuse(" belongs to another user (uid " + std::to_string(status.st_uid) + ")");
    if ((status.st_mode & 077) != 0)
        refuse(" is open to other users; close it with: chmod 700 " + name);
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

// A socket that is bound but does not listen yet looks abandoned, too. Its endpoint then binds again.
void BusFolder::removeIfAbandoned(const std::filesystem::path& entry) {
    if (entry.extension() == unpublished && isEndPointId(entry.stem().string()) && isRefused(entry.string()))
        unlink(entry.c_str());
}

} // namespace standins
