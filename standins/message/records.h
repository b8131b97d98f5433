// What stands behind the contract's value classes in this library.
#ifndef STANDINS_MESSAGE_RECORDS_H
#define STANDINS_MESSAGE_RECORDS_H

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
// The array that GetEndPoints gives and ReleaseEndPoints deletes; null for no endpoints.
EndPoint* handOut(const std::vector<EndPoint>& endPoints);
// "{appId,appVersion,id}"
std::string textOf(const EndPointFields& endPoint);

// Makes a message of the class that its type demands and hands it over for the duration of the call.
template <typename Use>
void withMessage(const MessageFields& fields, Use use);

bool isErrorType(const std::string& type);
bool isSuiteType(const std::string& type);

// Messages of the library's own making, which borrow their fields.
struct OwnSuiteMessage final : SuiteMessage {
    explicit OwnSuiteMessage(const MessageFields& fields);
    ~OwnSuiteMessage() override;
};
struct OwnErrorMessage final : ErrorMessage {
    explicit OwnErrorMessage(const MessageFields& fields);
    ~OwnErrorMessage() override;
};
struct OwnMessage final : BrivonMessage {
    explicit OwnMessage(const MessageFields& fields);
    ~OwnMessage() override;
};

template <typename Use>
void withMessage(const MessageFields& fields, Use use) {
    if (isErrorType(fields.type))
        use(OwnErrorMessage(fields));
    else if (isSuiteType(fields.type))
        use(OwnSuiteMessage(fields));
    else
        use(OwnMessage(fields));
}

} // namespace standins

#endif
