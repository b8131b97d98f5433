#include "bus_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace standins {

namespace {

constexpr std::size_t busNameLimit = 32; // keeps a socket's path within what the system allows

std::string busName() {
    const char* name = std::getenv("BRIVON_BUS");
    if (name == nullptr || *name == '\0')
        return "default";
    std::string text = name;
    const bool usable =
        text.size() <= busNameLimit && text[0] != '.' && std::all_of(text.begin(), text.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
                   c == '.';
        });
    if (!usable)
        throw std::runtime_error("BRIVON_BUS must be 1 to 32 letters, digits, '-', '_' or '.', and not begin with '.'");
    return text;
}

// Makes a folder that this user alone may enter, or makes sure that it is one.
void makePrivateFolder(const std::string& path) {
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot make the bus folder " + path + ": " + std::strerror(errno));
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        throw std::runtime_error("cannot read the bus folder " + path + ": " + std::strerror(errno));
    if (!S_ISDIR(status.st_mode))
        throw std::runtime_error("the bus folder " + path + " is not a folder");
    if (status.st_uid != geteuid())
        throw std::runtime_error("the bus folder " + path + " belongs to another user (uid " +
                                 std::to_string(status.st_uid) + ")");
    if ((status.st_mode & 077) != 0)
        throw std::runtime_error("the bus folder " + path + " is open to other users; close it with: chmod 700 " +
                                 path);
}

} // namespace

bool isEndPointId(const std::string& text) {
    return text.size() == 32 && std::all_of(text.begin(), text.end(),
                                            [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

BusFolder::BusFolder(std::string path)
    : path_(std::move(path)) {}

BusFolder BusFolder::open() {
    const std::string user = "/tmp/brivon-" + std::to_string(geteuid());
    makePrivateFolder(user);
    const std::string bus = user + "/" + busName();
    makePrivateFolder(bus);
    return BusFolder(bus);
}

std::string BusFolder::address(const std::string& id) const {
    return path_ + "/" + id;
}

std::string BusFolder::unpublishedAddress(const std::string& id) const {
    return address(id) + ".new";
}

void BusFolder::publish(const std::string& id) const {
    if (std::rename(unpublishedAddress(id).c_str(), address(id).c_str()) != 0)
        throw std::runtime_error("cannot publish an endpoint in " + path_ + ": " + std::strerror(errno));
}

void BusFolder::remove(const std::string& id) const {
    unlink(address(id).c_str());
    rmdir(path_.c_str()); // fails while others are in it
}

std::vector<std::string> BusFolder::list() const {
    std::vector<std::string> ids;
    DIR* folder = opendir(path_.c_str());
    if (folder == nullptr)
        return ids;
    while (const dirent* entry = readdir(folder)) {
        if (isEndPointId(entry->d_name))
            ids.emplace_back(entry->d_name);
    }
    closedir(folder);
    return ids;
}

} // namespace standins
