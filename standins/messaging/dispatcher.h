// What the dispatcher over the bus and the dispatcher over the script have in common.
#pragma once

#include "callbacks.h"

namespace standins {

class Dispatcher : public kesta::brivon::api5::IBrivonMessageDispatcher {
public:
    using Listener = Callbacks::Listener;

    // What stands behind the static operations of these names: any thread but the library's, one call at a time.
    virtual BrivonMessageErrorCode setConfig(const char* first, const char* second) = 0;
    virtual BrivonMessageErrorCode getInstance(IBrivonMessageDispatcher** dispatcher) = 0;
    // When the last instance is released, no thread of the library runs any more.
    virtual void releaseInstance() = 0;
    // Likewise, while the process exits.
    virtual void exit() {}
    bool isInUse() const { return instances_ != 0; }
    // Likewise for the slot of that name, which notes the status; any thread.
    virtual BrivonMessageErrorCode send(const SuiteMessage& message) = 0;

    // The contract's slots; any thread, by whoever holds an instance.
    void Reserved0() final {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) final;
    void AddMessageListener(Listener* one) final { add("AddMessageListener", {Callbacks::Messages, one}); }
    void RemoveMessageListener(Listener* one) final { remove("RemoveMessageListener", {Callbacks::Messages, one}); }
    void AddErrorListener(Listener* one) final { add("AddErrorListener", {Callbacks::Errors, one}); }
    void RemoveErrorListener(Listener* one) final { remove("RemoveErrorListener", {Callbacks::Errors, one}); }
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) final {
        add("RegisterEndPointsCallback", {Callbacks::EndPoints, context, callback});
    }
    void UnregisterEndPointsCallback(EndPointsCallback callback, void* context) final {
        remove("UnregisterEndPointsCallback", {Callbacks::EndPoints, context, callback});
    }
    void ReleaseEndPoints(EndPoint* endPoints) override { delete[] endPoints; }

protected:
    ~Dispatcher() = default;
    // The array is null for no endpoints.
    static void handOut(const std::vector<EndPoint>& list, EndPoint** array, std::size_t* count);

    Callbacks callbacks_;
    int instances_ = 0; // with the lock of the static operations

private:
    void add(const char* operation, const Callbacks::Registration& registration) {
        noteCall(operation, registration.target);
        callbacks_.add(registration);
    }
    void remove(const char* operation, const Callbacks::Registration& registration) {
        noteCall(operation, registration.target);
        callbacks_.remove(registration);
    }
    // Any thread. An operation is called for a listener or context.
    virtual void noteCall(const char*, const void*) {}
};

} // namespace standins
