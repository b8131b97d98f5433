#include "bus_dispatcher.h"

#include <chrono>
#include <cstdio>
#include <exception>

namespace standins {

namespace {

constexpr std::chrono::milliseconds leavePatience(1000);
[[maybe_unused]] constexpr std::chrono::milliseconds exitPatience(500);
constexpr char unreachableType[] = "DestinationUnreachable";
constexpr char unreachableText[] = "Destination unreachable";

void complain(const std::string& text) {
    std::fprintf(stderr, "BrivonMessage5: %s\n", text.c_str());
}

} // namespace

// ---- Joining and leaving

BrivonMessageErrorCode BusDispatcher::setConfig(const char* first, const char* second) {
    config_ = {{}, first, second};
    if (bus_ != nullptr && (bus_->self().appId != first || bus_->self().appVersion != second))
        complain("already on the bus as {" + bus_->self().appId + "," + bus_->self().appVersion + "}; {" + first + "," +
                 second + "} does not take effect before all adapters of this process are gone");
    return BrivonMessageErrorCode_Success;
}

BrivonMessageErrorCode BusDispatcher::getInstance(IBrivonMessageDispatcher** dispatcher) {
    if (instances_ == 0) {
        try {
            bus_ = std::make_unique<Bus>(static_cast<Bus::Events&>(*this), config_.appId, config_.appVersion);
        } catch (const std::exception& error) {
            complain(error.what());
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
    program_.clear();
}

void BusDispatcher::exit() {
    if (bus_ == nullptr)
        return;
#if !defined(_WIN32) // which has ended the library's thread by now
    bus_->drain(exitPatience);
#endif
    bus_->unpublish();
}

// ---- The contract's slots

void BusDispatcher::GetEndPoints(EndPoint** endPoints, std::size_t* count) {
    const std::vector<EndPoint> list = bus_->endPoints();
    *endPoints = handOut(list);
    *count = list.size();
}

// ---- What the bus has to tell

void BusDispatcher::received(const MessageFields& message) {
    if (isErrorType(message.type))
        program_.tellError(message);
    else
        program_.tellMessage(message);
}

void BusDispatcher::failed(const std::string& error, const std::string& fault) {
    MessageFields message;
    message.type = ErrorMessage::TYPE;
    message.error = error;
    message.fault = fault;
    program_.tellError(message);
}

// Comes back twice: as an error to those who listen for errors, and as a message of its own type to every listener,
// which makes an adapter ask for a new endpoint list whichever listener it has.
void BusDispatcher::unreachable(const EndPointFields& destination) {
    failed(unreachableText, textOf(destination));
    MessageFields notice;
    notice.type = unreachableType;
    program_.tellEveryone(notice);
}

} // namespace standins
