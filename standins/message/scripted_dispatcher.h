// The dispatcher over the script: every call is recorded, and answered as the script says.
#ifndef STANDINS_MESSAGE_SCRIPTED_DISPATCHER_H
#define STANDINS_MESSAGE_SCRIPTED_DISPATCHER_H

#include "dispatcher_slots.h"
#include "loop_thread.h"
#include "message_script.h"
#include "program.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace standins {

class ScriptedDispatcher final : public DispatcherSlots, public MessageScript {
public:
    using Listener = Program::Listener;

    ScriptedDispatcher();

    // DispatcherSlots
    BrivonMessageErrorCode setConfig(const char* first, const char* second) override;
    BrivonMessageErrorCode getInstance(IBrivonMessageDispatcher** dispatcher) override;
    void releaseInstance() override;
    bool isInUse() const override { return instances_ != 0; }

    // The contract's slots; any thread.
    BrivonMessageErrorCode send(const SuiteMessage& message) override;
    void AddMessageListener(Listener* listener) override;
    void RemoveMessageListener(Listener* listener) override;
    void AddErrorListener(Listener* listener) override;
    void RemoveErrorListener(Listener* listener) override;
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override;
    void UnregisterEndPointsCallback(EndPointsCallback callback, void* context) override;
    void RefreshEndPoints() override;
    bool IsRefreshing() override;
    EndPoint GetSelfEndPoint() override;
    bool IsReady() override;
    void GetEndPoints(EndPoint** endPoints, std::size_t* count) override;
    void ReleaseEndPoints(EndPoint* endPoints) override;

    // MessageScript; any thread but the library's.
    std::vector<Call> takeCalls() override { return script_.takeCalls(); }
    void answer(const std::string& operation, const Value& answer, unsigned times) override;
    void reset() override;
    void deliver(const Value& message) override;
    void setEndPoints(const Value& endPoints) override;
    void setSelf(const Value& endPoint) override;

private:
    // Any thread. Records a call and takes its answer; one that gives none may still throw.
    std::optional<Value> record(const char* operation, List arguments = {});
    // Any thread. A stable name for a pointer in recorded calls: 1, 2, … in the order in which they are first seen.
    int labelOf(const void* pointer);

    Script script_;
    Program program_;

    int instances_ = 0; // with the lock of the static operations

    std::mutex threadMutex_; // serialises the thread's making, its end and the script's use of it; not taken on it
    // From the first instance to the last, for whoever holds one.
    std::unique_ptr<LoopThread> thread_;
    std::atomic<std::thread::id> threadId_{}; // of that thread, for whoever asks

    std::mutex mutex_; // guards what follows
    EndPointFields configured_;
    std::optional<EndPointFields> self_;
    std::vector<EndPoint> endPoints_;
    std::vector<const void*> labels_;
};

} // namespace standins

#endif
