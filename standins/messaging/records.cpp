#include "records.h"

#include <cstring>
#include <utility>

namespace {

using standins::EndPointFields;
using standins::MessageFields;

EndPointFields& endPointFields(void* fields) {
    return *static_cast<EndPointFields*>(fields);
}

MessageFields& messageFields(void* fields) {
    return *static_cast<MessageFields*>(fields);
}

// The contract's text convention: sizes count the terminator, values are written with it.
size_t sizeOf(const std::string& text) {
    return text.size() + 1;
}
void write(const std::string& text, char* buffer) {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

} // namespace

namespace kesta::brivon::api5 {

EndPoint::EndPoint()
    : fields_(new EndPointFields) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(new EndPointFields(endPointFields(other.fields_))) {}
EndPoint& EndPoint::operator=(const EndPoint& other) {
    // Equal fields are left alone: a program may read its own endpoint on another thread while it is assigned again.
    if (this != &other && !(endPointFields(fields_) == endPointFields(other.fields_)))
        endPointFields(fields_) = endPointFields(other.fields_);
    return *this;
}
EndPoint::~EndPoint() {
    delete &endPointFields(fields_);
}

void EndPoint::SetId(const char* id) {
    endPointFields(fields_).id = id;
}
size_t EndPoint::GetIdSize() const {
    return sizeOf(endPointFields(fields_).id);
}
void EndPoint::GetId(char* id) const {
    write(endPointFields(fields_).id, id);
}

void EndPoint::SetAppId(const char* appId) {
    endPointFields(fields_).appId = appId;
}
size_t EndPoint::GetAppIdSize() const {
    return sizeOf(endPointFields(fields_).appId);
}
void EndPoint::GetAppId(char* appId) const {
    write(endPointFields(fields_).appId, appId);
}

void EndPoint::SetAppVersion(const char* appVersion) {
    endPointFields(fields_).appVersion = appVersion;
}
size_t EndPoint::GetAppVersionSize() const {
    return sizeOf(endPointFields(fields_).appVersion);
}
void EndPoint::GetAppVersion(char* appVersion) const {
    write(endPointFields(fields_).appVersion, appVersion);
}

// Without a type: one of the library's own, which borrows its fields.
BrivonMessage::BrivonMessage(const char* type)
    : fields_(type == nullptr ? nullptr : new MessageFields) {
    if (type != nullptr)
        messageFields(fields_).type = type;
}
BrivonMessage::~BrivonMessage() {
    delete static_cast<MessageFields*>(fields_);
}

size_t BrivonMessage::GetTypeSize() const {
    return sizeOf(messageFields(fields_).type);
}
void BrivonMessage::GetType(char* type) const {
    write(messageFields(fields_).type, type);
}
size_t BrivonMessage::GetAppIdSize() const {
    return sizeOf(messageFields(fields_).appId);
}
void BrivonMessage::GetAppId(char* appId) const {
    write(messageFields(fields_).appId, appId);
}
size_t BrivonMessage::GetAppVersionSize() const {
    return sizeOf(messageFields(fields_).appVersion);
}
void BrivonMessage::GetAppVersion(char* appVersion) const {
    write(messageFields(fields_).appVersion, appVersion);
}

const char* const SuiteMessage::TYPE_PREFIX = "brivon.SuiteMessage.";

SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;

void SuiteMessage::SetSource(const EndPoint& source) {
    messageFields(fields_).source = source;
}
EndPoint SuiteMessage::GetSource() const {
    return messageFields(fields_).source;
}

void SuiteMessage::SetDestinations(const EndPoint* destinations, size_t count) {
    messageFields(fields_).destinations.assign(destinations, destinations + count);
}
size_t SuiteMessage::GetDestinationCount() const {
    return messageFields(fields_).destinations.size();
}
void SuiteMessage::GetDestinations(EndPoint* destinations) const {
    for (const EndPoint& destination : messageFields(fields_).destinations)
        *destinations++ = destination;
}

void SuiteMessage::SetPayload(const char* payload) {
    messageFields(fields_).payload = payload;
}
size_t SuiteMessage::GetPayloadSize() const {
    return messageFields(fields_).payloadSizeIsZero ? 0 : sizeOf(messageFields(fields_).payload);
}
void SuiteMessage::GetPayload(char* payload) const {
    write(messageFields(fields_).payload, payload);
}

const char* const ErrorMessage::TYPE = "brivon.ErrorMessage";

ErrorMessage::ErrorMessage()
    : BrivonMessage(nullptr) {}
ErrorMessage::~ErrorMessage() = default;

size_t ErrorMessage::GetErrorSize() const {
    return sizeOf(messageFields(fields_).error);
}
void ErrorMessage::GetError(char* error) const {
    write(messageFields(fields_).error, error);
}
size_t ErrorMessage::GetFaultSize() const {
    return sizeOf(messageFields(fields_).fault);
}
void ErrorMessage::GetFault(char* fault) const {
    write(messageFields(fields_).fault, fault);
}

IBrivonMessageListener::IBrivonMessageListener() = default;

} // namespace kesta::brivon::api5

namespace standins {

namespace {

// A derived class may name the protected pointer of any object of its base.
struct OpenEndPoint : EndPoint {
    explicit OpenEndPoint(EndPointFields fields) { endPointFields(fields_) = std::move(fields); }
    static const EndPointFields& of(const EndPoint& endPoint) {
        return endPointFields(endPoint.*(&OpenEndPoint::fields_));
    }
};
struct OpenMessage : BrivonMessage {
    static const MessageFields& of(const BrivonMessage& message) {
        return messageFields(message.*(&OpenMessage::fields_));
    }
};

} // namespace

EndPoint makeEndPoint(EndPointFields fields) {
    return OpenEndPoint(std::move(fields));
}

const EndPointFields& fieldsOf(const EndPoint& endPoint) {
    return OpenEndPoint::of(endPoint);
}
const MessageFields& fieldsOf(const SuiteMessage& message) {
    return OpenMessage::of(message);
}

std::string textOf(const EndPointFields& endPoint) {
    return "{" + endPoint.appId + "," + endPoint.appVersion + "," + endPoint.id + "}";
}

bool isErrorType(const std::string& type) {
    return type == ErrorMessage::TYPE;
}

} // namespace standins
