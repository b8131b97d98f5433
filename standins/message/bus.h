// The local bus: every endpoint listens under an address in the bus folder and connects to every other one it finds
// there. Messages to a peer go through the connection that this side opened, which keeps their order; messages from a
// peer come through the one that the peer opened. A peer that can no longer be connected to is gone.
#ifndef STANDINS_MESSAGE_BUS_H
#define STANDINS_MESSAGE_BUS_H

#include "bus_folder.h"
#include "direct_write.h"
#include "loop_thread.h"
#include "records.h"
#include "wire.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace standins {

// Statuses of this library's own; a program knows only that they are failures.
inline constexpr auto statusNotJoined = static_cast<BrivonMessageErrorCode>(1);
inline constexpr auto statusMessageTooLarge = static_cast<BrivonMessageErrorCode>(2);
inline constexpr auto statusQueueFull = static_cast<BrivonMessageErrorCode>(3);

class Bus {
public:
    // Called on the library thread, with no lock held.
    class Events {
    public:
        virtual void endPointsChanged() = 0;
        virtual void received(const MessageFields& message) = 0;
        // A message to this destination could not be delivered.
        virtual void unreachable(const EndPoint& destination) = 0;

    protected:
        ~Events() = default;
    };

    // What may wait for one peer before sends to it are refused.
    static constexpr std::size_t queueLimit = std::size_t{64} << 20;

    // Makes an endpoint with a new id; throws std::runtime_error. The loop's thread must end before the bus does.
    Bus(LoopThread& thread, Events& events, const std::string& appId, const std::string& appVersion);
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Any thread but the library's. Throws std::runtime_error; to be left all the same.
    void join();
    // Any thread but the library's. Waits a bounded time until what was sent has left the process.
    void drain(std::chrono::milliseconds limit);
    // Any thread but the library's. No event comes after it returns.
    void leave();
    // Any thread, while the process exits: others need not find out by themselves.
    void unpublish() const { folder_.remove(fieldsOf(self_).id); }

    // What follows may be called on any thread.
    const EndPoint& self() const { return self_; }
    // The other endpoints, in the order in which they were first seen.
    std::vector<EndPoint> endPoints() const;
    // Looks for endpoints in the folder. Whatever it finds, endPointsChanged follows.
    void refresh();
    // On another thread than the library's, waits a moment for the answer to become false.
    bool isRefreshing() const;
    // Never waits for a receiver. Nothing is sent to anyone unless all destinations have room.
    BrivonMessageErrorCode send(const MessageFields& message);

private:
    class Connection;

    struct Peer {
        EndPoint identity;
        bool present = false;      // its Hello has arrived
        std::size_t order = 0;     // in which it was first seen
        wire::Buffer pending;      // frames that no write has taken yet
        std::size_t begun = 0;     // bytes of the first of them that have been written
        std::size_t queued = 0;    // bytes pending and being written
        DirectWrite direct;        // for senders, while nothing is queued
        std::uint64_t sentAt = 0;  // the time of the latest send
        Connection* out = nullptr; // library thread only
        bool lost = false;         // library thread only: gone, once what it sent before has been read
    };
    using Peers = std::map<std::string, Peer>;

    // Any thread. Runs the task on the library thread unless the bus is left before.
    void later(LoopThread::Task task);

    // The steps of a connection's life, all on the library thread.
    void listen();
    void accept();
    void scan();
    void connectTo(const std::string& id);
    Peer& peerOf(const std::string& id);
    void connected(Connection& connection, int status);
    bool handleFrame(Connection& connection, const wire::Frame& frame);
    void awaitNext(std::size_t messages);
    bool greeted(Connection& connection, const EndPointFields& peer);
    void transmit(Peer& peer, std::size_t size, bool mayWrite, std::uint64_t now);
    void wakeWriter();
    void writePending();
    void writePending(Peer& peer);
    void written(Connection& connection, int status);
    void broken(Connection& connection, int status = 0);
    void lose(const std::string& id);
    void erase(const std::string& id);
    void reportUndelivered(const wire::Buffer& frames, const EndPoint& destination);
    void close(Connection& connection);
    void settleRefresh(bool timeIsUp);
    void changed();
    bool hasInbound(const std::string& id) const;

    LoopThread& thread_;
    Events& events_;
    BusFolder folder_;
    EndPoint self_;

    // Library thread only.
    uv_pipe_t listener_{};
    uv_async_t writeWake_{};
    uv_timer_t refreshTimer_{};
    std::set<Connection*> connections_;
    MessageFields incoming_;
    std::size_t received_ = 0;     // messages
    std::uint64_t receivedAt_ = 0; // the time of the latest read of messages
    bool left_ = false;

    mutable std::mutex mutex_; // guards what follows; never held across an event
    Peers peers_;              // entries are added and erased on the library thread only
    std::size_t seen_ = 0;
    bool writeScheduled_ = false;
    std::size_t queuedForSelf_ = 0; // bytes of messages to this very endpoint
    bool scanPosted_ = false;
    std::size_t refreshesAsked_ = 0;
    std::size_t refreshesDone_ = 0;
    std::condition_variable drained_;
    mutable std::condition_variable refreshed_;
};

} // namespace standins

#endif
