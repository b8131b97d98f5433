#include "brivonadapter_readers.h"

#include <cstring>

using namespace kesta::brivon::api5;

namespace {

template <typename Record>
using SizeOf = std::size_t (Record::*)() const;
template <typename Record>
using ValueOf = void (Record::*)(char*) const;

// The text ends at its first NUL, or with its size, should the library leave the terminator out.
template <typename Record>
void appendText(std::string& text, const Record& record, SizeOf<Record> sizeOf, ValueOf<Record> value) {
    const std::size_t start = text.size();
    const std::size_t size = (record.*sizeOf)();
    if (size == 0) // a getter may write the terminator that its size does not count
        return;
    text.resize(start + size);
    (record.*value)(&text[start]);
    text.resize(start + strnlen(&text[start], size));
}

template <typename Record>
std::string readText(const Record& record, SizeOf<Record> sizeOf, ValueOf<Record> value) {
    std::string text;
    appendText(text, record, sizeOf, value);
    return text;
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
    std::vector<EndPoint> destinations(message.GetDestinationCount());
    message.GetDestinations(destinations.data());
    return destinations;
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

std::string endPointToString(const EndPoint& endPoint) {
    std::string text = "{";
    appendText(text, endPoint, &EndPoint::GetAppIdSize, &EndPoint::GetAppId);
    text += ',';
    appendText(text, endPoint, &EndPoint::GetAppVersionSize, &EndPoint::GetAppVersion);
    text += ',';
    appendText(text, endPoint, &EndPoint::GetIdSize, &EndPoint::GetId);
    text += '}';
    return text;
}

bool isErrorMessage(const std::string& type) {
    return type == ErrorMessage::TYPE;
}

bool isSuiteMessage(const std::string& type) {
    return type.rfind(SuiteMessage::TYPE_PREFIX, 0) == 0;
}
