// The local bus: every endpoint listens under an address in the bus folder and connects to every other one it finds
// there. Messages to a peer go through the connection that this side opened, which keeps their order; messages from a
// peer come through the one that the peer opened. A peer at whose address nobody listens any more is gone.
#ifndef STANDINS_MESSAGE_BUS_H
#define STANDINS_MESSAGE_BUS_H

#include "attempts.h"
#include "bus_folder.h"
#include "callbacks.h"
#include "connection.h"
#include "listener.h"
#include "loop_thread.h"
#include "peers.h"
#include "refreshes.h"

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace standins {

class Bus final : Connection::Owner {
public:
    // Joins as an endpoint with a new id. Throws std::runtime_error.
    Bus(Callbacks& callbacks, const std::string& appId, const std::string& appVersion);
    // Any thread but the library's.
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Any thread but the library's. Waits a bounded time until what was sent has left the process.
    void drain(std::chrono::milliseconds limit) { peers_.awaitEmpty(limit); }
    // Any thread but the library's. No event comes after it returns.
    void leave();
    // Any thread, while the process exits: others need not find out by themselves.
    void unpublish() const { folder_.remove(self().id); }

    // What follows may be called on any thread.
    const EndPointFields& self() const { return peers_.self(); }
    // The other endpoints, in the order in which they were first seen.
    std::vector<EndPoint> endPoints() const { return peers_.present(); }
    // Looks for endpoints in the folder. Whatever it finds, endPointsChanged follows.
    void refresh();
    // On another thread than the library's, waits a moment for the answer to become false.
    bool isRefreshing() const;
    // Never waits for a receiver.
    BrivonMessageErrorCode send(const MessageFields& message);

private:
    // Any thread. Runs the task on the library thread unless the bus is left before.
    void later(LoopThread::Task task);

    // What follows runs on the library thread, in the order of an endpoint's life.
    void open();
    void accept(uv_stream_t* listener);
    void scan();
    void tryAgain(const std::string& id);
    void connectTo(Peer& peer);
    bool greeted(Connection& connection, const EndPointFields& identity) override;
    void received(const MessageFields& message) override;
    void deliver(const MessageFields& message);
    void wasRead(std::size_t messages) override;
    void writeWaiting();
    void tellOwn();
    void written(Connection& connection, wire::Buffer storage) override;
    void broken(Connection& connection, int status) override;
    void lose(const std::string& id);
    void erase(const std::string& id);
    void reportFailure(const std::string& error, const std::string& fault);
    void reportUnreachable(const EndPointFields& destination);
    void reportUndelivered(const wire::Buffer& frames, const EndPointFields& destination);
    void close(Connection& connection);
    void settleRefresh(bool timeIsUp);
    void changed();
    bool hasInbound(const std::string& id) const;

    Callbacks& callbacks_;
    BusFolder folder_; // constant once joined
    Peers peers_;      // says itself which threads may do what
    Refreshes refreshes_;
    wire::Buffer hello_;
    uv_async_t writeWake_{}; // sent by any thread

    // Library thread only.
    Listener listener_{[this](uv_stream_t* listener) { accept(listener); }};
    Attempts attempts_{[this](const std::string& id) { tryAgain(id); }};
    uv_timer_t refreshTimer_{};
    std::set<Connection*> connections_;
    std::uint64_t receivedAt_ = 0; // the time of the latest read of messages
    bool hasLeft_ = false;

    LoopThread thread_; // the last member, whose thread ends before the rest is destroyed
};

} // namespace standins

#endif
