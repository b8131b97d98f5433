// Copies of what the messaging library's records hold. The readers keep no state, trust the library's sizes, and run on
// any thread; an allocation that fails raises std::bad_alloc.
#ifndef BRIVONADAPTER_READERS_H
#define BRIVONADAPTER_READERS_H

#include "BrivonMessage5.h"

#include <string>
#include <vector>

std::string readType(const kesta::brivon::api5::BrivonMessage& message);
std::string readAppId(const kesta::brivon::api5::BrivonMessage& message);
std::string readAppVersion(const kesta::brivon::api5::BrivonMessage& message);
std::string readId(const kesta::brivon::api5::EndPoint& endPoint);
std::string readAppId(const kesta::brivon::api5::EndPoint& endPoint);
std::string readAppVersion(const kesta::brivon::api5::EndPoint& endPoint);
std::string readError(const kesta::brivon::api5::ErrorMessage& message);
std::string readFault(const kesta::brivon::api5::ErrorMessage& message);

// Unlike every other field, which ends at its first NUL, the payload keeps all of its bytes.
std::string readPayload(const kesta::brivon::api5::SuiteMessage& message);

// Completes the readers; nothing calls it, since a delivered message does not carry its destinations to JavaScript.
std::vector<kesta::brivon::api5::EndPoint> readDestinations(const kesta::brivon::api5::SuiteMessage& message);

// The dispatcher's current endpoints, in the library's order.
std::vector<kesta::brivon::api5::EndPoint> listEndPoints(kesta::brivon::api5::IBrivonMessageDispatcher& dispatcher);

// "{appId,appVersion,id}", nothing quoted or escaped: the only form in which an endpoint reaches JavaScript.
std::string endPointToString(const kesta::brivon::api5::EndPoint& endPoint);

// The type of a message decides what it is; an error type wins over the prefix of application messages.
bool isErrorMessage(const std::string& type);
bool isSuiteMessage(const std::string& type);

#endif
