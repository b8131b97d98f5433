// The fields behind the contract's value classes.
#pragma once

#include "BrivonMessage5.h"

#include <string>
#include <vector>

namespace standins {

using kesta::brivon::api5::BrivonMessage;
using kesta::brivon::api5::EndPoint;
using kesta::brivon::api5::ErrorMessage;
using kesta::brivon::api5::SuiteMessage;

struct EndPointFields {
    std::string id;
    std::string appId;
    std::string appVersion;

    bool operator==(const EndPointFields& other) const {
        return id == other.id && appId == other.appId && appVersion == other.appVersion;
    }
};

// One set of fields serves every kind of message.
struct MessageFields {
    std::string type;
    std::string appId;
    std::string appVersion;
    EndPoint source;
    std::vector<EndPoint> destinations;
    std::string payload;
    bool payloadSizeIsZero = false; // an empty payload may have size 0 or 1
    std::string error;
    std::string fault;
};

EndPoint makeEndPoint(EndPointFields fields);
const EndPointFields& fieldsOf(const EndPoint& endPoint);
const MessageFields& fieldsOf(const SuiteMessage& message);
// "{appId,appVersion,id}"
std::string textOf(const EndPointFields& endPoint);

bool isErrorType(const std::string& type);

// A message of the library's own making, which borrows its fields.
template <typename Message>
struct Borrowing final : Message {
    template <typename... Arguments>
    explicit Borrowing(const MessageFields& fields, Arguments... arguments)
        : Message(arguments...) {
        this->fields_ = const_cast<MessageFields*>(&fields); // received messages have no setters
    }
    ~Borrowing() override { this->fields_ = nullptr; }
};

// Calls use with a message of the class that its type demands.
template <typename Use>
void withMessage(const MessageFields& fields, Use use) {
    if (isErrorType(fields.type))
        use(Borrowing<ErrorMessage>(fields));
    else if (fields.type.rfind(SuiteMessage::TYPE_PREFIX, 0) == 0)
        use(Borrowing<SuiteMessage>(fields, nullptr));
    else
        use(Borrowing<BrivonMessage>(fields, nullptr));
}

} // namespace standins
