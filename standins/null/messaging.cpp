// A messaging library that does next to nothing, so that what is measured on it is the module's own time.
//
// - SetConfig's second text is the number of endpoints that the next adapter is told of, all of them of one
// application.
// - An endpoint is a reference to one of them; setters do nothing.
// - A message is not kept and goes nowhere, unless its type ends in "flood:<count>:<size>:<listener>": Send then has a
//   thread of its own hand <count> messages with a payload of <size> bytes to that listener, counted from 0 in the
//   order of registration.
//
// On Windows it is compiled twice, the second time for the Microsoft interface, with no library of C++'s.
#include "BrivonMessage5.h"
#include "standard.h"

using namespace kesta::brivon::api5;

namespace {

constexpr char kAppId[] = "calendar";
constexpr char kAppVersion[] = "3.0";
constexpr char kFloodType[] = "brivon.SuiteMessage.flood";
constexpr size_t kMostListeners = 64;

const Participant& participant(const void* fields) {
    return *static_cast<const Participant*>(fields);
}

const Flood& flood(const void* fields) {
    return *static_cast<const Flood*>(fields);
}

// An endpoint of the library's own.
struct Known : EndPoint {
    explicit Known(size_t number) { fields_ = newParticipant(number); }
};

struct Incoming final : SuiteMessage {
    explicit Incoming(const Flood& flood)
        : SuiteMessage("") {
        fields_ = newFlood(flood);
    }
    static const Flood* floodOf(const SuiteMessage& message) {
        return static_cast<const Flood*>(message.*(&Incoming::fields_));
    }
};

// Live until the process ends, as all that is handed out.
EndPoint* endPoints = nullptr;
size_t endPointCount = 0;

} // namespace

namespace kesta::brivon::api5 {

EndPoint::EndPoint() {
    static constexpr Participant blank{"endpoint", sizeof "endpoint"};
    fields_ = const_cast<Participant*>(&blank);
}
EndPoint::EndPoint(const EndPoint&) = default;
EndPoint& EndPoint::operator=(const EndPoint&) = default;
EndPoint::~EndPoint() = default;
void EndPoint::SetId(const char*) {}
size_t EndPoint::GetIdSize() const {
    return participant(fields_).idSize;
}
void EndPoint::GetId(char* id) const {
    memcpy(id, participant(fields_).id, participant(fields_).idSize);
}
void EndPoint::SetAppId(const char*) {}
size_t EndPoint::GetAppIdSize() const {
    return sizeof kAppId;
}
void EndPoint::GetAppId(char* appId) const {
    memcpy(appId, kAppId, sizeof kAppId);
}
void EndPoint::SetAppVersion(const char*) {}
size_t EndPoint::GetAppVersionSize() const {
    return sizeof kAppVersion;
}
void EndPoint::GetAppVersion(char* appVersion) const {
    memcpy(appVersion, kAppVersion, sizeof kAppVersion);
}

BrivonMessage::BrivonMessage(const char* type)
    : fields_(nullptr) {
    static constexpr size_t length = sizeof kFloodType - 1;
    Flood order{};
    if (strncmp(type, kFloodType, length) == 0 && readFlood(type + length, &order))
        fields_ = newFlood(order);
}
BrivonMessage::~BrivonMessage() {
    freeFlood(fields_);
}
size_t BrivonMessage::GetTypeSize() const {
    return sizeof kFloodType;
}
void BrivonMessage::GetType(char* type) const {
    memcpy(type, kFloodType, sizeof kFloodType);
}
size_t BrivonMessage::GetAppIdSize() const {
    return sizeof kAppId;
}
void BrivonMessage::GetAppId(char* appId) const {
    memcpy(appId, kAppId, sizeof kAppId);
}
size_t BrivonMessage::GetAppVersionSize() const {
    return sizeof kAppVersion;
}
void BrivonMessage::GetAppVersion(char* appVersion) const {
    memcpy(appVersion, kAppVersion, sizeof kAppVersion);
}

const char* const SuiteMessage::TYPE_PREFIX = "brivon.SuiteMessage.";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
void SuiteMessage::SetSource(const EndPoint&) {}
EndPoint SuiteMessage::GetSource() const {
    return endPoints[0];
}
void SuiteMessage::SetDestinations(const EndPoint*, size_t) {}
size_t SuiteMessage::GetDestinationCount() const {
    return 0;
}
void SuiteMessage::GetDestinations(EndPoint*) const {}
void SuiteMessage::SetPayload(const char*) {}
size_t SuiteMessage::GetPayloadSize() const {
    return flood(fields_).size + 1;
}
void SuiteMessage::GetPayload(char* payload) const {
    memset(payload, 'x', flood(fields_).size);
    payload[flood(fields_).size] = '\0';
}

const char* const ErrorMessage::TYPE = "brivon.ErrorMessage";
ErrorMessage::ErrorMessage()
    : BrivonMessage(TYPE) {}
ErrorMessage::~ErrorMessage() = default;
size_t ErrorMessage::GetErrorSize() const {
    return 0;
}
void ErrorMessage::GetError(char*) const {}
size_t ErrorMessage::GetFaultSize() const {
    return 0;
}
void ErrorMessage::GetFault(char*) const {}

IBrivonMessageListener::IBrivonMessageListener() = default;

namespace {

struct Delivery {
    Flood flood;
    IBrivonMessageListener* listener;

