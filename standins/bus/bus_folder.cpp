// What is the same on every system.
#include "bus_folder.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <stdexcept>

namespace standins {

namespace {

constexpr std::size_t busNameLimit = 32; // keeps a socket's path within what systems allow
constexpr char defaultBus[] = "default";
constexpr int backlog = 511;
constexpr int listenAttempts = 100;

bool isBusName(const std::string& text) {
    return text.size() <= busNameLimit && text[0] != '.' && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                      c == '_' || c == '.';
           });
}

void check(int status, const std::string& what) {
    if (status != 0)
        throw std::runtime_error(what + ": " + uv_strerror(status));
}

} // namespace

bool isEndPointId(const std::string& text) {
    return text.size() == 32 && std::all_of(text.begin(), text.end(),
                                            [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string newEndPointId() {
    std::random_device random;
    char id[33];
    std::snprintf(id, sizeof id, "%08x%08x%08x%08x", random(), random(), random(), random());
    return id;
}

void ClosePipe::operator()(uv_pipe_t* pipe) const {
    uv_close(reinterpret_cast<uv_handle_t*>(pipe),
             [](uv_handle_t* handle) { delete reinterpret_cast<uv_pipe_t*>(handle); });
}

std::string BusFolder::environment(const char* name) {
    std::string value(32768, '\0'); // the longest that Windows has
    std::size_t size = value.size();
    value.resize(uv_os_getenv(name, value.data(), &size) == 0 ? size : 0);
    return value;
}

BusFolder BusFolder::open() {
    std::string name = environment("BRIVON_BUS");
    if (name.empty())
        name = defaultBus;
    if (!isBusName(name))
        throw std::runtime_error("BRIVON_BUS must be 1 to 32 letters, digits, '-', '_' or '.', and not begin with '.'");
    makePrivateFolder(parent());
    const std::filesystem::path bus = parent() / name;
    makePrivateFolder(bus);
    return BusFolder(bus);
}

Listener BusFolder::listen(uv_loop_t* loop, const std::string& id, void* owner, uv_connection_cb connected) const {
    const std::string address = unpublishedAddress(id);
    for (int attempt = 0; attempt < listenAttempts; ++attempt) {
        Listener listener(new uv_pipe_t{});
        uv_pipe_init(loop, listener.get(), 0);
        listener->data = owner;
        check(uv_pipe_bind(listener.get(), address.c_str()), "cannot bind " + address);
        check(uv_listen(reinterpret_cast<uv_stream_t*>(listener.get()), backlog, connected),
              "cannot listen on " + address);
        if (publish(id))
            return listener;
    }
    throw std::runtime_error("cannot join the bus: others remove its socket again and again");
}

void BusFolder::remove(const std::string& id) const {
    std::error_code ignored;
    std::filesystem::remove(path_ / id, ignored);
}

std::optional<std::vector<std::string>> BusFolder::list() const {
    std::vector<std::string> ids;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(path_, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        std::string name = entry->path().filename().string();
        if (isEndPointId(name))
            ids.push_back(std::move(name));
        else
            removeIfAbandoned(entry->path());
    }
    if (failure && failure != std::errc::no_such_file_or_directory)
        return std::nullopt;
    return ids;
}

} // namespace standins
