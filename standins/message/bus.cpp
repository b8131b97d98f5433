#include "bus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace standins {

namespace {

constexpr int backlog = 511;
constexpr int bindAttempts = 100;
constexpr std::uint64_t refreshTimeoutMs = 1000; // an endpoint that does not say Hello by then is listed when it does
constexpr std::chrono::milliseconds refreshPatience(20);
// A message that follows the one before sooner than that belongs to a burst, which the library's thread writes in
// larger pieces. Any other one is written by its sender, which saves the wake-up of that thread.
constexpr std::uint64_t burstGapNs = 20'000;
constexpr std::size_t directWriteLimit = std::size_t{64} << 10; // of what a sender may write itself
// While messages come one by one and soon after each other, as answers do, the library's thread polls for the next.
constexpr std::uint64_t soonNs = 500'000;
constexpr std::uint64_t pollTimeNs = 100'000;
constexpr std::size_t readBytes = std::size_t{64} << 10;

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

void check(int status, const std::string& what) {
    if (status != 0)
        throw std::runtime_error(what + ": " + uv_strerror(status));
}

template <typename Handle>
uv_handle_t* handleOf(Handle& handle) {
    return reinterpret_cast<uv_handle_t*>(&handle);
}

} // namespace

// One stream between two endpoints; deleted when libuv has closed it. Library thread only.
class Bus::Connection {
public:
    Connection(Bus& bus, uv_loop_t* loop, bool isOutbound, std::string id)
        : outbound(isOutbound)
        , peerId(std::move(id))
        , bus_(bus) {
        uv_pipe_init(loop, &pipe, 0);
        pipe.data = this;
    }

    void connect(const std::string& address) {
        connecting_.data = this;
        uv_pipe_connect(&connecting_, &pipe, address.c_str(), [](uv_connect_t* request, int status) {
            auto* connection = static_cast<Connection*>(request->data);
            if (!connection->isClosing())
                connection->bus_.connected(*connection, status);
        });
    }

    void startReading() {
        uv_read_start(
            stream(), [](uv_handle_t* handle, std::size_t, uv_buf_t* buffer) { of(handle)->lendBuffer(buffer); },
            [](uv_stream_t* stream, ssize_t size, const uv_buf_t*) { of(stream)->read(size); });
    }

    // The first bytes may have been written already.
    void write(wire::Buffer frames, std::size_t begun = 0) {
        writing = std::move(frames);
        uv_buf_t buffer = uv_buf_init(writing.data() + begun, static_cast<unsigned>(writing.size() - begun));
        request_.data = this;
        const auto done = [](uv_write_t* request, int status) {
            auto* connection = static_cast<Connection*>(request->data);
            connection->bus_.written(*connection, status);
        };
        const int status = uv_write(&request_, stream(), &buffer, 1, done);
        if (status != 0)
            bus_.written(*this, status);
    }

    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(&pipe); }
    bool isClosing() { return uv_is_closing(handleOf(pipe)) != 0; }

    uv_pipe_t pipe{};
    const bool outbound;
    std::string peerId; // inbound: empty until its Hello
    bool isConnected = false;
    bool isGreeted = false; // the peer's Hello has arrived
    EndPoint source;        // of the latest message
    wire::Buffer writing;   // not empty while a write is under way
    wire::Buffer spare;     // storage for the next write

private:
    template <typename Handle>
    static Connection* of(Handle* handle) {
        return static_cast<Connection*>(handle->data);
    }

    void lendBuffer(uv_buf_t* buffer) {
        readBuffer_.resize(readBytes);
        *buffer = uv_buf_init(readBuffer_.data(), static_cast<unsigned>(readBuffer_.size()));
    }

    void read(ssize_t size) {
        if (size == 0)
            return;
        const std::size_t before = bus_.received_;
        if (size < 0 || !consume(readBuffer_.data(), static_cast<std::size_t>(size)))
            bus_.broken(*this);
        else
            bus_.awaitNext(bus_.received_ - before);
    }

    // Handles every whole frame and keeps the rest. False: the connection is not to be read any further.
    bool consume(const char* data, std::size_t size) {
        if (!rest_.empty()) {
            rest_.insert(rest_.end(), data, data + size);
            data = rest_.data();
            size = rest_.size();
        }
        std::size_t used = 0;
        for (wire::Frame frame{};; used += wire::lengthBytes + frame.size) {
            const std::size_t limit = isGreeted ? wire::frameLimit : wire::helloLimit;
            const wire::Found found = wire::findFrame(data + used, size - used, limit, frame);
            if (found == wire::Found::Incomplete)
                break;
            if (found == wire::Found::Bad || !bus_.handleFrame(*this, frame))
                return false;
        }
        if (rest_.empty())
            rest_.assign(data + used, data + size);
        else
            rest_.erase(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(used));
        if (rest_.empty() && rest_.capacity() > 16 * readBytes)
            wire::Buffer().swap(rest_);
        return true;
    }

    Bus& bus_;
    uv_connect_t connecting_{};
    uv_write_t request_{};
    wire::Buffer readBuffer_;
    wire::Buffer rest_; // the beginning of a frame
};

