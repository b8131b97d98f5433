#include "message_values.h"

namespace standins {

BrivonMessageErrorCode toStatus(const Value& value) {
    return static_cast<BrivonMessageErrorCode>(value.toInteger("a status", 0));
}

bool givesInstance(const Value& value) {
    return value["instance"].toBool("instance", true);
}

bool toBoolean(const Value& value) {
    return value.toBool("an answer of this operation", false);
}

EndPointFields toEndPointFields(const Value& value) {
    return {value["id"].toText("id"), value["appId"].toText("appId"), value["appVersion"].toText("appVersion")};
}

std::vector<EndPoint> toEndPoints(const Value& value) {
    std::vector<EndPoint> endPoints;
    for (const Value& element : value.toList("an endpoint list"))
        endPoints.push_back(makeEndPoint(toEndPointFields(element)));
    return endPoints;
}

bool isUnlisted(const Value& value) {
    return value.asObject() != nullptr && value["count"].toInteger("count", 1) == 0;
}

MessageFields toMessageFields(const Value& value) {
    MessageFields fields;
    fields.type = value["type"].toText("type");
    fields.appId = value["appId"].toText("appId");
    fields.appVersion = value["appVersion"].toText("appVersion");
    fields.source = makeEndPoint(toEndPointFields(value["source"]));
    fields.payload = value["payload"].toText("payload");
    fields.payloadSizeIsZero = value["payload"].isNull();
    fields.error = value["error"].toText("error");
    fields.fault = value["fault"].toText("fault");
    return fields;
}

Value toValue(const EndPointFields& fields) {
    return Object{{"id", fields.id}, {"appId", fields.appId}, {"appVersion", fields.appVersion}};
}

List toList(const std::vector<EndPoint>& endPoints) {
    List list;
    for (const EndPoint& endPoint : endPoints)
        list.push_back(toValue(fieldsOf(endPoint)));
    return list;
}

std::vector<Operation> messageOperations() {
    const auto status = [](const Value& answer) { toStatus(answer); };
    const auto statusOrNoInstance = [](const Value& answer) {
        if (givesInstance(answer))
            toStatus(answer);
    };
    const auto boolean = [](const Value& answer) { toBoolean(answer); };
    const auto endPoint = [](const Value& answer) { toEndPointFields(answer); };
    const auto endPoints = [](const Value& answer) {
        if (!isUnlisted(answer))
            toEndPoints(answer);
    };
    return {
        {"SetConfig", status, true},
        {"GetInstance", statusOrNoInstance, true},
        {"Send", status, true},
        {"AddMessageListener", nullptr, true},
        {"RemoveMessageListener", nullptr, true},
        {"AddErrorListener", nullptr, true},
        {"RemoveErrorListener", nullptr, true},
        {"RegisterEndPointsCallback", nullptr, true},
        {"UnregisterEndPointsCallback", nullptr, true},
        {"RefreshEndPoints", boolean, true}, // whether the refresh ends at once
        {"IsRefreshing", boolean, true},
        {"GetSelfEndPoint", endPoint, true},
        {"IsReady", boolean, true},
        {"GetEndPoints", endPoints, true},
        {"ReleaseEndPoints", nullptr, true},
    };
}

} // namespace standins
