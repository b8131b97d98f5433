// Rooms for the library's objects. The contract tells less than their size: what it declares is what a program may
// touch.
#ifndef BRIDGE_ROOMS_H
#define BRIDGE_ROOMS_H

#include "crossing.h"

// Memory for one object or several. Throws std::bad_alloc.
class Room {
public:
    explicit Room(size_t size);
    explicit Room(void* memory)
        : memory_(memory) {}
    ~Room() { free(memory_); }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;

    void* get() const { return memory_; }
    void* release();

private:
    void* memory_;
};

// Far more than a message can need, whose fields are texts and lists kept elsewhere.
constexpr size_t kMessageRoom = 4096;

// An endpoint of the library's, in one piece of memory with the number of those on our side that share it. If every
// copy were one of the library's, a send to 1, 10 and 200 endpoints would take 1.2, 1.6 and 3.7 times as long.
struct alignas(16) SharedEndPoint {
    size_t users;

    void* object() { return this + 1; }
};

// Made by the given function; releaseEndPoint() ends each use.
template <typename Make>
SharedEndPoint* makeEndPoint(Make make);
SharedEndPoint* copyEndPoint(const void* object);
void destroyEndPoint(SharedEndPoint* shared);
bool isSoleUser(const SharedEndPoint* shared);

// A message to many endpoints is hardly more than these two.
inline SharedEndPoint* useEndPoint(SharedEndPoint* shared) {
    __atomic_fetch_add(&shared->users, 1, __ATOMIC_RELAXED);
    return shared;
}
inline void releaseEndPoint(SharedEndPoint* shared) {
    if (__atomic_sub_fetch(&shared->users, 1, __ATOMIC_ACQ_REL) == 0)
        destroyEndPoint(shared);
}

// Room for a SharedEndPoint and its object, with some to spare.
Room endPointRoom();

// From one endpoint to the next in an array of the library's. Certain once an array of two or more has been seen; until
// then it is what an endpoint has been seen to use.
size_t endPointDistance();
// Takes it from such an array.
void learnEndPointDistance(const void* array, size_t count);

// Endpoints of the library's beside each other, as its functions take them.
class EndPointArray {
public:
    explicit EndPointArray(size_t count);
    ~EndPointArray();
    EndPointArray(const EndPointArray&) = delete;
    EndPointArray& operator=(const EndPointArray&) = delete;

    // Makes them all: copies of as many others, or new ones when there are none.
    void make(const void* const* others);
    void* at(size_t index) const { return static_cast<char*>(room_.get()) + index * distance_; }

private:
    size_t count_;
    size_t distance_;
    Room room_;
    size_t made_ = 0;
};

template <typename Make>
SharedEndPoint* makeEndPoint(Make make) {
    Room room = endPointRoom();
    auto* shared = static_cast<SharedEndPoint*>(room.get());
    shared->users = 1;
    check(make(shared->object()));
    room.release();
    return shared;
}

#endif
