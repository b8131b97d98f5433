#include "wire.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

namespace standins::wire {

namespace {

// Bumped whenever frames change; endpoints of different builds refuse each other.
constexpr char protocol[] = "brivon-bus-1";

template <typename Visit>
void visitMessage(const Outgoing& outgoing, Visit visit) {
    visit(outgoing.message.type);
    visit(outgoing.sender.appId);
    visit(outgoing.sender.appVersion);
    visit(outgoing.source.id);
    visit(outgoing.source.appId);
    visit(outgoing.source.appVersion);
    visit(outgoing.message.payload);
}

template <typename Visit>
void visitHello(const EndPointFields& self, Visit visit) {
    visit(protocol);
    visit(self.id);
    visit(self.appId);
    visit(self.appVersion);
}

// Puts numbers and fields where there is room for them.
class FieldWriter {
public:
    explicit FieldWriter(char* at)
        : at_(at) {}

    void length(std::size_t length) {
        const auto number = static_cast<std::uint32_t>(length);
        std::memcpy(at_, &number, lengthBytes);
        at_ += lengthBytes;
    }
    void kind(Kind kind) { *at_++ = static_cast<char>(kind); }
    void operator()(std::string_view field) {
        length(field.size());
        std::memcpy(at_, field.data(), field.size());
        at_ += field.size();
    }

private:
    char* at_;
};

// visitFields hands every field over to what it is given.
template <typename VisitFields>
std::size_t frameSize(VisitFields visitFields) {
    std::size_t size = lengthBytes + 1;
    visitFields([&size](std::string_view field) { size += lengthBytes + field.size(); });
    return size;
}

template <typename VisitFields>
void appendFrame(Buffer& buffer, Kind kind, std::size_t size, VisitFields visitFields) {
    const std::size_t start = buffer.size();
    buffer.resize(start + size);
    FieldWriter writer(&buffer[start]);
    writer.length(size - lengthBytes);
    writer.kind(kind);
    visitFields([&writer](std::string_view field) { writer(field); });
}

std::size_t readLength(const char* data) {
    std::uint32_t number = 0;
    std::memcpy(&number, data, lengthBytes);
    return number;
}

// Takes fields off a frame one by one. Once a field does not fit, every later one is empty.
class FieldReader {
public:
    explicit FieldReader(const Frame& frame)
        : data_(frame.data + 1)
        , left_(frame.size - 1) {}

    std::string_view next() {
        if (left_ < lengthBytes || readLength(data_) > left_ - lengthBytes) {
            bad_ = true;
            left_ = 0;
            return {};
        }
        const std::string_view field(data_ + lengthBytes, readLength(data_));
        data_ += lengthBytes + field.size();
        left_ -= lengthBytes + field.size();
        return field;
    }
    bool isComplete() const { return !bad_ && left_ == 0; }

private:
    const char* data_;
    std::size_t left_;
    bool bad_ = false;
};

// Most messages of a connection have the source of the one before.
void readSource(FieldReader& reader, EndPoint& source) {
    const EndPointFields& known = fieldsOf(source);
    const std::string_view id = reader.next();
    const std::string_view appId = reader.next();
    const std::string_view appVersion = reader.next();
    if (id != known.id || appId != known.appId || appVersion != known.appVersion)
        source = makeEndPoint({std::string(id), std::string(appId), std::string(appVersion)});
}

} // namespace

std::size_t messageFrameSize(const Outgoing& outgoing) {
    return frameSize([&outgoing](auto visit) { visitMessage(outgoing, visit); });
}

void appendMessage(Buffer& buffer, Kind kind, const Outgoing& outgoing, std::size_t size) {
    appendFrame(buffer, kind, size, [&outgoing](auto visit) { visitMessage(outgoing, visit); });
}

Buffer makeHello(const EndPointFields& self) {
    const auto fields = [&self](auto visit) { visitHello(self, visit); };
    const std::size_t size = frameSize(fields);
    if (size > helloLimit)
        throw std::runtime_error("cannot join the bus: the application id and version have " +
                                 std::to_string(self.appId.size() + self.appVersion.size()) +
                                 " bytes, and not quite 64 KiB is the limit");
    Buffer hello;
    appendFrame(hello, Kind::Hello, size, fields);
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
    if (frame.kind() != Kind::AddressedMessage && frame.kind() != Kind::BroadcastMessage)
        return false;
    FieldReader reader(frame);
    message.type = reader.next();
    message.appId = reader.next();
    message.appVersion = reader.next();
    readSource(reader, message.source);
    message.payload = reader.next();
    return reader.isComplete();
}

bool parseHello(const Frame& frame, EndPointFields& peer) {
    if (frame.kind() != Kind::Hello)
        return false;
    FieldReader reader(frame);
    const std::string_view spoken = reader.next();
    peer.id = reader.next();
    peer.appId = reader.next();
    peer.appVersion = reader.next();
    return reader.isComplete() && spoken == protocol;
}

} // namespace standins::wire
