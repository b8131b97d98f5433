// What one endpoint is yet to get: the frames that wait for it, and the write that is under way.
#ifndef STANDINS_MESSAGE_OUTBOX_H
#define STANDINS_MESSAGE_OUTBOX_H

#include "wire.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace standins {

// Used with its owner's lock.
class Outbox {
public:
    static constexpr std::size_t limit = std::size_t{64} << 20;

    // Whether one frame more may wait. Where nothing waits, it always may.
    bool hasRoomFor(std::size_t size) const { return isEmpty() || queued() + size <= limit; }
    void append(wire::Kind kind, const wire::Outgoing& outgoing, std::size_t size);
    // Notes that a frame found no room. True for the first one since there was room: the sender is to hear of it.
    bool refuse();

    // ---- Written by the sender

    // A connection is there, with this descriptor, or none (-1). What of a frame the last one got is sent again.
    void setDescriptor(int descriptor);
    // The only frame in here leaves on the sender's thread, as far as the socket takes it without waiting. A frame that
    // answers nothing and follows another within 50 us is left to the library's thread, which writes many at a time.
    void writeNow(bool isAnswer);

    // ---- Written by the library's thread

    bool isEmpty() const { return queued() == 0; }
    bool isWaiting() const { return !waiting_.empty(); }
    const wire::Buffer& waiting() const { return waiting_; }

    // Takes everything that waits, to be written next. It counts as queued until the write has ended.
    wire::Buffer startWrite();
    // How many bytes at its beginning have been written by the sender.
    std::size_t takeWritten() { return std::exchange(written_, 0); }
    // The write has ended, whichever way; its storage may serve the next one.
    void endWrite(wire::Buffer storage);

private:
    std::size_t queued() const { return waiting_.size() + beingWritten_; }

    wire::Buffer waiting_;
    wire::Buffer spare_;
    std::size_t beingWritten_ = 0;
    bool isRefusing_ = false;

    int descriptor_ = -1;
    std::uint64_t writtenAt_ = 0; // the time (of uv_hrtime) of the last write
    std::size_t written_ = 0;     // of the first frame that waits
};

} // namespace standins

#endif
