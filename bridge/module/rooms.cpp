#include "rooms.h"

namespace {

constexpr size_t kLargestEndPoint = 4096;
constexpr size_t kSpare = 256; // for what nothing has been seen to write

// Known from the first endpoint on; whoever comes at the same time finds the same.
size_t usedSize = 0;
size_t knownDistance = 0;

size_t load(const size_t& value) {
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}
void store(size_t& to, size_t value) {
    __atomic_store_n(&to, value, __ATOMIC_RELAXED);
}

// An endpoint in a large room that was filled with one byte before, so that it shows what has been written.
class Sample {
public:
    template <typename Make>
    Sample(unsigned char fill, Make make)
        : room_(kLargestEndPoint)
        , fill_(fill) {
        memset(room_.get(), fill, kLargestEndPoint);
        check(make(room_.get()));
    }
    ~Sample() { forget(brivon_EndPoint_destroy(room_.get())); }

    void* get() const { return room_.get(); }
    void setAll() {
        constexpr BrivonText all[] = {kEndPointId, kEndPointAppId, kEndPointAppVersion};
        for (const BrivonText text : all)
            check(brivon_setText(text, get(), "a text of some length, which no object has room for"));
    }
    size_t written() const {
        const auto* bytes = static_cast<const unsigned char*>(room_.get());
        size_t end = kLargestEndPoint;
        while (end > 0 && bytes[end - 1] == fill_)
            --end;
        return end;
    }

private:
    Room room_;
    unsigned char fill_;
};

size_t larger(size_t a, size_t b) {
    return a > b ? a : b;
}

// What an endpoint that was made on one filling uses, its copies on another one included: a member that is only set
// later, or that is only copied, shows there. Two fillings, since a member may hold the byte that was there before.
size_t usedOn(unsigned char fill, unsigned char other) {
    Sample original(fill, brivon_EndPoint_construct);
    original.setAll();
    const Sample copy(other, [&](void* room) { return brivon_EndPoint_copy(room, original.get()); });
    const Sample assigned(other, brivon_EndPoint_construct);
    check(brivon_EndPoint_assign(assigned.get(), original.get()));
    return larger(original.written(), larger(copy.written(), assigned.written()));
}

// In whole words, the first of which is the address of the table of virtual operations.
size_t endPointSize() {
    size_t size = load(usedSize);
    if (size == 0) {
        constexpr size_t word = sizeof(void*);
        size = (larger(usedOn(0xA5, 0x5A), usedOn(0x5A, 0xA5)) + word - 1) / word * word;
        store(usedSize, size);
    }
    return size;
}

} // namespace

Room::Room(size_t size)
    : memory_(malloc(size > 0 ? size : 1)) { // nothing may not be had
    if (memory_ == nullptr)
        throw std::bad_alloc();
}

void* Room::release() {
    void* memory = memory_;
    memory_ = nullptr;
    return memory;
}

Room endPointRoom() {
    return Room(sizeof(SharedEndPoint) + endPointSize() + kSpare);
}

SharedEndPoint* copyEndPoint(const void* object) {
    return makeEndPoint([=](void* room) { return brivon_EndPoint_copy(room, object); });
}

void destroyEndPoint(SharedEndPoint* shared) {
    forget(brivon_EndPoint_destroy(shared->object()));
    free(shared);
}

bool isSoleUser(const SharedEndPoint* shared) {
    return __atomic_load_n(&shared->users, __ATOMIC_ACQUIRE) == 1;
}

size_t endPointDistance() {
    const size_t known = load(knownDistance);
    return known != 0 ? known : endPointSize();
}

// All endpoints of an array begin with the address of the same table. The true distance is one at which they do, and
// none that is tried before it is larger, so that nothing beyond the array is read.
void learnEndPointDistance(const void* array, size_t count) {
    if (count < 2 || load(knownDistance) != 0)
        return;
    const auto* bytes = static_cast<const char*>(array);
    for (size_t distance = endPointSize(); distance <= kLargestEndPoint; distance += sizeof(void*)) {
        size_t same = 1;
        while (same < count && memcmp(bytes + same * distance, array, sizeof(void*)) == 0)
            ++same;
        if (same == count)
            return store(knownDistance, distance);
    }
    throw std::length_error("The endpoints of the messaging library are too large");
}

EndPointArray::EndPointArray(size_t count)
    : count_(count)
    , distance_(endPointDistance())
    , room_(count * distance_ + kSpare) {}

EndPointArray::~EndPointArray() {
    forget(brivon_EndPoints_destroy(room_.get(), distance_, made_));
}

void EndPointArray::make(const void* const* others) {
    check(brivon_EndPoints_make(room_.get(), distance_, others, count_, &made_));
}
