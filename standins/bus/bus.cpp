#include "bus.h"

#include <algorithm>
#include <utility>

namespace standins {

namespace {

constexpr auto statusMessageTooLarge = static_cast<BrivonMessageErrorCode>(2);

constexpr std::uint64_t nsPerMs = 1'000'000;
constexpr std::uint64_t triesApartMs = 200;       // at least, for one peer
constexpr std::uint64_t againMs = 220;            // a little longer, since timers may be early
constexpr std::uint64_t refreshTimeoutMs = 1000;  // an endpoint that does not say Hello by then is listed when it does
constexpr std::chrono::milliseconds patience(20); // with a refresh
// While messages come one by one and soon after each other, as answers do, the library's thread polls for the next.
constexpr std::uint64_t soonNs = 500'000;
constexpr std::uint64_t pollTimeNs = 100'000;

template <typename Handle>
uv_handle_t* handleOf(Handle& handle) {
    return reinterpret_cast<uv_handle_t*>(&handle);
}

template <typename Handle>
Bus& busOf(Handle* handle) {
    return *static_cast<Bus*>(handle->data);
}

} // namespace

// ---- Joining and leaving

Bus::Bus(Callbacks& callbacks, const std::string& appId, const std::string& appVersion)
    : callbacks_(callbacks)
    , folder_(BusFolder::open())
    , peers_({newEndPointId(), appId, appVersion})
    , hello_(wire::makeHello(peers_.self())) {
    try {
        thread_.run([this] { open(); });
    } catch (...) {
        leave();
        throw;
    }
}

Bus::~Bus() {
    leave();
}

void Bus::open() {
    writeWake_.data = again_.data = this;
    uv_async_init(thread_.loop(), &writeWake_, [](uv_async_t* wake) { busOf(wake).writeWaiting(); });
    uv_timer_init(thread_.loop(), &again_);
    const auto connected = [](uv_stream_t* listener, int failure) {
        if (failure == 0)
            busOf(listener).accept(listener);
    };
    listener_ = folder_.listen(thread_.loop(), self().id, this, connected);
    scan();
}

void Bus::leave() {
    thread_.run([this] {
        if (std::exchange(hasLeft_, true))
            return;
        folder_.remove(self().id);
        listener_.reset();
        for (uv_handle_t* handle : {handleOf(writeWake_), handleOf(again_)}) {
            if (handle->loop != nullptr)
                uv_close(handle, nullptr);
        }
        while (!connections_.empty())
            close(**connections_.begin());
    });
}

void Bus::later(LoopThread::Task task) {
    thread_.post([this, task = std::move(task)] {
        if (!hasLeft_)
            task();
    });
}

// ---- Connections

void Bus::accept(uv_stream_t* listener) {
    auto* connection = new Connection(*this, thread_.loop(), hello_);
    connections_.insert(connection);
    if (!connection->accept(listener))
        close(*connection);
}

void Bus::scan() {
    const std::optional<std::vector<std::string>> ids = folder_.list();
    if (!ids)
        lookAgain();
    for (const std::string& id : ids.value_or(std::vector<std::string>())) {
        if (id != self().id)
            peers_.add(id);
    }
    for (Peer* peer : peers_.unconnected())
        connectTo(*peer);
}

void Bus::connectTo(Peer& peer) {
    const std::uint64_t now = uv_hrtime();
    if (now - peer.triedAt < triesApartMs * nsPerMs)
        return lookAgain();
    peer.triedAt = now;
    peer.isLost = false;
    peer.out = new Connection(*this, thread_.loop(), hello_, peer.identity.id);
    connections_.insert(peer.out);
    peer.out->connect(folder_.address(peer.identity.id));
}

void Bus::lookAgain() {
    const auto look = [](uv_timer_t* timer) {
        busOf(timer).scan();
        busOf(timer).settleRefresh();
    };
    if (uv_is_active(handleOf(again_)) == 0)
        uv_timer_start(&again_, look, againMs, 0);
}

bool Bus::greeted(Connection& connection, const EndPointFields& identity) {
    if (!isEndPointId(identity.id) || identity.id == self().id)
        return false;
    Peer& peer = peers_.add(identity.id);
    const bool isNew = peers_.introduce(peer, identity);
    if (connection.isOutbound()) {
        peers_.setDescriptor(peer, connection.descriptor());
        uv_async_send(&writeWake_);
    } else if (peer.out == nullptr) {
        connectTo(peer);
    }
    if (isNew)
        changed();
    settleRefresh();
    return true;
}

void Bus::received(const MessageFields& message) {
    peers_.hear();
    callbacks_.received(message);
}

void Bus::wasRead(std::size_t messages) {
    if (messages == 0)
        return;
    const std::uint64_t now = uv_hrtime();
    const bool isSoon = now - std::exchange(receivedAt_, now) < soonNs;
    thread_.pollUntil(isSoon && messages == 1 ? now + pollTimeNs : 0);
}

// A broken connection does not mean that the peer is gone. It may have refused a frame, or either side may be out of
// descriptors. The peer is gone only when nobody listens at its address.
void Bus::broken(Connection& connection, int status) {
    const std::string id = connection.peerId();
    close(connection);
    if (connection.isOutbound()) {
        Peer& peer = *peers_.find(id);
        peers_.endWrite(peer, {});
        reportUndelivered(connection.writing(), peer.identity);
        peer.isLost = status == UV_ECONNREFUSED || status == UV_ENOENT;
        if (peer.isLost)
            folder_.remove(id);
        else
            connectTo(peer);
    }
    eraseLost(id);
    settleRefresh();
}

void Bus::close(Connection& connection) {
    if (connection.isOutbound()) {
        Peer& peer = *peers_.find(connection.peerId());
        peers_.setDescriptor(peer, -1); // which no sender uses any more
        peer.out = nullptr;
    }
    connections_.erase(&connection);
    connection.close();
}

// What a lost peer has sent is read first.
void Bus::eraseLost(const std::string& id) {
    const bool isHeard = std::any_of(connections_.begin(), connections_.end(), [&id](const Connection* connection) {
        return !connection->isOutbound() && connection->peerId() == id;
    });
    const Peer* peer = peers_.find(id);
    if (peer == nullptr || !peer->isLost || isHeard)
        return;
    const Peer gone = peers_.remove(id);
    reportUndelivered(gone.outbox.waiting(), gone.identity);
    if (gone.isPresent)
        changed();
}

void Bus::reportUndelivered(const wire::Buffer& frames, const EndPointFields& destination) {
    wire::forEachFrame(frames, [&](const wire::Frame& frame) {
        if (frame.kind() == wire::Kind::AddressedMessage)
            callbacks_.unreachable(destination);
    });
}

// ---- Sending

BrivonMessageErrorCode Bus::send(const MessageFields& message) {
    const wire::Outgoing outgoing{message, self()};
    const std::size_t size = wire::messageSize(outgoing);
    if (size > wire::frameLimit) {
        later([this, fault = message.type + ", " + std::to_string(size) + " bytes"] {
            callbacks_.failed("Message too large", fault);
        });
        return statusMessageTooLarge;
    }
    Peers::Sent sent = peers_.send(outgoing, size);
    if (sent.isToBeWritten)
        uv_async_send(&writeWake_);
    if (!sent.full.empty() || !sent.missing.empty())
        later([this, full = std::move(sent.full), missing = std::move(sent.missing)] {
            for (const EndPointFields& receiver : full)
                callbacks_.failed("Receiver does not read", textOf(receiver));
            for (const EndPointFields& destination : missing)
                callbacks_.unreachable(destination);
        });
    return sent.status;
}

void Bus::writeWaiting() {
    for (auto& [peer, write] : peers_.startWrites()) {
        if (peer->out != nullptr) {
            peer->out->write(std::move(write.frames), write.start);
            continue;
        }
        // What was sent to this endpoint itself.
        MessageFields message;
        wire::forEachFrame(write.frames, [&](const wire::Frame& frame) {
            wire::parseMessage(frame, message);
            callbacks_.received(message);
        });
        if (peers_.endWrite(*peer, std::move(write.frames)))
            uv_async_send(&writeWake_);
    }
}

void Bus::written(Connection& connection, wire::Buffer storage) {
    if (peers_.endWrite(*peers_.find(connection.peerId()), std::move(storage)))
        uv_async_send(&writeWake_);
}

// ---- Refreshing

void Bus::refresh() {
    peers_.askRefresh();
    later([this] { startRefresh(); });
}

bool Bus::isRefreshing() const {
    return !peers_.awaitRefreshed(thread_.isCurrent() ? std::chrono::milliseconds(0) : patience);
}

// One scan serves all refreshes that were asked for before it.
void Bus::startRefresh() {
    const std::size_t asked = peers_.refreshesAsked();
    if (asked == std::exchange(refreshesScanned_, asked))
        return;
    // A pending refresh keeps its start: frequent requests must not postpone its end for ever.
    if (refreshingSince_ == 0)
        refreshingSince_ = uv_hrtime();
    scan();
    settleRefresh();
}

// A refresh is over when every endpoint that was found has said who it is, or when its time is up.
void Bus::settleRefresh() {
    if (refreshingSince_ == 0)
        return;
    const bool isWaiting = std::any_of(connections_.begin(), connections_.end(), [](const Connection* connection) {
        return connection->isOutbound() && !connection->isGreeted();
    });
    if (isWaiting && uv_hrtime() - refreshingSince_ < refreshTimeoutMs * nsPerMs) {
        lookAgain();
        return;
    }
    refreshingSince_ = 0;
    const std::size_t asked = peers_.refreshesAsked();
    callbacks_.endPointsChanged();
    peers_.endRefreshes(asked);
}

// A pending refresh ends with the same event.
void Bus::changed() {
    if (refreshingSince_ == 0)
        callbacks_.endPointsChanged();
}

} // namespace standins