Bus::Bus(LoopThread& thread, Events& events, const std::string& appId, const std::string& appVersion)
    : thread_(thread)
    , events_(events)
    , folder_(BusFolder::open())
    , self_(makeEndPoint({newEndPointId(), appId, appVersion})) {}

void Bus::join() {
    std::string failure;
    thread_.run([&] {
        try {
            listen();
        } catch (const std::exception& error) {
            failure = error.what();
        }
    });
    if (!failure.empty())
        throw std::runtime_error(failure);
}

void Bus::listen() {
    uv_loop_t* loop = thread_.loop();
    writeWake_.data = refreshTimer_.data = listener_.data = this;
    check(uv_pipe_init(loop, &listener_, 0), "cannot make a socket");
    check(uv_timer_init(loop, &refreshTimer_), "cannot make a timer");
    check(uv_async_init(loop, &writeWake_, [](uv_async_t* wake) { static_cast<Bus*>(wake->data)->writePending(); }),
          "cannot make a wake-up");
    const std::string address = folder_.unpublishedAddress(fieldsOf(self_).id);
    int status = uv_pipe_bind(&listener_, address.c_str());
    // Whoever leaves as the last of a bus removes its folder, which may have been between its opening and now.
    for (int attempt = 1; status == UV_EACCES && attempt < bindAttempts; ++attempt) {
        folder_ = BusFolder::open();
        status = uv_pipe_bind(&listener_, address.c_str());
    }
    check(status, "cannot bind " + address);
    check(uv_listen(reinterpret_cast<uv_stream_t*>(&listener_), backlog,
                    [](uv_stream_t* listener, int failure) {
                        if (failure == 0)
                            static_cast<Bus*>(listener->data)->accept();
                    }),
          "cannot listen on " + address);
    folder_.publish(fieldsOf(self_).id);
    scan();
}

void Bus::leave() {
    thread_.run([this] {
        left_ = true;
        folder_.remove(fieldsOf(self_).id);
        for (uv_handle_t* handle : {handleOf(listener_), handleOf(writeWake_), handleOf(refreshTimer_)}) {
            if (handle->loop != nullptr && uv_is_closing(handle) == 0)
                uv_close(handle, nullptr);
        }
        while (!connections_.empty())
            close(**connections_.begin());
    });
}

void Bus::drain(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    drained_.wait_for(lock, limit, [this] {
        return std::all_of(peers_.begin(), peers_.end(), [](const auto& entry) { return entry.second.queued == 0; });
    });
}

void Bus::later(LoopThread::Task task) {
    thread_.post([this, task = std::move(task)] {
        if (!left_)
            task();
    });
}

// ---- Connections

void Bus::accept() {
    auto* connection = new Connection(*this, thread_.loop(), false, {});
    connections_.insert(connection);
    if (uv_accept(reinterpret_cast<uv_stream_t*>(&listener_), connection->stream()) != 0) {
        close(*connection);
        return;
    }
    connection->isConnected = true;
    connection->startReading();
}

void Bus::connectTo(const std::string& id) {
    auto* connection = new Connection(*this, thread_.loop(), true, id);
    connections_.insert(connection);
    {
        const std::lock_guard lock(mutex_);
        Peer& peer = peerOf(id);
        peer.out = connection;
        peer.lost = false;
    }
    connection->connect(folder_.address(id));
}

