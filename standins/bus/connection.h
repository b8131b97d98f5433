// One stream between two endpoints and the frames on it: a Hello in each direction, then messages from the side that
// connected. Library thread only.
#pragma once

#include "records.h"
#include "wire.h"

#include <uv.h>

#include <cstdint>
#include <string>

namespace standins {

// Deletes itself once it has been closed.
class Connection {
public:
    class Owner {
    public:
        // The other end has said who it is. False: it is not accepted, and `broken` follows.
        virtual bool greeted(Connection& connection, const EndPointFields& peer) = 0;
        // Borrowed.
        virtual void received(const MessageFields& message) = 0;
        // One read has brought so many messages.
        virtual void wasRead(std::size_t messages) = 0;
        // What was written is on its way; its storage may be used again.
        virtual void written(Connection& connection, wire::Buffer storage) = 0;
        // The connection is to be closed. The status says why it could not be made. It is 0 for a connection that has
        // ended, or that has brought a bad frame.
        virtual void broken(Connection& connection, int status) = 0;

    protected:
        ~Owner() = default;
    };

    // To be connected to the peer, or to be accepted where there is none yet. The Hello is borrowed.
    Connection(Owner& owner, uv_loop_t* loop, wire::Buffer& hello, std::string peerId = {});
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void connect(const std::string& address);
    bool accept(uv_stream_t* listener);
    // Whole frames, once greeted, from this byte on; one write at a time.
    void write(wire::Buffer frames, std::size_t start);
    void close();

    bool isOutbound() const { return isOutbound_; }
    bool isGreeted() const { return isGreeted_; }
    bool isReady() const { return isGreeted_ && writing_.empty(); }
    // For writing past libuv while no write is under way; -1 where that cannot be done.
    int descriptor();
    // Of an accepted one: empty until it is greeted.
    const std::string& peerId() const { return peerId_; }
    // The write under way, whose bytes stay where they are until libuv is done with them.
    const wire::Buffer& writing() const { return writing_; }

private:
    ~Connection() = default;

    uv_handle_t* handle() { return reinterpret_cast<uv_handle_t*>(&pipe_); }
    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&pipe_); }
    bool isClosing() { return uv_is_closing(handle()) != 0; }

    void connected(int status);
    bool sayHello();
    void wasWritten(int status);
    void startReading();
    uv_buf_t freeInput();
    bool read(std::size_t size);
    bool take(const wire::Frame& frame);
    bool greet(const wire::Frame& frame);

    Owner& owner_;
    const bool isOutbound_;
    std::string peerId_;
    bool isGreeted_ = false; // the other end has said who it is

    uv_pipe_t pipe_{};
    uv_connect_t connecting_{};
    uv_write_t helloRequest_{};
    wire::Buffer& hello_;
    uv_write_t request_{};
    wire::Buffer writing_; // not empty while a write is under way

    wire::Buffer input_;
    std::size_t filled_ = 0; // of the input, from its beginning
    MessageFields incoming_;
};

} // namespace standins
