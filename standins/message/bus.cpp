#include "bus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace standins {

namespace {

constexpr int backlog = 511;
constexpr int joinAttempts = 100;
constexpr std::uint64_t refreshTimeoutMs = 1000; // an endpoint that does not say Hello by then is listed when it does
constexpr std::chrono::milliseconds refreshPatience(20);
// While messages come one by one and soon after each other, as answers do, the library's thread polls for the next.
constexpr std::uint64_t soonNs = 500'000;
constexpr std::uint64_t pollTimeNs = 100'000;
// Pauses between attempts to reach a peer: none before the second, then these, each twice the one before. A connection
// that has worked for the longest of them begins anew.
constexpr std::uint64_t firstPauseMs = 10;
constexpr std::uint64_t longestPauseMs = 1000;
constexpr std::uint64_t nsPerMs = 1'000'000;

constexpr char queueFullText[] = "Receiver does not read";
constexpr char tooLargeText[] = "Message too large";

std::string newEndPointId() {
    unsigned char bytes[16];
    const int status = uv_random(nullptr, nullptr, bytes, sizeof bytes, 0, nullptr);
    if (status != 0)
        throw std::runtime_error(std::string("cannot make an endpoint id: ") + uv_strerror(status));
    std::string id;
    for (const unsigned char byte : bytes) {
        id += "0123456789abcdef"[byte >> 4];
        id += "0123456789abcdef"[byte & 15];
    }
    return id;
}

wire::Buffer helloOf(const EndPointFields& self) {
    wire::Buffer hello;
    wire::appendHello(hello, self);
    if (hello.size() > wire::helloLimit)
        throw std::runtime_error("cannot join: the application id and version have " +
                                 std::to_string(self.appId.size() + self.appVersion.size()) +
                                 " bytes together, and other endpoints accept less than 64 KiB");
    return hello;
}

void check(int status, const std::string& what) {
    if (status != 0)
        throw std::runtime_error(what + ": " + uv_strerror(status));
}

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

Bus::Bus(Events& events, const std::string& appId, const std::string& appVersion)
    : events_(events)
    , folder_(BusFolder::open())
    , peers_({newEndPointId(), appId, appVersion})
    , hello_(helloOf(peers_.self())) {
    std::string failure;
    thread_.run([&] {
        try {
            open();
        } catch (const std::exception& error) {
            failure = error.what();
        }
    });
    if (failure.empty())
        return;
    leave();
    throw std::runtime_error(failure);
}

Bus::~Bus() {
    leave();
}

void Bus::open() {
    uv_loop_t* loop = thread_.loop();
    writeWake_.data = refreshTimer_.data = alarm_.data = this;
    check(uv_timer_init(loop, &refreshTimer_), "cannot make a timer");
    check(uv_timer_init(loop, &alarm_), "cannot make a timer");
    check(uv_async_init(loop, &writeWake_, [](uv_async_t* wake) { busOf(wake).writeWaiting(); }),
          "cannot make a wake-up");
    for (int attempt = 1; !listen(); ++attempt) {
        if (attempt == joinAttempts)
            throw std::runtime_error("cannot publish an endpoint: others remove it again and again");
        stopListening();
        folder_ = BusFolder::open();
    }
    scan();
}

// False: others have removed the folder, as the last to leave does, or what stood in it.
bool Bus::listen() {
    const std::string address = folder_.unpublishedAddress(self().id);
    listener_ = new uv_pipe_t{};
    listener_->data = this;
    check(uv_pipe_init(thread_.loop(), listener_, 0), "cannot make a socket");
    const int status = uv_pipe_bind(listener_, address.c_str());
    if (status == UV_EACCES)
        return false;
    check(status, "cannot bind " + address);
    check(uv_listen(reinterpret_cast<uv_stream_t*>(listener_), backlog,
                    [](uv_stream_t* listener, int failure) {
                        if (failure == 0)
                            busOf(listener).accept();
                    }),
          "cannot listen on " + address);
    return folder_.publish(self().id);
}

void Bus::stopListening() {
    if (listener_ != nullptr)
        uv_close(handleOf(*std::exchange(listener_, nullptr)),
                 [](uv_handle_t* handle) { delete reinterpret_cast<uv_pipe_t*>(handle); });
}

void Bus::leave() {
    thread_.run([this] {
        if (std::exchange(hasLeft_, true))
            return;
        folder_.remove(self().id);
        stopListening();
        for (uv_handle_t* handle : {handleOf(writeWake_), handleOf(refreshTimer_), handleOf(alarm_)}) {
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

void Bus::accept() {
    auto* connection = new Connection(*this, thread_.loop(), hello_);
    connections_.insert(connection);
    if (!connection->accept(reinterpret_cast<uv_stream_t*>(listener_)))
        close(*connection);
}

void Bus::scan() {
    folder_.sweep();
    const std::optional<std::vector<std::string>> ids = folder_.list();
    nextScan_ = ids ? 0 : uv_hrtime() + longestPauseMs * nsPerMs;
    for (const std::string& id : ids.value_or(std::vector<std::string>())) {
        const Peer* known = peers_.find(id);
        if (id != self().id && (known == nullptr || (known->out == nullptr && known->nextAttempt == 0)))
            connectTo(peers_.add(id));
    }
    setAlarm();
}

void Bus::connectTo(Peer& peer) {
    peer.isLost = false;
    peer.nextAttempt = 0;
    peer.out = new Connection(*this, thread_.loop(), hello_, peer.identity.id);
    connections_.insert(peer.out);
    peer.out->connect(folder_.address(peer.identity.id));
}

bool Bus::greeted(Connection& connection, const EndPointFields& identity) {
    if (!isEndPointId(identity.id) || identity.id == self().id)
        return false;
    Peer& peer = peers_.add(identity.id);
    const bool isNew = peers_.introduce(peer, identity);
    if (connection.isOutbound())
        uv_async_send(&writeWake_);
    else if (peer.out == nullptr && peer.nextAttempt == 0)
        connectTo(peer);
    if (isNew)
        changed();
    settleRefresh(false);
    return true;
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
        const std::uint64_t greetedAt = connection.greetedAt();
        retry(*peer, greetedAt != 0 && uv_hrtime() - greetedAt > longestPauseMs * nsPerMs);
    }
    settleRefresh(false);
}

void Bus::close(Connection& connection) {
    connections_.erase(&connection);
    connection.close();
}

bool Bus::hasInbound(const std::string& id) const {
    return std::any_of(connections_.begin(), connections_.end(), [&id](const Connection* connection) {
        return !connection->isOutbound() && connection->peerId() == id;
    });
}

// ---- Trying again

void Bus::retry(Peer& peer, bool hasWorked) {
    if (hasWorked)
        peer.pauseMs = 0;
    const std::uint64_t pause =
        std::exchange(peer.pauseMs, peer.pauseMs == 0 ? firstPauseMs : std::min(2 * peer.pauseMs, longestPauseMs));
    if (pause == 0) {
        connectTo(peer);
        return;
    }
    peer.nextAttempt = uv_hrtime() + pause * nsPerMs;
    setAlarm();
}

// For whatever is due first.
void Bus::setAlarm() {
    std::uint64_t first = nextScan_;
    for (const auto& [id, peer] : peers_.all()) {
        if (peer.nextAttempt != 0 && (first == 0 || peer.nextAttempt < first))
            first = peer.nextAttempt;
    }
    const std::uint64_t now = uv_hrtime();
    if (first == 0)
        uv_timer_stop(&alarm_);
    else
        uv_timer_start(
            &alarm_, [](uv_timer_t* timer) { busOf(timer).alarm(); }, first > now ? (first - now) / nsPerMs + 1 : 0, 0);
}

void Bus::alarm() {
    const std::uint64_t now = uv_hrtime();
    for (auto& [id, peer] : peers_.all()) {
        if (peer.nextAttempt != 0 && peer.nextAttempt <= now)
            connectTo(peer);
    }
    if (nextScan_ != 0 && nextScan_ <= now)
        scan();
    setAlarm();
}

// ---- Peers that go

// What the peer has sent before it went is read first.
void Bus::lose(const std::string& id) {
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

void Bus::reportUndelivered(const wire::Buffer& frames, const EndPointFields& destination) {
    wire::forEachFrame(frames, [&](const wire::Frame& frame) {
        if (frame.kind() == wire::Kind::AddressedMessage)
            events_.unreachable(destination);
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
            events_.failed(tooLargeText, fault);
        });
        return statusMessageTooLarge;
    }
    Peers::Sent sent = peers_.send(outgoing, size);
    uv_async_send(&writeWake_);
    if (!sent.full.empty() || !sent.missing.empty())
        later([this, full = std::move(sent.full), missing = std::move(sent.missing)] {
            for (const EndPointFields& receiver : full)
                events_.failed(queueFullText, textOf(receiver));
            for (const EndPointFields& destination : missing)
                events_.unreachable(destination);
        });
    return sent.status;
}

void Bus::writeWaiting() {
    tellOwn();
    for (Peers::Write& write : peers_.startWrites())
        write.connection->write(std::move(write.frames));
}

// What was sent to this endpoint itself.
void Bus::tellOwn() {
    wire::Buffer frames = peers_.startOwn();
    wire::forEachFrame(frames, [this](const wire::Frame& frame) {
        MessageFields message;
        wire::parseMessage(frame, message);
        events_.received(message);
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
    events_.endPointsChanged();
    refreshes_.end(asked);
}

// A refresh under way ends with the same event.
void Bus::changed() {
    if (!refreshes_.arePending())
        events_.endPointsChanged();
}

} // namespace standins