// With mutex_ held.
Bus::Peer& Bus::peerOf(const std::string& id) {
    Peer& peer = peers_[id];
    if (peer.order == 0) {
        peer.order = ++seen_;
        peer.identity = makeEndPoint({id, {}, {}});
    }
    return peer;
}

void Bus::connected(Connection& connection, int status) {
    if (status != 0) {
        broken(connection, status);
        return;
    }
    connection.isConnected = true;
    connection.startReading();
    wire::Buffer hello;
    wire::appendHello(hello, fieldsOf(self_));
    connection.write(std::move(hello));
}

bool Bus::handleFrame(Connection& connection, const wire::Frame& frame) {
    if (!connection.isGreeted) {
        EndPointFields peer;
        return wire::parseHello(frame, peer) && greeted(connection, peer);
    }
    incoming_.source = connection.source;
    if (connection.outbound || !wire::parseMessage(frame, incoming_))
        return false;
    connection.source = incoming_.source;
    ++received_;
    events_.received(incoming_);
    return true;
}

// After a read that has brought so many messages.
void Bus::awaitNext(std::size_t messages) {
    if (messages == 0)
        return;
    const std::uint64_t now = uv_hrtime();
    const bool isSoon = now - std::exchange(receivedAt_, now) < soonNs;
    thread_.pollUntil(isSoon && messages == 1 ? now + pollTimeNs : 0);
}

bool Bus::greeted(Connection& connection, const EndPointFields& identity) {
    if (!isEndPointId(identity.id) || identity.id == fieldsOf(self_).id)
        return false;
    if (connection.outbound && identity.id != connection.peerId)
        return false;
    connection.isGreeted = true;
    connection.peerId = identity.id;
    bool isNew = false;
    bool isUnconnected = false;
    {
        const std::lock_guard lock(mutex_);
        Peer& peer = peerOf(identity.id);
        isNew = !peer.present;
        isUnconnected = peer.out == nullptr;
        peer.identity = makeEndPoint(identity);
        peer.present = true;
        if (connection.outbound && connection.writing.empty())
            peer.direct = DirectWrite(connection.pipe);
    }
    if (!connection.outbound) {
        wire::Buffer hello;
        wire::appendHello(hello, fieldsOf(self_));
        connection.write(std::move(hello));
    }
    if (isUnconnected)
        connectTo(identity.id);
    if (isNew)
        changed();
    settleRefresh(false);
    return true;
}

// status is the reason for which a connection could not be made, or 0.
//
// A connection that worked may have broken for a reason of its own, such as a frame that the peer refused: only a peer
// that cannot be connected to anew is gone.
void Bus::broken(Connection& connection, int status) {
    if (connection.isClosing())
        return;
    const std::string id = connection.peerId;
    const bool wasGreeted = connection.isGreeted;
    const bool wasOutbound = connection.outbound;
    const wire::Buffer undelivered = wasOutbound ? std::move(connection.writing) : wire::Buffer();
    close(connection);
    if (!wasOutbound) {
        const auto peer = peers_.find(id);
        if (peer != peers_.end() && peer->second.lost && !hasInbound(id))
            erase(id);
        return;
    }
    EndPoint identity;
    {
        const std::lock_guard lock(mutex_);
        Peer& peer = peers_.at(id);
        peer.out = nullptr;
        peer.begun = 0; // another connection gets the whole frame
        peer.queued = peer.pending.size();
        identity = peer.identity;
    }
    reportUndelivered(undelivered, identity);
    const bool isNobodyThere = status == UV_ECONNREFUSED || status == UV_ENOENT;
    if (isNobodyThere)
        folder_.remove(id);
    // A peer that ends may still accept a connection, which its end then resets.
    if (wasGreeted || status == UV_ECONNRESET)
        connectTo(id);
    else if (isNobodyThere || status == 0)
        lose(id); // else it may be too busy, or we are: the next refresh tries again
    settleRefresh(false);
}

// What the peer has sent before it went is read first.
void Bus::lose(const std::string& id) {
    if (!hasInbound(id)) {
        erase(id);
        return;
    }
    peers_.at(id).lost = true;
}

void Bus::erase(const std::string& id) {
    Peer gone;
    {
        const std::lock_guard lock(mutex_);
        const auto peer = peers_.find(id);
        gone = std::move(peer->second);
        peers_.erase(peer);
        drained_.notify_all();
    }
    reportUndelivered(gone.pending, gone.identity);
    if (gone.present)
        changed();
}

