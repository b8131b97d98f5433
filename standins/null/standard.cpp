#include "standard.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <queue>
#include <thread>
#include <utility>

namespace {

// The library's thread, from the first task on until the process ends.
class LibraryThread {
public:
    using Task = std::pair<void (*)(void*), void*>;

    LibraryThread() {
        std::thread([this] { run(); }).detach();
    }
    void post(Task task) {
        const std::lock_guard lock(mutex_);
        tasks_.push(task);
        posted_.notify_one();
    }

private:
    void run() {
        for (;;) {
            std::unique_lock lock(mutex_);
            posted_.wait(lock, [this] { return !tasks_.empty(); });
            const auto [task, context] = tasks_.front();
            tasks_.pop();
            lock.unlock();
            task(context);
        }
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    std::queue<Task> tasks_;
};

} // namespace

Participant* newParticipant(size_t number) {
    auto* made = new Participant;
    made->idSize = static_cast<size_t>(std::snprintf(made->id, sizeof made->id, "endpoint-%zu", number)) + 1;
    return made;
}
Flood* newFlood(const Flood& flood) {
    return new Flood(flood);
}
void freeFlood(void* flood) {
    delete static_cast<Flood*>(flood);
}

size_t nextListenerNumber() {
    static std::atomic<size_t> next = 0;
    return next++;
}

size_t readNumber(const char* text) {
    return std::strtoul(text, nullptr, 10);
}
bool readFlood(const char* text, Flood* flood) {
    return std::sscanf(text, ":%zu:%zu:%zu", &flood->count, &flood->size, &flood->listener) == 3;
}

void runOnLibraryThread(void (*task)(void* context), void* context) {
    static LibraryThread& only = *new LibraryThread;
    only.post({task, context});
}
