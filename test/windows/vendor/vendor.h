// What both libraries of the second vendor share: they note every call, count what they make, and throw when they are
// told to. Told and asked through two plain functions of each:
//   "throw OPERATION KIND"  that operation throws from now on: standard, other, object, nested or rethrown; "throw - -"
//                           ends it
// Any other order is the library's own.
#ifndef VENDOR_H
#define VENDOR_H

#include <stddef.h>
#include <stdint.h>

#if !defined(_MSC_VER)

#include <stdexcept>
#include <thread>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define __declspec(attribute) __attribute__((visibility("default")))
using StandardException = std::runtime_error;

inline void runThread(unsigned long (*run)(void*), void* context) {
    std::thread(run, context).join();
}

#else

extern "C" {
void* malloc(size_t size);
void free(void* memory);
void* memcpy(void* to, const void* from, size_t size);
size_t strlen(const char* text);
const char* strchr(const char* text, int byte);
int strcmp(const char* one, const char* other);
int sprintf(char* to, const char* format, ...);
int sscanf(const char* from, const char* format, ...);
__declspec(dllimport) void* CreateThread(void*, size_t, unsigned long (*run)(void*), void* context, unsigned long,
                                         void*);
__declspec(dllimport) unsigned long WaitForSingleObject(void* handle, unsigned long milliseconds);
__declspec(dllimport) int CloseHandle(void* handle);
}

inline void runThread(unsigned long (*run)(void*), void* context) {
    void* thread = CreateThread(nullptr, 0, run, context, 0, nullptr);
    WaitForSingleObject(thread, 0xFFFFFFFF);
    CloseHandle(thread);
}

namespace std {
// As that compiler's library lays it out.
class exception {
public:
    explicit exception(const char* text);
    exception(const exception& other);
    virtual ~exception();
    virtual const char* what() const { return text_; }

private:
    char* text_;
    [[maybe_unused]] bool isOwner_;
};
} // namespace std
using StandardException = std::exception;

#endif

extern "C" {
__declspec(dllexport) void vendor_order(const char* order);
__declspec(dllexport) const char* vendor_report(); // the calls noted since the last time, and what there is, as JSON
}

// One of what is counted: each that is made must go.
struct Counted {
    explicit Counted(long& count);
    Counted(const Counted& other)
        : Counted(other.count_) {}
    ~Counted();

private:
    long& count_;
};

struct Local : Counted {
    Local();
};

char* copyText(const char* text);
void freeText(char* text);

// The beginning of every operation; what its name is qualified with is left out.
struct Call {
    explicit Call(const char* operation, const char* detail = "");

private:
    Local local_;
};

#define OPERATION(result, Name, parameters, ...)                                                                       \
    result Name parameters {                                                                                           \
        const Call call(#Name);                                                                                        \
        __VA_ARGS__                                                                                                    \
    }

void ownOrder(const char* order);
extern long texts, lists;

#endif
