#include "outbox.h"

#include <uv.h>

#if !defined(_WIN32)
#include <sys/socket.h>
#endif

namespace standins {

namespace {

[[maybe_unused]] constexpr std::uint64_t pauseNs = 50'000;

}

void Outbox::append(wire::Kind kind, const wire::Outgoing& outgoing, std::size_t size) {
    wire::appendMessage(waiting_, kind, outgoing, size);
}

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
    const ssize_t sent = send(descriptor_, waiting_.data(), waiting_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    written_ = sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (written_ != waiting_.size())
        return;
    written_ = 0;
    waiting_.clear();
#endif
}

wire::Buffer Outbox::startWrite() {
    beingWritten_ = waiting_.size();
    return std::exchange(waiting_, std::move(spare_));
}

void Outbox::endWrite(wire::Buffer storage) {
    beingWritten_ = 0;
    writtenAt_ = uv_hrtime();
    storage.clear();
    if (storage.capacity() <= wire::keptStorage)
        spare_ = std::move(storage);
    // Half of it, so that a receiver at the edge is not told of again and again.
    if (queued() <= limit / 2)
        isRefusing_ = false;
}

} // namespace standins
