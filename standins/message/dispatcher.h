// The dispatcher: the contract's operations, answered by the bus, or by the script once that is switched on.
#ifndef STANDINS_MESSAGE_DISPATCHER_H
#define STANDINS_MESSAGE_DISPATCHER_H

#include "bus.h"
#include "loop_thread.h"
#include "message_script.h"

#include "BrivonMessage5.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace standins {

// One per process, never destroyed: its thread may outlive static destruction.
class Dispatcher final : public kesta::brivon::api5::IBrivonMessageDispatcher, public ScriptFace, Bus::Events {
public:
    using Listener = kesta::brivon::api5::IBrivonMessageListener;

    static Dispatcher& instance();

    // Any thread but the library's.
    BrivonMessageErrorCode setConfig(const char* first, const char* second);
    BrivonMessageErrorCode join(IBrivonMessageDispatcher** dispatcher);
    // When the last instance is released, no thread of the library runs any more.
    void leave();
    // While the process exits: gives what was sent a moment to leave the process, and takes the endpoint off the bus.
    void exit();

    // The contract's slots; any thread.
    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) override;
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

    // The script's face; any thread but the library's.
    void switchOn() override;
    std::vector<Call> takeCalls() override { return script_.takeCalls(); }
    void answer(const std::string& operation, const Value& answer, unsigned times) override;
    void perform(const std::string& command, const Value& argument) override;

private:
    struct Registration {
        EndPointsCallback callback;
        void* context;
        bool operator==(const Registration& other) const {
            return callback == other.callback && context == other.context;
        }
    };

    Dispatcher() = default;
    void stop();

    // Library thread.
    void endPointsChanged() override;
    void received(const MessageFields& message) override;
    void unreachable(const EndPoint& destination) override;
    void deliver(const MessageFields& message, const std::vector<Listener*>& listeners);
    // One of this object's lists, as it is now.
    std::vector<Listener*> snapshot(const std::vector<Listener*>& listeners);
    // Runs the call unless the target has been removed; whoever removes it waits for the call to end.
    template <typename IsRegistered, typename Call>
    void callOut(const void* target, IsRegistered isRegistered, Call call);

    // With the lock held, waits until the target is not being called.
    void awaitIdle(std::unique_lock<std::mutex>& lock, const void* target);
    void addListener(const char* operation, std::vector<Listener*>& listeners, Listener* listener);
    void removeListener(const char* operation, std::vector<Listener*>& listeners, Listener* listener);

    std::optional<Value> scripted(const char* operation, List arguments = {});
    LoopThread& joinedThread();
    // Stable names for pointers in recorded calls: 1, 2, … in the order in which they are first seen.
    int labelOf(const void* pointer);

    Script script_;

    std::mutex joining_; // serialises join and leave; never taken on the library thread
    int instances_ = 0;

    std::mutex mutex_; // guards what follows; never held while the program is called
    EndPointFields config_;
    std::vector<Listener*> messageListeners_;
    std::vector<Listener*> errorListeners_;
    std::vector<Registration> callbacks_;
    // The listeners and contexts that the library thread is calling: a program that asks for a scripted refresh while
    // it is called is called again.
    std::vector<const void*> running_;
    std::condition_variable idle_;
    std::vector<const void*> labels_;
    std::optional<EndPointFields> scriptedSelf_;
    std::vector<EndPoint> scriptedEndPoints_;

    // Made by the first join, destroyed by the last leave; the thread goes before the bus.
    std::unique_ptr<Bus> bus_;
    std::unique_ptr<LoopThread> thread_;
};

} // namespace standins

#endif
