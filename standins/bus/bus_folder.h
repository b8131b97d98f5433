// The folder in which the endpoints of one user on one bus find each other: one entry per endpoint, named by its id.
#pragma once

#include <uv.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace standins {

// Closes the pipe, on the loop's thread; it is deleted after that.
struct ClosePipe {
    void operator()(uv_pipe_t* pipe) const;
};
using Listener = std::unique_ptr<uv_pipe_t, ClosePipe>;

class BusFolder {
public:
    // Makes the folder of the bus named by BRIVON_BUS ("default" where that is not set). Throws std::runtime_error,
    // whose text names the folder, when the name is unusable or the folder does not belong to this user alone.
    static BusFolder open();

    std::string path() const { return path_.u8string(); }
    // The address under which an endpoint listens.
    std::string address(const std::string& id) const;
    // Listens there: an endpoint becomes visible only when it can be connected to. Throws std::runtime_error.
    Listener listen(uv_loop_t* loop, const std::string& id, void* owner, uv_connection_cb connected) const;
    // Removes the entry of an endpoint that is gone.
    void remove(const std::string& id) const;
    // The ids of all entries; nothing when they cannot be read now. Removes the remains of endpoints that ended before
    // they were visible.
    std::optional<std::vector<std::string>> list() const;

private:
    explicit BusFolder(std::filesystem::path path)
        : path_(std::move(path)) {}

    // An environment variable as the process has it now; empty where it is not set.
    static std::string environment(const char* name);
    // The folder of the current user's buses.
    static std::filesystem::path parent();
    static void makePrivateFolder(const std::filesystem::path& path);
    // The address to bind before publishing.
    std::string unpublishedAddress(const std::string& id) const;
    // False: another endpoint found the bound socket abandoned and removed it. Throws std::runtime_error.
    bool publish(const std::string& id) const;
    // Removes an entry that no endpoint has published or will publish.
    static void removeIfAbandoned(const std::filesystem::path& entry);

    std::filesystem::path path_;
};

// 32 lower-case hexadecimal digits, which is also what makes an id from elsewhere safe in a path.
bool isEndPointId(const std::string& text);
// Throws std::runtime_error.
std::string newEndPointId();

} // namespace standins
