// The dispatcher over the script: every call is recorded, and answered as the script says.
#pragma once

#include "dispatcher.h"
#include "loop_thread.h"
#include "script.h"

#include <atomic>
#include <memory>
#include <optional>

namespace standins {

class ScriptedDispatcher final : public Dispatcher {
public:
    BrivonMessageErrorCode setConfig(const char* first, const char* second) override;
    BrivonMessageErrorCode getInstance(IBrivonMessageDispatcher** dispatcher) override;
    void releaseInstance() override;
    BrivonMessageErrorCode send(const SuiteMessage& message) override;

    // The contract's slots; any thread.
    void RefreshEndPoints() override;
    bool IsRefreshing() override { return record("IsRefreshing").as<bool>(); }
    EndPoint GetSelfEndPoint() override;
    bool IsReady() override { return record("IsReady").as<bool>(true); }
    void GetEndPoints(EndPoint** array, std::size_t* count) override;
    void ReleaseEndPoints(EndPoint* endPoints) override;

    // The addon's requests; any thread but the library's.
    Value request(const std::string& verb, const List& arguments);

private:
    // Any thread. The answer is null where the usual one stands.
    Value record(const char* operation, List arguments = {});
    // Records a stable name for the pointer: 1, 2, … in the order in which they are first seen.
    void noteCall(const char* operation, const void* target) override;
    void deliver(const Value& message);
    void setEndPoints(const Value& endPoints);

    Script script_;

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
