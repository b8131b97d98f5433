#include "connection.h"

#include <utility>

namespace standins {

namespace {

constexpr std::size_t readBytes = std::size_t{64} << 10;

template <typename Handle>
Connection& of(Handle* handle) {
    return *static_cast<Connection*>(handle->data);
}

} // namespace

Connection::Connection(Owner& owner, uv_loop_t* loop, const wire::Buffer& hello, std::string peerId)
    : owner_(owner)
    , isOutbound_(!peerId.empty())
    , peerId_(std::move(peerId))
    , hello_(hello) {
    uv_pipe_init(loop, &pipe_, 0);
    pipe_.data = connecting_.data = request_.data = this;
}

void Connection::connect(const std::string& address) {
    uv_pipe_connect(&connecting_, &pipe_, address.c_str(),
                    [](uv_connect_t* request, int status) { of(request).connected(status); });
}

bool Connection::accept(uv_stream_t* listener) {
    if (uv_accept(listener, stream()) != 0)
        return false;
    startReading();
    return true;
}

void Connection::connected(int status) {
    if (isClosing())
        return;
    if (status != 0) {
        owner_.broken(*this, status);
        return;
    }
    startReading();
    if (!sayHello())
        owner_.broken(*this, 0);
}

// A failure comes back as the end of the stream.
bool Connection::sayHello() {
    const uv_buf_t buffer = uv_buf_init(hello_.data(), static_cast<unsigned>(hello_.size()));
    return uv_write(&helloRequest_, stream(), &buffer, 1, [](uv_write_t*, int) {}) == 0;
}

int Connection::descriptor() {
#if !defined(_WIN32)
    uv_os_fd_t descriptor = -1;
    if (uv_fileno(handle(), &descriptor) == 0)
        return descriptor;
#endif
    return -1;
}

void Connection::write(wire::Buffer frames, std::size_t start) {
    writing_ = std::move(frames);
    const uv_buf_t buffer = uv_buf_init(writing_.data() + start, static_cast<unsigned>(writing_.size() - start));
    const auto done = [](uv_write_t* request, int status) {
        Connection& connection = of(request);
        if (connection.isClosing())
            return;
        if (status != 0)
            connection.owner_.broken(connection, 0);
        else
            connection.owner_.written(connection, std::exchange(connection.writing_, {}));
    };
    if (uv_write(&request_, stream(), &buffer, 1, done) != 0)
        owner_.broken(*this, 0);
}

void Connection::close() {
    if (!isClosing())
        uv_close(handle(), [](uv_handle_t* handle) { delete &of(handle); });
}

// ---- Reading

void Connection::startReading() {
    uv_read_start(
        stream(),
        [](uv_handle_t* handle, std::size_t, uv_buf_t* buffer) {
            wire::Buffer& storage = of(handle).readBuffer_;
            storage.resize(readBytes);
            *buffer = uv_buf_init(storage.data(), static_cast<unsigned>(storage.size()));
        },
        [](uv_stream_t* stream, ssize_t size, const uv_buf_t*) { of(stream).read(size); });
}

void Connection::read(ssize_t size) {
    if (size == 0)
        return;
    messages_ = 0;
    if (size < 0 || !consume(readBuffer_.data(), static_cast<std::size_t>(size)))
        owner_.broken(*this, 0);
    else
        owner_.wasRead(messages_);
}

// Handles every whole frame and keeps the rest. False: the connection is not to be read any further.
bool Connection::consume(const char* data, std::size_t size) {
    if (!rest_.empty()) {
        rest_.insert(rest_.end(), data, data + size);
        data = rest_.data();
        size = rest_.size();
    }
    std::size_t used = 0;
    for (wire::Frame frame{};; used += wire::lengthBytes + frame.size) {
        const std::size_t limit = greetedAt_ != 0 ? wire::frameLimit : wire::helloLimit;
        const wire::Found found = wire::findFrame(data + used, size - used, limit, frame);
        if (found == wire::Found::Incomplete)
            break;
        if (found == wire::Found::Bad || !take(frame))
            return false;
    }
    keepRest(data + used, size - used);
    return true;
}

// What is kept may lie in what was kept before.
void Connection::keepRest(const char* data, std::size_t size) {
    if (rest_.empty())
        rest_.assign(data, data + size);
    else
        rest_.erase(rest_.begin(), rest_.end() - static_cast<std::ptrdiff_t>(size));
    if (rest_.empty() && rest_.capacity() > wire::keptStorage)
        wire::Buffer().swap(rest_);
}

bool Connection::take(const wire::Frame& frame) {
    if (greetedAt_ == 0)
        return greet(frame);
    if (isOutbound_ || !wire::parseMessage(frame, incoming_))
        return false;
    ++messages_;
    owner_.received(incoming_);
    if (incoming_.payload.capacity() > wire::keptStorage)
        std::string().swap(incoming_.payload);
    return true;
}

bool Connection::greet(const wire::Frame& frame) {
    EndPointFields peer;
    if (!wire::parseHello(frame, peer) || (isOutbound_ && peer.id != peerId_))
        return false;
    greetedAt_ = uv_hrtime();
    if (!isOutbound_ && !sayHello())
        return false;
    if (!owner_.greeted(*this, peer))
        return false;
    peerId_ = peer.id;
    return true;
}

} // namespace standins