void Bus::reportUndelivered(const wire::Buffer& frames, const EndPoint& destination) {
    wire::Frame frame{};
    for (std::size_t at = 0;
         wire::findFrame(frames.data() + at, frames.size() - at, wire::frameLimit, frame) == wire::Found::Frame;
         at += wire::lengthBytes + frame.size) {
        if (frame.kind() == wire::Kind::AddressedMessage)
            events_.unreachable(destination);
    }
}

void Bus::close(Connection& connection) {
    connections_.erase(&connection);
    if (connection.outbound) {
        const std::lock_guard lock(mutex_);
        peers_.at(connection.peerId).direct = DirectWrite();
    }
    uv_close(handleOf(connection.pipe), [](uv_handle_t* handle) { delete static_cast<Connection*>(handle->data); });
}

bool Bus::hasInbound(const std::string& id) const {
    return std::any_of(connections_.begin(), connections_.end(), [&id](const Connection* connection) {
        return !connection->outbound && connection->peerId == id;
    });
}

// ---- Sending

BrivonMessageErrorCode Bus::send(const MessageFields& message) {
    const std::size_t size = wire::messageFrameSize(message);
    if (size > wire::frameLimit)
        return statusMessageTooLarge;
    const bool isBroadcast = message.destinations.empty();
    std::vector<Peer*> receivers;
    std::vector<EndPoint> missing;
    bool isForSelf = false;
    {
        const std::lock_guard lock(mutex_);
        if (isBroadcast) {
            for (auto& entry : peers_) {
                if (entry.second.present)
                    receivers.push_back(&entry.second);
            }
        }
        for (const EndPoint& destination : message.destinations) {
            const std::string& id = fieldsOf(destination).id;
            const auto peer = peers_.find(id);
            if (id == fieldsOf(self_).id)
                isForSelf = true;
            else if (peer == peers_.end() || !peer->second.present)
                missing.push_back(destination);
            else
                receivers.push_back(&peer->second);
        }
        const auto isFull = [size](const Peer* peer) { return peer->queued != 0 && peer->queued + size > queueLimit; };
        if (std::any_of(receivers.begin(), receivers.end(), isFull))
            return statusQueueFull;
        if (isForSelf && queuedForSelf_ != 0 && queuedForSelf_ + size > queueLimit)
            return statusQueueFull;
        queuedForSelf_ += isForSelf ? size : 0;
        const std::uint64_t now = uv_hrtime();
        for (Peer* peer : receivers) {
            wire::appendMessage(peer->pending,
                                isBroadcast ? wire::Kind::BroadcastMessage : wire::Kind::AddressedMessage, message,
                                size);
            // With many receivers, the library's thread writes: a sender is not to be held up by them.
            transmit(*peer, size, receivers.size() == 1, now);
        }
    }
    if (isForSelf)
        later([this, message, size] {
            {
                const std::lock_guard lock(mutex_);
                queuedForSelf_ -= size;
            }
            events_.received(message);
        });
    for (const EndPoint& destination : missing)
        later([this, destination] { events_.unreachable(destination); });
    return BrivonMessageErrorCode_Success;
}

// With mutex_ held. The frame stands at the end of what is pending.
void Bus::transmit(Peer& peer, std::size_t size, bool mayWrite, std::uint64_t now) {
    const bool isInBurst = now - std::exchange(peer.sentAt, now) < burstGapNs;
    if (mayWrite && !isInBurst && peer.queued == 0 && size <= directWriteLimit) {
        const std::size_t written = peer.direct.write(peer.pending.data(), size);
        if (written == size) {
            peer.pending.clear();
            return;
        }
        peer.begun = written;
    }
    peer.queued += size;
    wakeWriter();
}

// With mutex_ held.
void Bus::wakeWriter() {
    if (!std::exchange(writeScheduled_, true))
        uv_async_send(&writeWake_);
}

void Bus::writePending() {
    std::vector<Peer*> writable;
    {
        const std::lock_guard lock(mutex_);
        writeScheduled_ = false;
        for (auto& entry : peers_) {
            if (!entry.second.pending.empty())
                writable.push_back(&entry.second);
        }
    }
    for (Peer* peer : writable)
        writePending(*peer);
}

