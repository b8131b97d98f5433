// The dispatcher over the bus.
#pragma once

#include "bus.h"
#include "dispatcher.h"

#include <memory>

namespace standins {

class BusDispatcher final : public Dispatcher {
public:
    BrivonMessageErrorCode setConfig(const char* first, const char* second) override;
    BrivonMessageErrorCode getInstance(IBrivonMessageDispatcher** dispatcher) override;
    void releaseInstance() override;
    void exit() override;
    BrivonMessageErrorCode send(const SuiteMessage& message) override { return bus_->send(fieldsOf(message)); }

    // The contract's slots; any thread.
    void RefreshEndPoints() override { bus_->refresh(); }
    bool IsRefreshing() override { return bus_->isRefreshing(); }
    EndPoint GetSelfEndPoint() override { return makeEndPoint(bus_->self()); }
    bool IsReady() override { return true; }
    void GetEndPoints(EndPoint** array, std::size_t* count) override { handOut(bus_->endPoints(), array, count); }

private:
    EndPointFields config_; // with the lock of the static operations

    // From the first instance to the last, for whoever holds one.
    std::unique_ptr<Bus> bus_;
};

} // namespace standins
