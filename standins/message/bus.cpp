#include "bus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace standins {

namespace {

constexpr std::uint64_t refreshTimeoutMs = 1000; // an endpoint that does not say Hello by then is listed when it does
constexpr std::chrono::milliseconds refreshPatience(20);
// While messages come one by one and soon after each other, as answers do, the library's thread polls for the next.
constexpr std::uint64_t soonNs = 500'000;
constexpr std::uint64_t pollTimeNs = 100'000;
constexpr std::uint64_t nsPerMs = 1'000'000;

constexpr char unreachableType[] = "DestinationUnreachable";
constexpr char unreachableText[] = "Destination unreachable";
constexpr char queueFullText[] = "Receiver does not read";
constexpr char tooLargeText[] = "Message too large";

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
    uv_loop_t* loop = thread_.loop();
    writeWake_.data = refreshTimer_.data = this;
    uv_async_init(loop, &writeWake_, [](uv_async_t* wake) { busOf(wake).writeWaiting(); });
    uv_timer_init(loop, &refreshTimer_);
    attempts_.open(loop);
    listener_.open(loop, folder_, self().id);
    scan();
}

void Bus::leave() {
    thread_.run([this] {
        if (std::exchange(hasLeft_, true))
            return;
        folder_.remove(self().id);
        listener_.close();
        attempts_.close();
        for (uv_handle_t* handle : {handleOf(writeWake_), handleOf(refreshTimer_)}) {
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
    folder_.sweep();
    const std::optional<std::vector<std::string>> ids = folder_.list();
    if (!ids) {
        attempts_.failed(self().id);
        return;
    }
    attempts_.forget(self().id);
    for (const std::string& id : *ids) {
        const Peer* known = peers_.find(id);
        if (id != self().id && (known == nullptr || known->out == nullptr) && !attempts_.isPausing(id))
            connectTo(peers_.add(id));
    }
}

// The id of this endpoint stands for the folder, which could not be read.
void Bus::tryAgain(const std::string& id) {
    if (id == self().id)
        scan();
    else
        connectTo(*peers_.find(id));
}

void Bus::connectTo(Peer& peer) {
    peer.isLost = false;
    peer.out = new Connection(*this, thread_.loop(), hello_, peer.identity.id);
    connections_.insert(peer.out);
    peer.out->connect(folder_.address(peer.identity.id));
}

bool Bus::greeted(Connection& connection, const EndPointFields& identity) {
    if (!isEndPointId(identity.id) || identity.id == self().id)
        return false;
    Peer& peer = peers_.add(identity.id);
    const bool isNew = peers_.introduce(peer, identity);
    if (connection.isOutbound()) {
        peers_.setDescriptor(peer, connection.descriptor());
        uv_async_send(&writeWake_);
    } else if (peer.out == nullptr && !attempts_.isPausing(identity.id)) {
        connectTo(peer);
    }
    if (isNew)
        changed();
    settleRefresh(false);
    return true;
}

void Bus::received(const MessageFields& message) {
    peers_.hear();
    deliver(message);
}

void Bus::deliver(const MessageFields& message) {
    callbacks_.received(message, isErrorType(message.type) ? Callbacks::Errors : Callbacks::Messages);
}

void Bus::wasRead(std::size_t messages) {
    if (messages == 0)
        return;
    const std::uint64_t now = uv_hrtime();
    const bool isSoon = now - std::exchange(receivedAt_, now) < soonNs;
    thread_.pollUntil(isSoon && messages == 1 ? now + pollTimeNs : 0);
}

// status is the reason for which a connection could not be made, or 0.
//
// A connection may have broken for a reason of its own, such as a frame that the peer refused, a peer that ends may
// still accept one, and either side may be short of descriptors: only a peer at whose address nobody listens is gone.
void Bus::broken(Connection& connection, int status) {
    const std::string id = connection.peerId();
    close(connection);
    Peer* peer = peers_.find(id);
    if (!connection.isOutbound()) {
        if (peer != nullptr && peer->isLost && !hasInbound(id))
            erase(id);
        return;
    }
    peer->out = nullptr;
    peers_.endWrite(*peer, {});
    reportUndelivered(connection.writing(), peer->identity);
    if (status == UV_ECONNREFUSED || status == UV_ENOENT) {
        folder_.remove(id);
        lose(id);
    } else {
        const std::uint64_t since = connection.greetedAt();
        if (since != 0 && uv_hrtime() - since > Attempts::longestPauseMs * nsPerMs)
            attempts_.forget(id);
        attempts_.failed(id);
    }
    settleRefresh(false);
}

// No sender uses its descriptor any more.
void Bus::close(Connection& connection) {
    if (connection.isOutbound())
        peers_.setDescriptor(*peers_.find(connection.peerId()), -1);
    connections_.erase(&connection);
    connection.close();
}

bool Bus::hasInbound(const std::string& id) const {
    return std::any_of(connections_.begin(), connections_.end(), [&id](const Connection* connection) {
        return !connection->isOutbound() && connection->peerId() == id;
    });
}

// ---- Peers that go

// What the peer has sent before it went is read first.
void Bus::lose(const std::string& id) {
    attempts_.forget(id);
    if (hasInbound(id))
        peers_.find(id)->isLost = true;
    else
        erase(id);
}

void Bus::erase(const std::string& id) {
    const Peer gone = peers_.remove(id);
    reportUndelivered(gone.outbox.waiting(), gone.identity);
    if (gone.isPresent)
        changed();
}

void Bus::reportFailure(const std::string& error, const std::string& fault) {
    MessageFields message;
    message.type = ErrorMessage::TYPE;
    message.error = error;
    message.fault = fault;
    deliver(message);
}

// Comes back twice: as an error to those who listen for errors, and as a message of its own type to every listener,
// which makes an adapter ask for a new endpoint list whichever listener it has.
void Bus::reportUnreachable(const EndPointFields& destination) {
    reportFailure(unreachableText, textOf(destination));
    MessageFields notice;
    notice.type = unreachableType;
    callbacks_.received(notice, Callbacks::Messages | Callbacks::Errors);
}

void Bus::reportUndelivered(const wire::Buffer& frames, const EndPointFields& destination) {
    wire::forEachFrame(frames, [&](const wire::Frame& frame) {
        if (frame.kind() == wire::Kind::AddressedMessage)
            reportUnreachable(destination);
    });
}

// ---- Sending

BrivonMessageErrorCode Bus::send(const MessageFields& message) {
    // Nobody could answer a source without an id, which is what a program sends before it has seen its own endpoint.
    const EndPointFields& named = fieldsOf(message.source);
    const wire::Outgoing outgoing{message, self(), named.id.empty() ? self() : named};
    const std::size_t size = wire::messageFrameSize(outgoing);
    if (size > wire::frameLimit) {
        later([this, fault = message.type + ", " + std::to_string(size) + " bytes"] {
            reportFailure(tooLargeText, fault);
        });
        return statusMessageTooLarge;
    }
    Peers::Sent sent = peers_.send(outgoing, size);
    if (sent.isWaiting)
        uv_async_send(&writeWake_);
    if (!sent.full.empty() || !sent.missing.empty())
        later([this, full = std::move(sent.full), missing = std::move(sent.missing)] {
            for (const EndPointFields& receiver : full)
                reportFailure(queueFullText, textOf(receiver));
            for (const EndPointFields& destination : missing)
                reportUnreachable(destination);
        });
    return sent.status;
}

void Bus::writeWaiting() {
    tellOwn();
    for (Peers::Write& write : peers_.startWrites())
        write.connection->write(std::move(write.frames), write.start);
}

// What was sent to this endpoint itself.
void Bus::tellOwn() {
    wire::Buffer frames = peers_.startOwn();
    wire::forEachFrame(frames, [this](const wire::Frame& frame) {
        MessageFields message;
        wire::parseMessage(frame, message);
        deliver(message);
    });
    peers_.endOwn(std::move(frames));
}

void Bus::written(Connection& connection, wire::Buffer storage) {
    if (peers_.endWrite(*peers_.find(connection.peerId()), std::move(storage)))
        uv_async_send(&writeWake_);
}

// ---- Refreshing

void Bus::refresh() {
    if (!refreshes_.ask())
        return;
    later([this] {
        refreshes_.beginScan();
        scan();
        // One under way is left alone: refreshes that follow each other closely must not put the end off for ever.
        if (uv_is_active(handleOf(refreshTimer_)) == 0)
            uv_timer_start(
                &refreshTimer_, [](uv_timer_t* timer) { busOf(timer).settleRefresh(true); }, refreshTimeoutMs, 0);
        settleRefresh(false);
    });
}

bool Bus::isRefreshing() const {
    return thread_.isCurrent() ? refreshes_.arePending() : refreshes_.arePendingFor(refreshPatience);
}

// A refresh is over when every endpoint that was found has said who it is, or has not in time.
void Bus::settleRefresh(bool timeIsUp) {
    const bool isWaiting = std::any_of(connections_.begin(), connections_.end(), [](const Connection* connection) {
        return connection->isOutbound() && connection->greetedAt() == 0;
    });
    if (isWaiting && !timeIsUp)
        return;
    uv_timer_stop(&refreshTimer_);
    if (!refreshes_.arePending())
        return;
    const std::size_t asked = refreshes_.asked();
    callbacks_.endPointsChanged();
    refreshes_.end(asked);
}

// A refresh under way ends with the same event.
void Bus::changed() {
    if (!refreshes_.arePending())
        callbacks_.endPointsChanged();
}

} // namespace standins
