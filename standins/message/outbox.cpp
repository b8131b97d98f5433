#include "outbox.h"

#include <utility>

namespace standins {

void Outbox::append(wire::Kind kind, const wire::Outgoing& outgoing, std::size_t size) {
    wire::appendMessage(waiting_, kind, outgoing, size);
}

bool Outbox::refuse() {
    return !std::exchange(isRefusing_, true);
}

wire::Buffer Outbox::startWrite() {
    beingWritten_ = waiting_.size();
    return std::exchange(waiting_, std::move(spare_));
}

void Outbox::endWrite(wire::Buffer storage) {
    beingWritten_ = 0;
    storage.clear();
    if (storage.capacity() <= wire::keptStorage)
        spare_ = std::move(storage);
    // Half of it, so that a receiver at the edge is not told of again and again.
    if (queued() <= limit / 2)
        isRefusing_ = false;
}

} // namespace standins
