#include "peers.h"

#include <algorithm>
#include <utility>

namespace standins {

// ---- Any thread

std::vector<EndPoint> Peers::present() const {
    std::vector<const Peer*> present;
    const std::lock_guard lock(mutex_);
    for (const auto& [id, peer] : peers_) {
        if (peer.isPresent)
            present.push_back(&peer);
    }
    std::sort(present.begin(), present.end(), [](const Peer* a, const Peer* b) { return a->order < b->order; });
    std::vector<EndPoint> endPoints;
    endPoints.reserve(present.size());
    for (const Peer* peer : present)
        endPoints.push_back(makeEndPoint(peer->identity));
    return endPoints;
}

Peers::Sent Peers::send(const wire::Outgoing& outgoing, std::size_t size) {
    const std::vector<EndPoint>& destinations = outgoing.message.destinations;
    const bool isBroadcast = destinations.empty();
    const wire::Kind kind = isBroadcast ? wire::Kind::BroadcastMessage : wire::Kind::AddressedMessage;
    Sent sent;
    const std::lock_guard lock(mutex_);
    std::vector<Receiver> receivers = isBroadcast ? everyone() : addressed(destinations, sent.missing);
    const auto full = std::stable_partition(receivers.begin(), receivers.end(), [size](const Receiver& receiver) {
        return receiver.outbox->hasRoomFor(size);
    });
    std::for_each(full, receivers.end(), [&sent](const Receiver& receiver) {
        if (receiver.outbox->refuse())
            sent.full.push_back(*receiver.identity);
    });
    const bool isRefused = full != receivers.end() && (!isBroadcast || full == receivers.begin());
    if (isRefused)
        return {statusQueueFull, false, {}, std::move(sent.full)};
    for (auto receiver = receivers.begin(); receiver != full; ++receiver) {
        Outbox& outbox = *receiver->outbox;
        const bool isFirst = outbox.isEmpty();
        outbox.append(kind, outgoing, size);
        if (isFirst && receivers.size() == 1)
            outbox.writeNow(hasHeard_.exchange(false));
        sent.isWaiting = sent.isWaiting || outbox.isWaiting();
    }
    return sent;
}

std::vector<Peers::Receiver> Peers::everyone() {
    std::vector<Receiver> receivers;
    for (auto& [id, peer] : peers_) {
        if (peer.isPresent)
            receivers.push_back({&peer.identity, &peer.outbox});
    }
    return receivers;
}

std::vector<Peers::Receiver> Peers::addressed(const std::vector<EndPoint>& destinations,
                                              std::vector<EndPointFields>& missing) {
    std::vector<Receiver> receivers;
    for (const EndPoint& destination : destinations) {
        const EndPointFields& fields = fieldsOf(destination);
        const auto found = peers_.find(fields.id);
        if (fields.id == self_.id)
            receivers.push_back({&self_, &own_});
        else if (found != peers_.end() && found->second.isPresent)
            receivers.push_back({&found->second.identity, &found->second.outbox});
        else
            missing.push_back(fields);
    }
    return receivers;
}

void Peers::awaitEmpty(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    emptied_.wait_for(lock, limit, [this] {
        return std::all_of(peers_.begin(), peers_.end(),
                           [](const auto& entry) { return entry.second.outbox.isEmpty(); });
    });
}

// ---- Library thread

Peer* Peers::find(const std::string& id) {
    const auto found = peers_.find(id);
    return found == peers_.end() ? nullptr : &found->second;
}

Peer& Peers::add(const std::string& id) {
    if (Peer* known = find(id))
        return *known;
    const std::lock_guard lock(mutex_);
    Peer& peer = peers_[id];
    peer.order = ++seen_;
    peer.identity.id = id;
    return peer;
}

bool Peers::introduce(Peer& peer, const EndPointFields& identity) {
    const std::lock_guard lock(mutex_);
    peer.identity = identity;
    return !std::exchange(peer.isPresent, true);
}

Peer Peers::remove(const std::string& id) {
    const std::lock_guard lock(mutex_);
    const auto found = peers_.find(id);
    Peer gone = std::move(found->second);
    peers_.erase(found);
    emptied_.notify_all();
    return gone;
}

void Peers::setDescriptor(Peer& peer, int descriptor) {
    const std::lock_guard lock(mutex_);
    peer.outbox.setDescriptor(descriptor);
}

std::vector<Peers::Write> Peers::startWrites() {
    std::vector<Write> writes;
    const std::lock_guard lock(mutex_);
    for (auto& [id, peer] : peers_) {
        if (peer.outbox.isWaiting() && peer.out != nullptr && peer.out->isReady())
            writes.push_back({peer.out, peer.outbox.startWrite(), peer.outbox.takeWritten()});
    }
    return writes;
}

bool Peers::endWrite(Peer& peer, wire::Buffer storage) {
    const std::lock_guard lock(mutex_);
    peer.outbox.endWrite(std::move(storage));
    if (peer.outbox.isEmpty())
        emptied_.notify_all();
    return peer.outbox.isWaiting();
}

wire::Buffer Peers::startOwn() {
    const std::lock_guard lock(mutex_);
    return own_.startWrite();
}

void Peers::endOwn(wire::Buffer storage) {
    const std::lock_guard lock(mutex_);
    own_.endWrite(std::move(storage));
}

} // namespace standins
