// What is the same on every system.
#include "bus_folder.h"

#include <uv.h>

#include <algorithm>
#include <stdexcept>

namespace standins {

namespace {

constexpr std::size_t busNameLimit = 32; // keeps a socket's path within what systems allow

constexpr char defaultBus[] = "default";

bool isBusName(const std::string& text) {
    return text.size() <= busNameLimit && text[0] != '.' && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                      c == '_' || c == '.';
           });
}

} // namespace

bool isEndPointId(const std::string& text) {
    return text.size() == 32 && std::all_of(text.begin(), text.end(),
                                            [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string newEndPointId() {
    unsigned char bytes[16];
    const int status = uv_random(nullptr, nullptr, bytes, sizeof bytes, 0, nullptr);
    if (status != 0)
        throw std::runtime_error(std::string("cannot make an endpoint id: ") + uv_strerror(status));
    std::string id;
    for (const unsigned char byte : bytes) {
        id += "0123456789abcdef"[byte >> 4];
        id += "0123456789abcdef"[byte & 15];
    }
    return id;
}

BusFolder::BusFolder(std::filesystem::path path)
    : path_(std::move(path)) {}

BusFolder BusFolder::open() {
    std::string name = environment("BRIVON_BUS");
    if (name.empty())
        name = defaultBus;
    if (!isBusName(name))
        throw std::runtime_error("BRIVON_BUS must be 1 to 32 letters, digits, '-', '_' or '.', and not begin with '.'");
    const std::filesystem::path bus = openParent() / name;
    makePrivateFolder(bus);
    return BusFolder(bus);
}

void BusFolder::remove(const std::string& id) const {
    std::error_code ignored;
    std::filesystem::remove(path_ / id, ignored);
    sweep();
    std::filesystem::remove(path_, ignored); // fails while others are in it
}

std::optional<std::vector<std::string>> BusFolder::list() const {
    std::vector<std::string> ids;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(path_, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        std::string name = entry->path().filename().string();
        if (isEndPointId(name))
            ids.push_back(std::move(name));
    }
    if (failure && failure != std::errc::no_such_file_or_directory)
        return std::nullopt;
    return ids;
}

} // namespace standins
