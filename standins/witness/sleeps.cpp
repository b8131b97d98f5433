// Preloaded into a process to see which sleeps it asks for, without spending them: each of 50 ms or more is written to
// the file that SLEEPS_TO names, in milliseconds, one a line. And to leave a thread without memory for a while.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

namespace {
thread_local bool isOutOfMemory = false;
}

extern "C" __attribute__((visibility("default"))) void setOutOfMemory(bool value) {
    isOutOfMemory = value;
}

__attribute__((visibility("default"))) void* operator new(std::size_t size) {
    void* memory = isOutOfMemory ? nullptr : std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* wanted, timespec*) {
    const long milliseconds = wanted->tv_sec * 1000 + wanted->tv_nsec / 1'000'000;
    if (milliseconds < 50)
        return clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, nullptr);
    const char* path = std::getenv("SLEEPS_TO");
    std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "a");
    if (file != nullptr) {
        std::fprintf(file, "%ld\n", milliseconds);
        std::fclose(file);
    }
    return 0;
}
