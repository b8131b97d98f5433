#include "peers.h"

#include <algorithm>
#include <utility>

#if !defined(_WIN32)
#include <sys/socket.h>
#endif

namespace standins {

namespace {

[[maybe_unused]] constexpr std::uint64_t pauseNs = 1'000'000;

}

// ---- What waits for one endpoint

bool Outbox::refuse() {
    return !std::exchange(isRefusing_, true);
}

void Outbox::setDescriptor(int descriptor) {
    descriptor_ = descriptor;
    written_ = 0;
}

void Outbox::writeNow([[maybe_unused]] bool isAnswer) {
#if !defined(_WIN32) // where no write ends without the library's thread
    const std::uint64_t now = uv_hrtime();
    const bool isSoon = now - std::exchange(writtenAt_, now) < pauseNs;
    if (descriptor_ < 0 || (isSoon && !isAnswer))
        return;
    const ssize_t sent = ::send(descriptor_, waiting_.data(), waiting_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    written_ = sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (written_ == waiting_.size()) {
        waiting_.clear();
        written_ = 0;
    }
#endif
}

Outbox::Write Outbox::startWrite() {
    beingWritten_ = waiting_.size();
    return {std::exchange(waiting_, std::move(spare_)), std::exchange(written_, 0)};
}

void Outbox::endWrite(wire::Buffer storage) {
    beingWritten_ = 0;
    writtenAt_ = uv_hrtime();
    storage.clear();
    if (storage.capacity() <= wire::keptStorage)
        spare_ = std::move(storage);
    // Half of it, so that a receiver at the edge is not reported again and again.
    if (queued() <= limit / 2)
        isRefusing_ = false;
}

// ---- Any thread

std::vector<EndPoint> Peers::present() const {
    std::vector<EndPoint> endPoints;
    const std::lock_guard lock(mutex_);
    for (const auto& [id, peer] : peers_) {
        if (peer.isPresent)
            endPoints.push_back(makeEndPoint(peer.identity));
    }
    return endPoints;
}

Peers::Sent Peers::send(const wire::Outgoing& outgoing, std::size_t size) {
    const bool isBroadcast = outgoing.isBroadcast();
    Sent sent;
    const std::lock_guard lock(mutex_);
    std::vector<Peer*> receivers = isBroadcast ? everyone() : addressed(outgoing.message.destinations, sent.missing);
    const auto full = std::stable_partition(receivers.begin(), receivers.end(), [size](const Peer* receiver) {
        return receiver->outbox.hasCapacityFor(size);
    });
    std::for_each(full, receivers.end(), [&sent](Peer* receiver) {
        if (receiver->outbox.refuse())
            sent.full.push_back(receiver->identity);
    });
    const bool isRefused = full != receivers.end() && (!isBroadcast || full == receivers.begin());
    if (isRefused)
        return {statusQueueFull, {}, std::move(sent.full)};
    std::for_each(receivers.begin(), full, [&](Peer* receiver) {
        Outbox& outbox = receiver->outbox;
        const bool isFirst = outbox.isEmpty();
        outbox.append(outgoing);
        if (isFirst && receivers.size() == 1)
            outbox.writeNow(hasHeard_.exchange(false));
        sent.isToBeWritten = sent.isToBeWritten || (isFirst && outbox.isWaiting());
    });
    return sent;
}

std::vector<Peer*> Peers::everyone() {
    std::vector<Peer*> receivers;
    for (auto& [id, peer] : peers_) {
        if (peer.isPresent)
            receivers.push_back(&peer);
    }
    return receivers;
}

std::vector<Peer*> Peers::addressed(const std::vector<EndPoint>& destinations, std::vector<EndPointFields>& missing) {
    std::vector<Peer*> receivers;
    for (const EndPoint& destination : destinations) {
        const EndPointFields& fields = fieldsOf(destination);
        const auto found = peers_.find(fields.id);
        if (fields.id == self().id)
            receivers.push_back(&self_);
        else if (found != peers_.end() && found->second.isPresent)
            receivers.push_back(&found->second);
        else
            missing.push_back(fields);
    }
    return receivers;
}

bool Peers::awaitEmpty(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] {
        return std::all_of(peers_.begin(), peers_.end(),
                           [](const auto& entry) { return entry.second.outbox.isEmpty(); });
    });
}

bool Peers::awaitRefreshed(std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return refreshesEnded_ == refreshesAsked_; });
}

// ---- Library thread

Peer* Peers::find(const std::string& id) {
    const auto found = peers_.find(id);
    return found == peers_.end() ? nullptr : &found->second;
}

Peer& Peers::add(const std::string& id) {
    const std::lock_guard lock(mutex_);
    Peer& peer = peers_[id];
    peer.identity.id = id;
    return peer;
}

std::vector<Peer*> Peers::unconnected() {
    std::vector<Peer*> found;
    for (auto& [id, peer] : peers_) {
        if (peer.out == nullptr)
            found.push_back(&peer);
    }
    return found;
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
    changed_.notify_all();
    return gone;
}

void Peers::endRefreshes(std::size_t asked) {
    const std::lock_guard lock(mutex_);
    refreshesEnded_ = asked;
    changed_.notify_all();
}

std::vector<Peers::Write> Peers::startWrites() {
    std::vector<Write> writes;
    const std::lock_guard lock(mutex_);
    if (self_.outbox.isWaiting())
        writes.push_back({&self_, self_.outbox.startWrite()});
    for (auto& [id, peer] : peers_) {
        if (peer.outbox.isWaiting() && peer.out != nullptr && peer.out->isReady())
            writes.push_back({&peer, peer.outbox.startWrite()});
    }
    return writes;
}

bool Peers::endWrite(Peer& peer, wire::Buffer storage) {
    const std::lock_guard lock(mutex_);
    peer.outbox.endWrite(std::move(storage));
    if (peer.outbox.isEmpty())
        changed_.notify_all();
    return peer.outbox.isWaiting();
}

void Peers::setDescriptor(Peer& peer, int descriptor) {
    const std::lock_guard lock(mutex_);
    peer.outbox.setDescriptor(descriptor);
}

} // namespace standins