void Bus::writePending(Peer& peer) {
    Connection* connection = peer.out;
    if (connection == nullptr || !connection->isConnected || !connection->writing.empty())
        return;
    wire::Buffer frames = std::move(connection->spare);
    std::size_t begun = 0;
    {
        const std::lock_guard lock(mutex_);
        frames.swap(peer.pending);
        begun = std::exchange(peer.begun, 0);
    }
    if (!frames.empty())
        connection->write(std::move(frames), begun);
}

void Bus::written(Connection& connection, int status) {
    if (connection.isClosing())
        return;
    if (status != 0) {
        broken(connection);
        return;
    }
    connection.spare = std::move(connection.writing);
    connection.writing.clear();
    connection.spare.clear();
    if (connection.spare.capacity() > 16 * readBytes)
        wire::Buffer().swap(connection.spare);
    if (!connection.outbound)
        return;
    const std::lock_guard lock(mutex_);
    Peer& peer = peers_.at(connection.peerId);
    if (connection.isGreeted)
        peer.direct = DirectWrite(connection.pipe);
    peer.queued = peer.pending.size();
    if (peer.queued == 0)
        drained_.notify_all();
    else
        wakeWriter();
}

// ---- Endpoints

std::vector<EndPoint> Bus::endPoints() const {
    std::vector<const Peer*> present;
    const std::lock_guard lock(mutex_);
    for (const auto& entry : peers_) {
        if (entry.second.present)
            present.push_back(&entry.second);
    }
    std::sort(present.begin(), present.end(), [](const Peer* a, const Peer* b) { return a->order < b->order; });
    std::vector<EndPoint> endPoints;
    endPoints.reserve(present.size());
    for (const Peer* peer : present)
        endPoints.push_back(peer->identity);
    return endPoints;
}

void Bus::refresh() {
    {
        const std::lock_guard lock(mutex_);
        ++refreshesAsked_;
        if (std::exchange(scanPosted_, true))
            return; // it is yet to begin, and serves this refresh too
    }
    later([this] {
        {
            const std::lock_guard lock(mutex_);
            scanPosted_ = false;
        }
        scan();
        // One under way is left alone: refreshes that follow each other closely must not put the end off for ever.
        if (uv_is_active(handleOf(refreshTimer_)) == 0)
            uv_timer_start(
                &refreshTimer_, [](uv_timer_t* timer) { static_cast<Bus*>(timer->data)->settleRefresh(true); },
                refreshTimeoutMs, 0);
        settleRefresh(false);
    });
}

bool Bus::isRefreshing() const {
    std::unique_lock lock(mutex_);
    const auto isDone = [this] { return refreshesDone_ == refreshesAsked_; };
    // A moment's patience saves callers that poll a much longer sleep.
    if (!thread_.isCurrent())
        refreshed_.wait_for(lock, refreshPatience, isDone);
    return !isDone();
}

void Bus::scan() {
    for (const std::string& id : folder_.list()) {
        bool isKnown = id == fieldsOf(self_).id;
        if (!isKnown) {
            const std::lock_guard lock(mutex_);
            const auto peer = peers_.find(id);
            isKnown = peer != peers_.end() && peer->second.out != nullptr;
        }
        if (!isKnown)
            connectTo(id);
    }
}

void Bus::settleRefresh(bool timeIsUp) {
    const bool isWaiting = std::any_of(connections_.begin(), connections_.end(), [](const Connection* connection) {
        return connection->outbound && !connection->isGreeted;
    });
    if (isWaiting && !timeIsUp)
        return;
    uv_timer_stop(&refreshTimer_);
    std::size_t asked = 0;
    {
        const std::lock_guard lock(mutex_);
        asked = refreshesAsked_;
        if (asked == refreshesDone_)
            return;
    }
    events_.endPointsChanged();
    const std::lock_guard lock(mutex_);
    refreshesDone_ = asked;
    refreshed_.notify_all();
}

// A refresh under way ends with the same event.
void Bus::changed() {
    {
        const std::lock_guard lock(mutex_);
        if (refreshesDone_ != refreshesAsked_)
            return;
    }
    events_.endPointsChanged();
}

} // namespace standins
