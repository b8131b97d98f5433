#include "connection.h"

#include <algorithm>
#include <utility>

namespace standins {

namespace {

constexpr std::size_t inputBytes = std::size_t{64} << 10;

template <typename Handle>
Connection& of(Handle* handle) {
    return *static_cast<Connection*>(handle->data);
}

uv_buf_t toBuffer(wire::Buffer& bytes, std::size_t start) {
    return uv_buf_init(bytes.data() + start, static_cast<unsigned>(bytes.size() - start));
}

} // namespace

Connection::Connection(Owner& owner, uv_loop_t* loop, wire::Buffer& hello, std::string peerId)
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
    if (status == 0)
        startReading();
    if (status != 0 || !sayHello())
        owner_.broken(*this, status);
}

// A failure comes back as the end of the stream.
bool Connection::sayHello() {
    const uv_buf_t buffer = toBuffer(hello_, 0);
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
    const uv_buf_t buffer = toBuffer(writing_, start);
    const auto done = [](uv_write_t* request, int status) { of(request).wasWritten(status); };
    if (uv_write(&request_, stream(), &buffer, 1, done) != 0)
        owner_.broken(*this, 0);
}

void Connection::wasWritten(int status) {
    if (isClosing())
        return;
    if (status == 0)
        owner_.written(*this, std::exchange(writing_, {}));
    else
        owner_.broken(*this, 0);
}

void Connection::close() {
    if (!isClosing())
        uv_close(handle(), [](uv_handle_t* handle) { delete &of(handle); });
}

// ---- Reading

void Connection::startReading() {
    uv_read_start(
        stream(), [](uv_handle_t* handle, std::size_t, uv_buf_t* buffer) { *buffer = of(handle).freeInput(); },
        [](uv_stream_t* stream, ssize_t size, const uv_buf_t*) {
            Connection& connection = of(stream);
            if (size < 0 || !connection.read(static_cast<std::size_t>(size)))
                connection.owner_.broken(connection, 0);
        });
}

uv_buf_t Connection::freeInput() {
    if (filled_ == input_.size())
        input_.resize(std::max(inputBytes, 2 * filled_));
    return toBuffer(input_, filled_);
}

// Handles every whole frame and keeps the rest. False: the connection is not to be read any further.
bool Connection::read(std::size_t size) {
    filled_ += size;
    std::size_t used = 0;
    std::size_t messages = 0;
    for (wire::Frame frame{};; used += wire::lengthBytes + frame.size) {
        const bool wasGreeted = isGreeted_;
        const std::size_t limit = wasGreeted ? wire::frameLimit : wire::helloLimit;
        const wire::Found found = wire::findFrame(input_.data() + used, filled_ - used, limit, frame);
        if (found == wire::Found::Incomplete)
            break;
        if (found == wire::Found::Bad || !(wasGreeted ? take(frame) : greet(frame)))
            return false;
        messages += wasGreeted ? 1 : 0;
    }
    std::copy(input_.data() + used, input_.data() + filled_, input_.data());
    filled_ -= used;
    if (filled_ == 0 && input_.size() > wire::keptStorage)
        wire::Buffer().swap(input_);
    owner_.wasRead(messages);
    return true;
}

bool Connection::take(const wire::Frame& frame) {
    if (isOutbound_ || !wire::parseMessage(frame, incoming_))
        return false;
    owner_.received(incoming_);
    if (incoming_.payload.capacity() > wire::keptStorage)
        std::string().swap(incoming_.payload);
    return true;
}

bool Connection::greet(const wire::Frame& frame) {
    EndPointFields peer;
    if (!wire::parseHello(frame, peer) || (isOutbound_ && peer.id != peerId_))
        return false;
    isGreeted_ = true;
    if (!isOutbound_ && !sayHello())
        return false;
    if (!owner_.greeted(*this, peer))
        return false;
    peerId_ = peer.id;
    return true;
}

} // namespace standins
