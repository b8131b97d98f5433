// The folder in which the endpoints of one user on one bus find each other: one entry per endpoint, named by its id.
#ifndef STANDINS_MESSAGE_BUS_FOLDER_H
#define STANDINS_MESSAGE_BUS_FOLDER_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace standins {

class BusFolder {
public:
    // Makes the folder of the bus named by BRIVON_BUS ("default" where that is not set). Throws std::runtime_error,
    // whose text names the folder, when the name is unusable or the folder does not belong to this user alone.
    static BusFolder open();

    std::string path() const { return path_.u8string(); }
    // The address under which an endpoint listens.
    std::string address(const std::string& id) const;
    // The address to bind before publishing: an endpoint becomes visible only when it can be connected to.
    std::string unpublishedAddress(const std::string& id) const;
    // False: what was bound is gone, since another endpoint took it for abandoned. Throws std::runtime_error.
    bool publish(const std::string& id) const;
    // Removes the entry of an endpoint that is gone, and the folder with the last of them.
    void remove(const std::string& id) const;
    // Removes what endpoints have left that ended before they were published.
    void sweep() const;
    // The ids of all entries; nothing when they cannot be read now.
    std::optional<std::vector<std::string>> list() const;

private:
    explicit BusFolder(std::filesystem::path path);

    // An environment variable as the process has it now; empty where it is not set.
    static std::string environment(const char* name);
    // The folder of the current user's buses, made where it is missing, and closed to others.
    static std::filesystem::path openParent();
    static void makePrivateFolder(const std::filesystem::path& path);

    std::filesystem::path path_;
};

// 32 lower-case hexadecimal digits, which is also what makes an id from elsewhere safe in a path.
bool isEndPointId(const std::string& text);
// Throws std::runtime_error.
std::string newEndPointId();

} // namespace standins

#endif
