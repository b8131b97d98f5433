// The dispatcher over the bus.
#ifndef STANDINS_MESSAGE_BUS_DISPATCHER_H
#define STANDINS_MESSAGE_BUS_DISPATCHER_H

#include "bus.h"
#include "dispatcher_slots.h"
#include "program.h"

#include <memory>

namespace standins {

class BusDispatcher final : public DispatcherSlots, Bus::Events {
public:
    using Listener = Program::Listener;

    // DispatcherSlots
    BrivonMessageErrorCode setConfig(const char* first, const char* second) override;
    BrivonMessageErrorCode getInstance(IBrivonMessageDispatcher** dispatcher) override;
    void releaseInstance() override;
    void exit() override;
    bool isInUse() const override { return instances_ != 0; }
    BrivonMessageErrorCode send(const SuiteMessage& message) override { return bus_->send(fieldsOf(message)); }

    // The contract's slots; any thread.
    void AddMessageListener(Listener* listener) override { program_.addMessageListener(listener); }
    void RemoveMessageListener(Listener* listener) override { program_.removeMessageListener(listener); }
    void AddErrorListener(Listener* listener) override { program_.addErrorListener(listener); }
    void RemoveErrorListener(Listener* listener) override { program_.removeErrorListener(listener); }
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        program_.addCallback(callback, context);
    }
    void UnregisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        program_.removeCallback(callback, context);
    }
    void RefreshEndPoints() override { bus_->refresh(); }
    bool IsRefreshing() override { return bus_->isRefreshing(); }
    EndPoint GetSelfEndPoint() override { return makeEndPoint(bus_->self()); }
    bool IsReady() override { return true; }
    void GetEndPoints(EndPoint** endPoints, std::size_t* count) override;
    void ReleaseEndPoints(EndPoint* endPoints) override { delete[] endPoints; }

private:
    // Library thread.
    void endPointsChanged() override { program_.endPointsChanged(); }
    void received(const MessageFields& message) override;
    void unreachable(const EndPointFields& destination) override;
    void failed(const std::string& error, const std::string& fault) override;

    Program program_;

    // With the lock of the static operations.
    int instances_ = 0;
    EndPointFields config_;

    // From the first instance to the last, for whoever holds one.
    std::unique_ptr<Bus> bus_;
};

} // namespace standins

#endif
