// The endpoints as the bus knows them, and what waits for each.
#pragma once

#include "connection.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace standins {

inline constexpr auto statusQueueFull = static_cast<BrivonMessageErrorCode>(3);

// What one endpoint is yet to get. Used with the lock of Peers.
class Outbox {
public:
    static constexpr std::size_t limit = std::size_t{64} << 20;

    // Whether one more frame may wait. It always may where nothing waits.
    bool hasCapacityFor(std::size_t size) const { return isEmpty() || queued() + size <= limit; }
    void append(const wire::Outgoing& outgoing) { wire::appendMessage(waiting_, outgoing); }
    // Notes that a frame did not fit. True for the first one since another did: the sender is to hear of it.
    bool refuse();
    // Nothing waits and no write is under way.
    bool isEmpty() const { return queued() == 0; }
    bool isWaiting() const { return !waiting_.empty(); }
    const wire::Buffer& waiting() const { return waiting_; }

    // The only frame that waits leaves on the sender's thread, as far as the socket takes it without waiting. A frame
    // that answers nothing and follows another within 1 ms is left to the library's thread, which writes many at a
    // time. A round trip takes 0.5 of the time that it takes without this.
    void writeNow(bool isAnswer);
    // That of the connection; -1 while there is none. A frame of which the last connection got a part is sent again.
    void setDescriptor(int descriptor);

    struct Write {
        wire::Buffer frames;
        std::size_t start; // how much the sender has written of them
    };
    // Takes everything that waits, to be written next. It counts as queued until the write has ended.
    Write startWrite();
    // The write has ended, whichever way; its storage may serve the next one.
    void endWrite(wire::Buffer storage);

private:
    std::size_t queued() const { return waiting_.size() + beingWritten_; }

    wire::Buffer waiting_;
    wire::Buffer spare_;
    std::size_t beingWritten_ = 0;
    bool isRefusing_ = false;
    int descriptor_ = -1;
    std::size_t written_ = 0;     // of the first frame that waits
    std::uint64_t writtenAt_ = 0; // the time (of uv_hrtime) of the last write
};

struct Peer {
    // Guarded by the lock of Peers and changed on the library thread, which therefore reads them without it. The outbox
    // is changed on any thread.
    EndPointFields identity;
    bool isPresent = false; // it has said who it is
    Outbox outbox;

    // Library thread only.
    Connection* out = nullptr;
    std::uint64_t triedAt = 0; // the time (of uv_hrtime) of the last attempt to connect
    bool isLost = false;       // gone, once what it sent before has been read
};

class Peers {
public:
    explicit Peers(EndPointFields self) { self_.identity = std::move(self); }

    // ---- Any thread

    const EndPointFields& self() const { return self_.identity; }
    // The others that are present.
    std::vector<EndPoint> present() const;

    struct Sent {
        BrivonMessageErrorCode status = BrivonMessageErrorCode_Success;
        std::vector<EndPointFields> missing; // destinations that are not there
        std::vector<EndPointFields> full;    // receivers without capacity, each once until it has had capacity again
        bool isToBeWritten = false;          // by the library's thread, which does not know it yet
    };
    // Queues the frame of a message. A broadcast goes to everyone who has capacity; a message with destinations to all
    // of them that are there, or, when one has no capacity, to none.
    Sent send(const wire::Outgoing& outgoing, std::size_t size);

    // Asks for a refresh of the endpoint list.
    void askRefresh() { ++refreshesAsked_; }
    std::size_t refreshesAsked() const { return refreshesAsked_; }

    // ---- Any thread but the library's. Each waits a bounded time, and answers whether it was long enough.

    // Until nothing waits for a peer.
    bool awaitEmpty(std::chrono::milliseconds limit);
    // Until no refresh is pending.
    bool awaitRefreshed(std::chrono::milliseconds limit) const;

    // ---- Library thread

    // Null for one that is not known.
    Peer* find(const std::string& id);
    // The known one, or a new one that is not present.
    Peer& add(const std::string& id);
    std::vector<Peer*> unconnected();
    // Takes down what the peer says of itself. False: it was present already.
    bool introduce(Peer& peer, const EndPointFields& identity);
    // A message has come, to which the next one that is sent may be the answer.
    void hear() { hasHeard_ = true; }
    // The peer is gone; so is its entry.
    Peer remove(const std::string& id);
    // Of the refreshes asked for, this many are over.
    void endRefreshes(std::size_t asked);

    struct Write {
        Peer* peer; // without a connection: this endpoint itself
        Outbox::Write write;
    };
    // What can be written now, to be written.
    std::vector<Write> startWrites();
    // Answers whether more waits.
    bool endWrite(Peer& peer, wire::Buffer storage);
    void setDescriptor(Peer& peer, int descriptor);

private:
    // With the lock.
    std::vector<Peer*> everyone();
    std::vector<Peer*> addressed(const std::vector<EndPoint>& destinations, std::vector<EndPointFields>& missing);

    std::atomic<bool> hasHeard_ = false;
    std::atomic<std::size_t> refreshesAsked_ = 0;
    mutable std::mutex mutex_;          // guards what follows; never held while anyone is called
    std::map<std::string, Peer> peers_; // entries are added and removed on the library thread only
    Peer self_;                         // this endpoint; its identity is constant
    std::size_t refreshesEnded_ = 0;
    mutable std::condition_variable changed_;
};

} // namespace standins
