// What the bridge uses of the C++ library. For the Microsoft interface there is none here, so that it is declared as
// that compiler's library lays it out.
#ifndef BRIDGE_RUNTIME_H
#define BRIDGE_RUNTIME_H

#include <stddef.h>

#if !defined(_MSC_VER)

#include <exception>
#include <new>
#include <stdexcept>

#include <stdlib.h>
#include <string.h>

#else

extern "C" {
void* malloc(size_t size);
void free(void* memory);
void* memcpy(void* to, const void* from, size_t size);
void* memset(void* memory, int byte, size_t size);
int memcmp(const void* one, const void* other, size_t size);
size_t strlen(const char* text);
}

inline void* operator new(size_t, void* room) noexcept {
    return room;
}

namespace std {

class exception {
public:
    exception() noexcept
        : exception(nullptr) {}
    exception(const exception& other) noexcept
        : exception(other.text_) {}
    exception& operator=(const exception& other) = delete;
    virtual ~exception() {
        if (isOwner_)
            free(text_);
    }
    virtual const char* what() const noexcept { return text_; }

protected:
    explicit exception(const char* text) noexcept
        : text_(text == nullptr ? nullptr : static_cast<char*>(malloc(strlen(text) + 1)))
        , isOwner_(text_ != nullptr) {
        if (isOwner_)
            memcpy(text_, text, strlen(text) + 1);
    }

private:
    char* text_;
    bool isOwner_;
};

class runtime_error : public exception {
public:
    explicit runtime_error(const char* text) noexcept
        : exception(text) {}
};

class bad_alloc : public exception {
public:
    bad_alloc() noexcept
        : exception("bad allocation") {}
};

class length_error : public exception {
public:
    explicit length_error(const char* text) noexcept
        : exception(text) {}
};

} // namespace std

#endif

#endif