    // The library's thread.
    static void run(void* context) {
        const auto* delivery = static_cast<Delivery*>(context);
        const Incoming incoming(delivery->flood);
        for (size_t i = 0; i < delivery->flood.count; ++i)
            delivery->listener->Receive(incoming);
        delete delivery;
    }
};

class Dispatcher final : public IBrivonMessageDispatcher {
public:
    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) override {
        const Flood* order = Incoming::floodOf(message);
        if (order != nullptr && order->listener < kMostListeners && listeners_[order->listener] != nullptr)
            runOnLibraryThread(Delivery::run, new Delivery{*order, listeners_[order->listener]});
        return BrivonMessageErrorCode_Success;
    }
    void AddMessageListener(IBrivonMessageListener* listener) override {
        const size_t number = nextListenerNumber();
        if (number < kMostListeners)
            listeners_[number] = listener;
    }
    void RemoveMessageListener(IBrivonMessageListener*) override {}
    void AddErrorListener(IBrivonMessageListener*) override {}
    void RemoveErrorListener(IBrivonMessageListener*) override {}
    // Only the latest is told, so that every adapter keeps the number of endpoints that it was constructed with.
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        callback_ = callback;
        context_ = context;
    }
    void UnregisterEndPointsCallback(EndPointsCallback, void* context) override {
        if (context == context_)
            callback_ = nullptr;
    }
    void RefreshEndPoints() override {
        if (callback_ != nullptr)
            callback_(context_);
    }
    bool IsRefreshing() override { return false; }
    EndPoint GetSelfEndPoint() override { return {}; }
    bool IsReady() override { return true; }
    void GetEndPoints(EndPoint** list, size_t* count) override {
        *list = endPoints;
        *count = endPointCount;
    }
    void ReleaseEndPoints(EndPoint*) override {}

private:
    IBrivonMessageListener* listeners_[kMostListeners] = {};
    EndPointsCallback callback_ = nullptr;
    void* context_ = nullptr;
};

} // namespace

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char*, const char* second) {
    endPointCount = readNumber(second);
    endPoints = new EndPoint[endPointCount];
    for (size_t i = 0; i < endPointCount; ++i)
        endPoints[i] = Known(i);
    return BrivonMessageErrorCode_Success;
}
BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    static Dispatcher& only = *new Dispatcher;
    *dispatcher = &only;
    return BrivonMessageErrorCode_Success;
}
void IBrivonMessageDispatcher::ReleaseInstance() {}

} // namespace kesta::brivon::api5
