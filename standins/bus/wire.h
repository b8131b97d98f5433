// The frames that endpoints write to each other's sockets.
//
// A frame is a 32-bit length of what follows, a kind, and fields, each a 32-bit length and its bytes; numbers are in
// the byte order of the machine, which both ends share. The first frame on a connection is a Hello in each direction;
// then messages flow from the side that connected.
#pragma once

#include "records.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace standins::wire {

using Buffer = std::vector<char>;

enum class Kind : std::uint8_t { Hello = 1, AddressedMessage = 2, BroadcastMessage = 3 };

inline constexpr std::size_t lengthBytes = sizeof(std::uint32_t);
// Enough for a payload of 16 MiB and whatever surrounds it; nothing larger is sent or accepted.
inline constexpr std::size_t frameLimit = std::size_t{32} << 20;
// A connection says Hello before it may send anything larger.
inline constexpr std::size_t helloLimit = std::size_t{64} << 10;
// Storage up to this size is kept for the next frames.
inline constexpr std::size_t keptStorage = std::size_t{1} << 20;

// A program's message and who sends it. Borrowed.
struct Outgoing {
    const MessageFields& message;
    const EndPointFields& sender;

    bool isBroadcast() const { return message.destinations.empty(); }
};

// The bytes that a message takes as a frame.
std::size_t messageSize(const Outgoing& outgoing);
void appendMessage(Buffer& buffer, const Outgoing& outgoing);
// Throws std::runtime_error for one that other endpoints would refuse.
Buffer makeHello(const EndPointFields& self);

// One frame, without its length, borrowed from the bytes it was found in.
struct Frame {
    const char* data;
    std::size_t size;

    Kind kind() const { return static_cast<Kind>(data[0]); }
};

enum class Found { Frame, Incomplete, Bad };

// Finds the frame at the start of the bytes. Bad: it is empty or longer than the limit.
Found findFrame(const char* data, std::size_t size, std::size_t limit, Frame& frame);

// Hands over every frame of a buffer of whole ones.
template <typename Visit>
void forEachFrame(const Buffer& frames, Visit visit) {
    Frame frame{};
    for (std::size_t at = 0; findFrame(frames.data() + at, frames.size() - at, frameLimit, frame) == Found::Frame;
         at += lengthBytes + frame.size)
        visit(frame);
}

// Each answers false for a frame of another kind and for one that is not exactly filled by its fields.
bool parseMessage(const Frame& frame, MessageFields& message);
bool parseHello(const Frame& frame, EndPointFields& peer);

} // namespace standins::wire
