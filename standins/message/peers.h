// The other endpoints as the bus knows them, and what waits for each of them and for this one.
#ifndef STANDINS_MESSAGE_PEERS_H
#define STANDINS_MESSAGE_PEERS_H

#include "connection.h"
#include "outbox.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace standins {

// Statuses of this library's own; a program knows only that they are failures.
inline constexpr auto statusMessageTooLarge = static_cast<BrivonMessageErrorCode>(2);
inline constexpr auto statusQueueFull = static_cast<BrivonMessageErrorCode>(3);

struct Peer {
    // Guarded by the lock of Peers and changed on the library thread, which therefore reads them without it. The outbox
    // is changed on any thread.
    EndPointFields identity;
    std::size_t order = 0;  // in which it was first seen
    bool isPresent = false; // it has said who it is
    Outbox outbox;

    // Library thread only.
    Connection* out = nullptr;
    bool isLost = false; // gone, once what it sent before has been read
};

class Peers {
public:
    explicit Peers(EndPointFields self)
        : self_(std::move(self)) {}

    // ---- Any thread

    const EndPointFields& self() const { return self_; }
    // Those that are present, in the order in which they were first seen.
    std::vector<EndPoint> present() const;

    struct Sent {
        BrivonMessageErrorCode status = BrivonMessageErrorCode_Success;
        bool isWaiting = false;              // something is to be written
        std::vector<EndPointFields> missing; // destinations that are not there
        std::vector<EndPointFields> full;    // receivers without room, each once until it has had room again
    };
    // Queues the frame of a message. A broadcast goes to everyone who has room; a message with destinations to all of
    // them that are there, or, when one has no room, to none.
    Sent send(const wire::Outgoing& outgoing, std::size_t size);

    // Any thread but the library's. Waits a bounded time until nothing waits for a peer.
    void awaitEmpty(std::chrono::milliseconds limit);

    // ---- Library thread

    Peer* find(const std::string& id);
    // The known one, or a new one that is not present.
    Peer& add(const std::string& id);
    // Takes down what the peer says of itself. False: it was present already.
    bool introduce(Peer& peer, const EndPointFields& identity);
    // A message has come, to which the next one that is sent may be the answer.
    void hear() { hasHeard_ = true; }
    // The peer is gone; so is its entry.
    Peer remove(const std::string& id);

    struct Write {
        Connection* connection;
        wire::Buffer frames;
        std::size_t start; // in the frames, of what is to be written
    };
    // The peer can be written to, through this descriptor, or cannot any more (-1).
    void setDescriptor(Peer& peer, int descriptor);
    // What can be written now, to be written.
    std::vector<Write> startWrites();
    // Answers whether more waits.
    bool endWrite(Peer& peer, wire::Buffer storage);
    // The same for messages to this endpoint itself.
    wire::Buffer startOwn();
    void endOwn(wire::Buffer storage);

private:
    struct Receiver {
        const EndPointFields* identity;
        Outbox* outbox;
    };
    // With the lock.
    std::vector<Receiver> everyone();
    std::vector<Receiver> addressed(const std::vector<EndPoint>& destinations, std::vector<EndPointFields>& missing);

    const EndPointFields self_;
    std::atomic<bool> hasHeard_ = false;
    mutable std::mutex mutex_;          // guards what follows; never held while anyone is called
    std::map<std::string, Peer> peers_; // entries are added and removed on the library thread only
    std::size_t seen_ = 0;
    Outbox own_;
    std::condition_variable emptied_;
};

} // namespace standins

#endif
