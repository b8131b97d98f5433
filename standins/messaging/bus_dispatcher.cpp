#include "bus_dispatcher.h"

#include <chrono>
#include <cstdio>
#include <exception>

namespace standins {

namespace {

constexpr auto statusNotJoined = static_cast<BrivonMessageErrorCode>(1);
constexpr std::chrono::milliseconds leavePatience(1000);
[[maybe_unused]] constexpr std::chrono::milliseconds exitPatience(500);

void logError(const std::string& text) {
    std::fprintf(stderr, "BrivonMessage5: %s\n", text.c_str());
}

} // namespace

BrivonMessageErrorCode BusDispatcher::setConfig(const char* first, const char* second) {
    config_ = {{}, first, second};
    if (bus_ != nullptr && (bus_->self().appId != first || bus_->self().appVersion != second))
        logError("already on the bus as {" + bus_->self().appId + "," + bus_->self().appVersion + "}; {" + first + "," +
                 second + "} does not take effect before all adapters of this process are gone");
    return BrivonMessageErrorCode_Success;
}

BrivonMessageErrorCode BusDispatcher::getInstance(IBrivonMessageDispatcher** dispatcher) {
    if (instances_ == 0) {
        try {
            bus_ = std::make_unique<Bus>(callbacks_, config_.appId, config_.appVersion);
        } catch (const std::exception& error) {
            logError(error.what());
            return statusNotJoined;
        }
    }
    ++instances_;
    *dispatcher = this;
    return BrivonMessageErrorCode_Success;
}

void BusDispatcher::releaseInstance() {
    if (instances_ == 0 || --instances_ > 0)
        return;
    bus_->drain(leavePatience);
    bus_->leave(); // the program, which is called until then, may use the bus
    bus_.reset();
    callbacks_.clear();
}

void BusDispatcher::exit() {
    if (bus_ == nullptr)
        return;
#if !defined(_WIN32) // which has ended the library's thread by now
    bus_->drain(exitPatience);
#endif
    bus_->unpublish();
}

} // namespace standins
