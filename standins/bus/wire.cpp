#include "wire.h"

#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace standins::wire {

namespace {

// Bumped whenever frames change; endpoints of different builds refuse each other.
constexpr std::string_view protocol = "brivon-bus-1";

using HelloFields = std::array<std::string_view, 4>;  // the protocol, and of this endpoint id, appId, appVersion
using MessageTexts = std::array<std::string_view, 7>; // type; the sender's appId and appVersion; the source; payload

MessageTexts textsOf(const Outgoing& outgoing) {
    const auto& [message, sender] = outgoing;
    // Nobody could answer a source without an id, which is what a program sends before it has seen its own endpoint.
    const EndPointFields& named = fieldsOf(message.source);
    const EndPointFields& source = named.id.empty() ? sender : named;
    return {message.type, sender.appId, sender.appVersion, source.id, source.appId, source.appVersion, message.payload};
}

template <typename Fields>
std::size_t frameSize(const Fields& fields) {
    std::size_t size = lengthBytes + 1;
    for (const std::string_view field : fields)
        size += lengthBytes + field.size();
    return size;
}

template <typename Fields>
void appendFrame(Buffer& buffer, Kind kind, const Fields& fields) {
    const std::size_t size = frameSize(fields);
    buffer.resize(buffer.size() + size);
    char* at = buffer.data() + buffer.size() - size;
    const auto append = [&at](const void* bytes, std::size_t count) {
        std::memcpy(at, bytes, count);
        at += count;
    };
    const auto appendLength = [&append](std::size_t length) {
        const auto number = static_cast<std::uint32_t>(length);
        append(&number, lengthBytes);
    };
    appendLength(size - lengthBytes);
    append(&kind, 1);
    for (const std::string_view field : fields) {
        appendLength(field.size());
        append(field.data(), field.size());
    }
}

std::size_t readLength(const char* data) {
    std::uint32_t number = 0;
    std::memcpy(&number, data, lengthBytes);
    return number;
}

template <typename Fields>
bool readFields(const Frame& frame, Fields& fields) {
    const char* at = frame.data + 1;
    std::size_t left = frame.size - 1;
    for (std::string_view& field : fields) {
        if (left < lengthBytes || readLength(at) > left - lengthBytes)
            return false;
        field = {at + lengthBytes, readLength(at)};
        at += lengthBytes + field.size();
        left -= lengthBytes + field.size();
    }
    return left == 0;
}

} // namespace

std::size_t messageSize(const Outgoing& outgoing) {
    return frameSize(textsOf(outgoing));
}

void appendMessage(Buffer& buffer, const Outgoing& outgoing) {
    appendFrame(buffer, outgoing.isBroadcast() ? Kind::BroadcastMessage : Kind::AddressedMessage, textsOf(outgoing));
}

Buffer makeHello(const EndPointFields& self) {
    Buffer hello;
    appendFrame(hello, Kind::Hello, HelloFields{protocol, self.id, self.appId, self.appVersion});
    if (hello.size() > helloLimit)
        throw std::runtime_error("cannot join the bus: the application id and version have " +
                                 std::to_string(self.appId.size() + self.appVersion.size()) +
                                 " bytes, and not quite 64 KiB is the limit");
    return hello;
}

Found findFrame(const char* data, std::size_t size, std::size_t limit, Frame& frame) {
    if (size < lengthBytes)
        return Found::Incomplete;
    const std::size_t length = readLength(data);
    if (length == 0 || length > limit)
        return Found::Bad;
    if (size - lengthBytes < length)
        return Found::Incomplete;
    frame = {data + lengthBytes, length};
    return Found::Frame;
}

bool parseMessage(const Frame& frame, MessageFields& message) {
    MessageTexts texts;
    if ((frame.kind() != Kind::AddressedMessage && frame.kind() != Kind::BroadcastMessage) || !readFields(frame, texts))
        return false;
    const auto& [type, appId, appVersion, sourceId, sourceAppId, sourceAppVersion, payload] = texts;
    message.type = type;
    message.appId = appId;
    message.appVersion = appVersion;
    message.payload = payload;
    // Most messages of a connection have the source of the one before.
    const EndPointFields& known = fieldsOf(message.source);
    if (sourceId != known.id || sourceAppId != known.appId || sourceAppVersion != known.appVersion)
        message.source = makeEndPoint({std::string(sourceId), std::string(sourceAppId), std::string(sourceAppVersion)});
    return true;
}

bool parseHello(const Frame& frame, EndPointFields& peer) {
    HelloFields fields;
    if (frame.kind() != Kind::Hello || !readFields(frame, fields))
        return false;
    peer = {std::string(fields[1]), std::string(fields[2]), std::string(fields[3])};
    return fields[0] == protocol;
}

} // namespace standins::wire
