#include "fake_library.h"

#include <cstdio>
#include <cstring>

namespace {

fake::Record& record(void* fields) {
    return *static_cast<fake::Record*>(fields);
}

} // namespace

#define GETTERS(Class, Name)                                                                                           \
    size_t Class::Get##Name##Size() const {                                                                            \
        return record(fields_).texts[#Name].size();                                                                    \
    }                                                                                                                  \
    void Class::Get##Name(char* text) const {                                                                          \
        const std::string& bytes = record(fields_).texts[#Name];                                                       \
        std::memcpy(text, bytes.data(), bytes.size());                                                                 \
    }
#define SETTER(Class, Name)                                                                                            \
    void Class::Set##Name(const char* text) {                                                                          \
        record(fields_).texts[#Name].assign(text, std::strlen(text) + 1);                                              \
    }

namespace kesta::brivon::api5 {

EndPoint::EndPoint()
    : fields_(new fake::Record) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(new fake::Record(record(other.fields_))) {}
EndPoint& EndPoint::operator=(const EndPoint& other) {
    record(fields_) = record(other.fields_);
    return *this;
}
EndPoint::~EndPoint() {
    delete &record(fields_);
}
GETTERS(EndPoint, Id)
SETTER(EndPoint, Id)
GETTERS(EndPoint, AppId)
SETTER(EndPoint, AppId)
GETTERS(EndPoint, AppVersion)
SETTER(EndPoint, AppVersion)

BrivonMessage::BrivonMessage(const char* type)
    : fields_(new fake::Record{{{"Type", {type, std::strlen(type) + 1}}}, {}}) {}
BrivonMessage::~BrivonMessage() {
    delete &record(fields_);
}
GETTERS(BrivonMessage, Type)
GETTERS(BrivonMessage, AppId)
GETTERS(BrivonMessage, AppVersion)

const char* const SuiteMessage::TYPE_PREFIX = "suite/";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
void SuiteMessage::SetSource(const EndPoint&) {}
EndPoint SuiteMessage::GetSource() const {
    return {};
}
void SuiteMessage::SetDestinations(const EndPoint* destinations, size_t count) {
    record(fields_).destinations.assign(destinations, destinations + count);
}
size_t SuiteMessage::GetDestinationCount() const {
    return record(fields_).destinations.size();
}
void SuiteMessage::GetDestinations(EndPoint* destinations) const {
    for (const EndPoint& destination : record(fields_).destinations)
        *destinations++ = destination;
}
GETTERS(SuiteMessage, Payload)
SETTER(SuiteMessage, Payload)

// Begins with the prefix, so that the order of the two tests of a type shows.
const char* const ErrorMessage::TYPE = "suite/error";
ErrorMessage::ErrorMessage()
    : BrivonMessage(TYPE) {}
ErrorMessage::~ErrorMessage() = default;
GETTERS(ErrorMessage, Error)
GETTERS(ErrorMessage, Fault)

IBrivonMessageListener::IBrivonMessageListener() = default;

namespace {

struct Dispatcher final : IBrivonMessageDispatcher {
    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& sent) override {
        std::string type(sent.GetTypeSize(), '\0');
        sent.GetType(type.data());
        std::string payload(sent.GetPayloadSize(), '\0');
        sent.GetPayload(payload.data());
        std::printf("another library sends %s: %s\n", type.c_str(), payload.c_str());
        std::fflush(stdout);
        return BrivonMessageErrorCode_Success;
    }
    void AddMessageListener(IBrivonMessageListener*) override {}
    void RemoveMessageListener(IBrivonMessageListener*) override {}
    void AddErrorListener(IBrivonMessageListener*) override {}
    void RemoveErrorListener(IBrivonMessageListener*) override {}
    void RegisterEndPointsCallback(EndPointsCallback, void*) override {}
    void UnregisterEndPointsCallback(EndPointsCallback, void*) override {}
    void RefreshEndPoints() override {}
    bool IsRefreshing() override { return false; }
    EndPoint GetSelfEndPoint() override {
        EndPoint self;
        self.SetAppId("another library");
        return self;
    }
    bool IsReady() override { return true; }
    void GetEndPoints(EndPoint** endPoints, size_t* count) override {
        *endPoints = nullptr;
        *count = 0;
    }
    void ReleaseEndPoints(EndPoint*) override {}
};

} // namespace

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char*, const char*) {
    return BrivonMessageErrorCode_Success;
}
BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    static Dispatcher& only = *new Dispatcher;
    *dispatcher = &only;
    return BrivonMessageErrorCode_Success;
}
void IBrivonMessageDispatcher::ReleaseInstance() {}

} // namespace kesta::brivon::api5
