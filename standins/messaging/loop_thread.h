// The one thread of a library: a libuv loop that runs what it is given, in order.
#pragma once

#include <uv.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace standins {

class LoopThread {
public:
    using Task = std::function<void()>;

    LoopThread();
    // Any thread but this one. Runs what was posted before, then waits for the thread to end; handles that others put
    // on the loop must be closing by then.
    ~LoopThread();
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    // Any thread. Tasks must not throw.
    void post(Task task);
    // Any thread. Returns when the task has run, which is at once on this thread; what it throws comes back.
    void run(const Task& task);
    bool isCurrent() const { return std::this_thread::get_id() == id(); }
    std::thread::id id() const { return thread_.get_id(); }

    // For use on this thread only.
    uv_loop_t* loop() { return &loop_; }
    // This thread. Until that time (of uv_hrtime) it looks for events over and over, which finds them sooner than being
    // woken does and costs its processor's time. A round trip takes 0.5 of the time that it takes without this.
    void pollUntil(std::uint64_t time) { pollUntil_ = time; }

private:
    void runLoop();
    void runTasks();

    uv_loop_t loop_{};
    uv_async_t wake_{};
    std::uint64_t pollUntil_ = 0; // this thread only
    std::mutex mutex_;            // guards tasks_ and stopping_
    std::vector<Task> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace standins
