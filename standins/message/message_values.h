// The messaging library's records as a script writes them, and what its operations may answer.
#ifndef STANDINS_MESSAGE_VALUES_H
#define STANDINS_MESSAGE_VALUES_H

#include "records.h"
#include "script.h"

namespace standins {

// Each throws std::invalid_argument for a value of another shape. Fields that are not given are empty.
BrivonMessageErrorCode toStatus(const Value& value);
// Whether GetInstance gives a dispatcher: all answers say so but { instance: false }.
bool givesInstance(const Value& value);
bool toBoolean(const Value& value);
EndPointFields toEndPointFields(const Value& value);
std::vector<EndPoint> toEndPoints(const Value& value);
MessageFields toMessageFields(const Value& value);

// Whether GetEndPoints gives an array that is not null, of no endpoints: { count: 0 }.
bool isUnlisted(const Value& value);

Value toValue(const EndPointFields& fields);
List toList(const std::vector<EndPoint>& endPoints);

std::vector<Operation> messageOperations();

} // namespace standins

#endif
