#include "wire.h"

#include <cstring>

namespace standins::wire {

namespace {

// Bumped whenever frames change; endpoints of different builds refuse each other.
constexpr char protocol[] = "brivon-bus-1";

template <typename Message, typename Visit>
void visitMessage(Message& message, Visit visit) {
    visit(message.type);
    visit(message.appId);
    visit(message.appVersion);
    visit(message.source.id);
    visit(message.source.appId);
    visit(message.source.appVersion);
    visit(message.payload);
}

template <typename Peer, typename Visit>
void visitHello(Peer& peer, Visit visit) {
    visit(peer.id);
    visit(peer.appId);
    visit(peer.appVersion);
}

void appendLength(Buffer& buffer, std::size_t length) {
    const auto number = static_cast<std::uint32_t>(length);
    char bytes[lengthBytes];
    std::memcpy(bytes, &number, lengthBytes);
    buffer.insert(buffer.end(), bytes, bytes + lengthBytes);
}

void appendField(Buffer& buffer, const std::string& field) {
    appendLength(buffer, field.size());
    buffer.insert(buffer.end(), field.begin(), field.end());
}

std::size_t readLength(const char* data) {
    std::uint32_t number = 0;
    std::memcpy(&number, data, lengthBytes);
    return number;
}

// Takes fields off a frame one by one. Once a field does not fit, every later one fails too.
class FieldReader {
public:
    explicit FieldReader(const Frame& frame)
        : data_(frame.data + 1)
        , left_(frame.size - 1) {}

    void operator()(std::string& field) {
        if (left_ < lengthBytes || readLength(data_) > left_ - lengthBytes) {
            bad_ = true;
            left_ = 0;
            return;
        }
        const std::size_t length = readLength(data_);
        field.assign(data_ + lengthBytes, length);
        data_ += lengthBytes + length;
        left_ -= lengthBytes + length;
    }
    bool isComplete() const { return !bad_ && left_ == 0; }

private:
    const char* data_;
    std::size_t left_;
    bool bad_ = false;
};

} // namespace

std::size_t messageFrameSize(const MessageFields& message) {
    std::size_t size = lengthBytes + 1;
    visitMessage(message, [&size](const std::string& field) { size += lengthBytes + field.size(); });
    return size;
}

void appendMessage(Buffer& buffer, Kind kind, const MessageFields& message) {
    appendLength(buffer, messageFrameSize(message) - lengthBytes);
    buffer.push_back(static_cast<char>(kind));
    visitMessage(message, [&buffer](const std::string& field) { appendField(buffer, field); });
}

void appendHello(Buffer& buffer, const EndPointFields& self) {
    Buffer body;
    appendField(body, protocol);
    visitHello(self, [&body](const std::string& field) { appendField(body, field); });
    appendLength(buffer, body.size() + 1);
    buffer.push_back(static_cast<char>(Kind::Hello));
    buffer.insert(buffer.end(), body.begin(), body.end());
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
    if (frame.kind() != Kind::AddressedMessage && frame.kind() != Kind::BroadcastMessage)
        return false;
    FieldReader reader(frame);
    visitMessage(message, [&reader](std::string& field) { reader(field); });
    return reader.isComplete();
}

bool parseHello(const Frame& frame, EndPointFields& peer) {
    if (frame.kind() != Kind::Hello)
        return false;
    FieldReader reader(frame);
    std::string spoken;
    reader(spoken);
    visitHello(peer, [&reader](std::string& field) { reader(field); });
    return reader.isComplete() && spoken == protocol;
}

} // namespace standins::wire
