// The local bus: every endpoint listens under an address in the bus folder and connects to every other one it finds
// there. Messages to a peer go through the connection that this side opened, which keeps their order; messages from a
// peer come through the one that the peer opened. A peer at whose address nobody listens any more is gone.
#pragma once

#include "bus_folder.h"
#include "callbacks.h"
#include "connection.h"
#include "loop_thread.h"
#include "peers.h"

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace standins {

class Bus final : Connection::Owner {
public:
    // Joins as an endpoint with a new id, and calls the program from then on, on the library thread. Throws
    // std::runtime_error.
    Bus(Callbacks& callbacks, const std::string& appId, const std::string& appVersion);
    // Any thread but the library's.
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Any thread but the library's. Waits a bounded time until what was sent has left the process.
    void drain(std::chrono::milliseconds limit) { peers_.awaitEmpty(limit); }
    // Any thread but the library's. The program is not called any more after it returns.
    void leave();
    // Any thread, while the process exits: others need not find out by themselves.
    void unpublish() const { folder_.remove(self().id); }

    // What follows may be called on any thread.
    const EndPointFields& self() const { return peers_.self(); }
    // The other endpoints.
    std::vector<EndPoint> endPoints() const { return peers_.present(); }
    // Looks for endpoints in the folder. The endpoints callbacks follow, even if nothing has changed.
    void refresh();
    // Waits a moment for the refresh to end, except on the library's thread: callers sleep much longer between polls.
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
    void connectTo(Peer& peer);
    void lookAgain();
    bool greeted(Connection& connection, const EndPointFields& identity) override;
    void received(const MessageFields& message) override;
    void wasRead(std::size_t messages) override;
    void writeWaiting();
    void written(Connection& connection, wire::Buffer storage) override;
    void broken(Connection& connection, int status) override;
    void eraseLost(const std::string& id);
    void reportUndelivered(const wire::Buffer& frames, const EndPointFields& destination);
    void close(Connection& connection);
    void startRefresh();
    void settleRefresh();
    void changed();

    Callbacks& callbacks_;
    BusFolder folder_; // constant
    Peers peers_;      // says itself which threads may do what
    wire::Buffer hello_;
    uv_async_t writeWake_{}; // sent by any thread

    // Library thread only.
    Listener listener_;
    uv_timer_t again_{}; // runs while something has failed or is awaited
    std::set<Connection*> connections_;
    std::size_t refreshesScanned_ = 0;
    std::uint64_t refreshingSince_ = 0; // the time (of uv_hrtime); 0 while no refresh is pending
    std::uint64_t receivedAt_ = 0;      // the time of the latest read of messages
    bool hasLeft_ = false;

    LoopThread thread_; // the last member, whose thread ends before the rest is destroyed
};

} // namespace standins
