#include "fake_library.h"

#include <cstdio>
#include <cstring>

namespace {

using fake::Field;
using fake::Message;

struct EndPointFields {
    std::string id, appId, appVersion;
};

EndPointFields& endPoint(void* fields) {
    return *static_cast<EndPointFields*>(fields);
}
Message& message(void* fields) {
    return *static_cast<Message*>(fields);
}

void give(Field& field, char* buffer) {
    ++field.reads;
    std::memcpy(buffer, field.bytes.data(), field.bytes.size());
}

void give(const std::string& text, char* buffer) {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

} // namespace

namespace fake {

Suite::Suite()
    : SuiteMessage("") {}

} // namespace fake

namespace kesta::brivon::api5 {

EndPoint::EndPoint()
    : fields_(new EndPointFields) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(new EndPointFields(endPoint(other.fields_))) {}
EndPoint& EndPoint::operator=(const EndPoint& other) {
    endPoint(fields_) = endPoint(other.fields_);
    return *this;
}
EndPoint::~EndPoint() {
    delete &endPoint(fields_);
}
void EndPoint::SetId(const char* id) {
    endPoint(fields_).id = id;
}
size_t EndPoint::GetIdSize() const {
    return endPoint(fields_).id.size() + 1;
}
void EndPoint::GetId(char* id) const {
    give(endPoint(fields_).id, id);
}
void EndPoint::SetAppId(const char* appId) {
    endPoint(fields_).appId = appId;
}
size_t EndPoint::GetAppIdSize() const {
    return endPoint(fields_).appId.size() + 1;
}
void EndPoint::GetAppId(char* appId) const {
    give(endPoint(fields_).appId, appId);
}
void EndPoint::SetAppVersion(const char* appVersion) {
    endPoint(fields_).appVersion = appVersion;
}
size_t EndPoint::GetAppVersionSize() const {
    return endPoint(fields_).appVersion.size() + 1;
}
void EndPoint::GetAppVersion(char* appVersion) const {
    give(endPoint(fields_).appVersion, appVersion);
}

BrivonMessage::BrivonMessage(const char* type)
    : fields_(new Message) {
    message(fields_).type.bytes.assign(type, std::strlen(type) + 1);
}
BrivonMessage::~BrivonMessage() {
    delete &message(fields_);
}
size_t BrivonMessage::GetTypeSize() const {
    return message(fields_).type.bytes.size();
}
void BrivonMessage::GetType(char* type) const {
    give(message(fields_).type, type);
}
size_t BrivonMessage::GetAppIdSize() const {
    return message(fields_).appId.bytes.size();
}
void BrivonMessage::GetAppId(char* appId) const {
    give(message(fields_).appId, appId);
}
size_t BrivonMessage::GetAppVersionSize() const {
    return message(fields_).appVersion.bytes.size();
}
void BrivonMessage::GetAppVersion(char* appVersion) const {
    give(message(fields_).appVersion, appVersion);
}

const char* const SuiteMessage::TYPE_PREFIX = "suite/";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
void SuiteMessage::SetSource(const EndPoint&) {}
EndPoint SuiteMessage::GetSource() const {
    return {};
}
void SuiteMessage::SetDestinations(const EndPoint* destinations, size_t count) {
    message(fields_).destinations.assign(destinations, destinations + count);
}
size_t SuiteMessage::GetDestinationCount() const {
    return message(fields_).destinations.size();
}
void SuiteMessage::GetDestinations(EndPoint* destinations) const {
    for (const EndPoint& destination : message(fields_).destinations)
        *destinations++ = destination;
}
void SuiteMessage::SetPayload(const char* payload) {
    message(fields_).payload.bytes.assign(payload, std::strlen(payload) + 1);
}
size_t SuiteMessage::GetPayloadSize() const {
    return message(fields_).payload.bytes.size();
}
void SuiteMessage::GetPayload(char* payload) const {
    give(message(fields_).payload, payload);
}

// Begins with the prefix, so that the order of the two tests of a type shows.
const char* const ErrorMessage::TYPE = "suite/error";
ErrorMessage::ErrorMessage()
    : BrivonMessage(TYPE) {}
ErrorMessage::~ErrorMessage() = default;
size_t ErrorMessage::GetErrorSize() const {
    return message(fields_).error.bytes.size();
}
void ErrorMessage::GetError(char* error) const {
    give(message(fields_).error, error);
}
size_t ErrorMessage::GetFaultSize() const {
    return message(fields_).fault.bytes.size();
}
void ErrorMessage::GetFault(char* fault) const {
    give(message(fields_).fault, fault);
}

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
