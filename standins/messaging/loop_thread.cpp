#include "loop_thread.h"

#include <future>
#include <memory>
#include <stdexcept>

namespace standins {

namespace {

void check(int status, const char* what) {
    if (status != 0)
        throw std::runtime_error(std::string(what) + ": " + uv_strerror(status));
}

} // namespace

LoopThread::LoopThread() {
    check(uv_loop_init(&loop_), "cannot make an event loop");
    wake_.data = this;
    check(uv_async_init(&loop_, &wake_, [](uv_async_t* wake) { static_cast<LoopThread*>(wake->data)->runTasks(); }),
          "cannot make an event loop's wake-up");
    // Assigned before the first task is posted, and so before anything asks isCurrent on the new thread.
    thread_ = std::thread([this] { runLoop(); });
}

LoopThread::~LoopThread() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    uv_async_send(&wake_);
    thread_.join();
    uv_loop_close(&loop_);
}

void LoopThread::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    uv_async_send(&wake_);
}

void LoopThread::run(const Task& task) {
    if (isCurrent()) {
        task();
        return;
    }
    // Kept by the task, which may still be in its last steps when the wait is over.
    const auto ran = std::make_shared<std::packaged_task<void()>>(task);
    std::future<void> end = ran->get_future();
    post([ran] { (*ran)(); });
    end.get();
}

void LoopThread::runLoop() {
    bool isPolling = false;
    while (uv_run(&loop_, isPolling ? UV_RUN_NOWAIT : UV_RUN_ONCE) != 0) {
        isPolling = pollUntil_ != 0 && uv_hrtime() < pollUntil_;
        if (isPolling)
            std::this_thread::yield();
    }
}

void LoopThread::runTasks() {
    std::vector<Task> tasks;
    bool stopping = false;
    {
        const std::lock_guard lock(mutex_);
        tasks.swap(tasks_);
        stopping = stopping_;
    }
    for (const Task& task : tasks)
        task();
    if (stopping)
        uv_close(reinterpret_cast<uv_handle_t*>(&wake_), nullptr);
}

} // namespace standins
