#include "brivonadapter_readers.h"

#include <cstring>
#include <memory>

using namespace kesta::brivon::api5;

namespace {

template <typename Record>
using SizeOf = std::size_t (Record::*)() const;
template <typename Record>
using ValueOf = void (Record::*)(char*) const;

// Fetches a text of that size and answers where it ends, which is bounded, should the library leave the terminator out.
template <typename Record>
char* fetch(const Record& record, std::size_t size, ValueOf<Record> value, char* buffer) {
    if (size == 0)
        return buffer;
    (record.*value)(buffer);
    return buffer + strnlen(buffer, size);
}

template <typename Record>
std::string readText(const Record& record, SizeOf<Record> sizeOf, ValueOf<Record> value) {
    const std::size_t size = (record.*sizeOf)();
    TextBuffer buffer(size);
    return {buffer.data(), fetch(record, size, value, buffer.data())};
}

} // namespace

std::string readType(const BrivonMessage& message) {
    return readText(message, &BrivonMessage::GetTypeSize, &BrivonMessage::GetType);
}

std::string readAppId(const BrivonMessage& message) {
    return readText(message, &BrivonMessage::GetAppIdSize, &BrivonMessage::GetAppId);
}

std::string readAppVersion(const BrivonMessage& message) {
    return readText(message, &BrivonMessage::GetAppVersionSize, &BrivonMessage::GetAppVersion);
}

std::string readId(const EndPoint& endPoint) {
    return readText(endPoint, &EndPoint::GetIdSize, &EndPoint::GetId);
}

std::string readAppId(const EndPoint& endPoint) {
    return readText(endPoint, &EndPoint::GetAppIdSize, &EndPoint::GetAppId);
}

std::string readAppVersion(const EndPoint& endPoint) {
    return readText(endPoint, &EndPoint::GetAppVersionSize, &EndPoint::GetAppVersion);
}

std::string readError(const ErrorMessage& message) {
    return readText(message, &ErrorMessage::GetErrorSize, &ErrorMessage::GetError);
}

std::string readFault(const ErrorMessage& message) {
    return readText(message, &ErrorMessage::GetFaultSize, &ErrorMessage::GetFault);
}

std::string readPayload(const SuiteMessage& message) {
    const std::size_t size = message.GetPayloadSize();
    if (size < 2)
        return {};
    std::string payload(size, '\0');
    message.GetPayload(payload.data());
    payload.pop_back();
    return payload;
}

std::vector<EndPoint> readDestinations(const SuiteMessage& message) {
    const std::size_t count = message.GetDestinationCount();
    const auto array = std::make_unique<EndPoint[]>(count);
    message.GetDestinations(array.get());
    return {array.get(), array.get() + count};
}

std::vector<EndPoint> listEndPoints(IBrivonMessageDispatcher& dispatcher) {
    EndPoint* array = nullptr;
    std::size_t count = 0;
    dispatcher.GetEndPoints(&array, &count);
    if (count == 0)
        return {};
    std::vector<EndPoint> list(array, array + count);
    dispatcher.ReleaseEndPoints(array);
    return list;
}

EndPointText::EndPointText(const EndPoint& endPoint)
    : EndPointText(endPoint, endPoint.GetAppIdSize(), endPoint.GetAppVersionSize(), endPoint.GetIdSize()) {}

EndPointText::EndPointText(const EndPoint& endPoint, std::size_t appIdSize, std::size_t appVersionSize,
                           std::size_t idSize)
    : buffer_(appIdSize + appVersionSize + idSize + sizeof "{,,}") {
    char* end = buffer_.data();
    *end++ = '{';
    end = fetch(endPoint, appIdSize, &EndPoint::GetAppId, end);
    *end++ = ',';
    end = fetch(endPoint, appVersionSize, &EndPoint::GetAppVersion, end);
    *end++ = ',';
    end = fetch(endPoint, idSize, &EndPoint::GetId, end);
    *end++ = '}';
    length_ = static_cast<std::size_t>(end - buffer_.data());
}

EndPointText endPointToString(const EndPoint& endPoint) {
    return EndPointText(endPoint);
}

bool isErrorMessage(const std::string& type) {
    return type == ErrorMessage::TYPE;
}

bool isSuiteMessage(const std::string& type) {
    return type.rfind(SuiteMessage::TYPE_PREFIX, 0) == 0;
}
