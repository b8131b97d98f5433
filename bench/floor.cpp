// The floor: the least that can be done in the shapes of the module's contract, by hand against Node-API. A byte string
// holds each text, a record and a closure on the heap carry each delivered message, and the snapshot copies the ordered
// cache. Only what the benchmark calls is here, and what lives as long as the process is never freed.
#include "BrivonControl.h"
#include "BrivonMessage5.h"

#include <node_api.h>
#include <uv.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace kesta::brivon::api5;

namespace {

// ---- Calls and texts

struct Call {
    Call(napi_env env, napi_callback_info info) {
        napi_get_cb_info(env, info, &count, arguments, &self, nullptr);
        napi_unwrap(env, self, &wrapped);
    }
    std::size_t count = 5;
    napi_value arguments[5] = {};
    napi_value self = nullptr;
    void* wrapped = nullptr;
};

napi_value refuse(napi_env env, const char* message) {
    napi_throw_type_error(env, nullptr, message);
    return nullptr;
}

bool isOfType(napi_env env, napi_value value, napi_valuetype wanted) {
    napi_valuetype type = napi_undefined;
    return napi_typeof(env, value, &type) == napi_ok && type == wanted;
}

std::string toText(napi_env env, napi_value value) {
    std::size_t length = 0;
    napi_get_value_string_utf8(env, value, nullptr, 0, &length);
    std::string text(length, '\0');
    napi_get_value_string_utf8(env, value, text.data(), length + 1, nullptr);
    return text;
}

napi_value toJavaScript(napi_env env, std::string_view text) {
    napi_value value = nullptr;
    napi_create_string_utf8(env, text.data(), text.size(), &value);
    return value;
}

template <typename Record>
std::string read(const Record& record, std::size_t (Record::*sizeOf)() const, void (Record::*get)(char*) const) {
    std::string text((record.*sizeOf)(), '\0');
    (record.*get)(text.data());
    text.resize(std::strlen(text.c_str()));
    return text;
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

napi_value toJavaScript(napi_env env, const EndPoint& endPoint) {
    const std::string appId = read(endPoint, &EndPoint::GetAppIdSize, &EndPoint::GetAppId);
    const std::string appVersion = read(endPoint, &EndPoint::GetAppVersionSize, &EndPoint::GetAppVersion);
    const std::string id = read(endPoint, &EndPoint::GetIdSize, &EndPoint::GetId);
    std::string text;
    text.reserve(appId.size() + appVersion.size() + id.size() + 4);
    text.append("{").append(appId).append(",").append(appVersion).append(",").append(id).append("}");
    return toJavaScript(env, std::string_view(text));
}

// ---- Messaging

struct MessageRecord {
    std::string type, appId, appVersion, sourceId, payload;
};

using EndPointCache = std::multimap<std::string, EndPoint>;
using Delivery = std::function<void(napi_env, napi_value)>;

struct Adapter final : IBrivonMessageListener {
    void Receive(const BrivonMessage& message) override;

    IBrivonMessageDispatcher* dispatcher = nullptr;
    napi_threadsafe_function listener = nullptr;
    bool needsRefresh = false;
    std::string defaultAppId;
    EndPoint self;
    uv_mutex_t mutex = {};
    EndPointCache cache;
};

void deliver(napi_env env, napi_value listener, MessageRecord* record) {
    const auto& [type, appId, appVersion, sourceId, payload] = *record;
    napi_value arguments[] = {toJavaScript(env, type), toJavaScript(env, payload), toJavaScript(env, appId),
                              toJavaScript(env, appVersion), toJavaScript(env, sourceId)};
    napi_value undefined = nullptr;
    napi_get_undefined(env, &undefined);
    napi_call_function(env, undefined, listener, 5, arguments, nullptr);
    delete record;
}

void callListener(napi_env env, napi_value listener, void*, void* data) {
    auto* delivery = static_cast<Delivery*>(data);
    if (env != nullptr)
        (*delivery)(env, listener);
    delete delivery;
}

// A source that is not cached is not added here: there is none.
bool isCached(Adapter& adapter, const EndPoint& source) {
    uv_mutex_lock(&adapter.mutex);
    const std::string appId = read(source, &EndPoint::GetAppIdSize, &EndPoint::GetAppId);
    const std::string id = read(source, &EndPoint::GetIdSize, &EndPoint::GetId);
    const auto [first, last] = adapter.cache.equal_range(appId);
    const bool hit = std::any_of(first, last, [&id](const auto& entry) {
        return read(entry.second, &EndPoint::GetIdSize, &EndPoint::GetId) == id;
    });
    uv_mutex_unlock(&adapter.mutex);
    return hit;
}

void Adapter::Receive(const BrivonMessage& message) {
    std::string type = read(message, &BrivonMessage::GetTypeSize, &BrivonMessage::GetType);
    if (type == "DestinationUnreachable" || needsRefresh)
        dispatcher->RefreshEndPoints();
    if (type == ErrorMessage::TYPE || type.rfind(SuiteMessage::TYPE_PREFIX, 0) != 0)
        return;
    const auto& suiteMessage = static_cast<const SuiteMessage&>(message);
    const EndPoint source = suiteMessage.GetSource();
    auto* record =
        new MessageRecord{std::move(type), read(message, &BrivonMessage::GetAppIdSize, &BrivonMessage::GetAppId),
                          read(message, &BrivonMessage::GetAppVersionSize, &BrivonMessage::GetAppVersion),
                          read(source, &EndPoint::GetIdSize, &EndPoint::GetId), readPayload(suiteMessage)};
    needsRefresh = !isCached(*this, source);
    auto* delivery = new Delivery([record](napi_env env, napi_value function) { deliver(env, function, record); });
    if (napi_call_threadsafe_function(listener, delivery, napi_tsfn_nonblocking) != napi_ok)
        delete delivery;
}

void fillCache(void* context) {
    auto* adapter = static_cast<Adapter*>(context);
    EndPoint* list = nullptr;
    std::size_t count = 0;
    adapter->self = adapter->dispatcher->GetSelfEndPoint();
    adapter->dispatcher->GetEndPoints(&list, &count);
    uv_mutex_lock(&adapter->mutex);
    adapter->cache.clear();
    for (std::size_t i = 0; i < count; ++i)
        adapter->cache.emplace(read(list[i], &EndPoint::GetAppIdSize, &EndPoint::GetAppId), list[i]);
    uv_mutex_unlock(&adapter->mutex);
    adapter->dispatcher->ReleaseEndPoints(list);
}

// (configuration, configuration, default application id)
napi_value newAdapter(napi_env env, napi_callback_info info) {
    const Call call(env, info);
    auto* adapter = new Adapter;
    adapter->defaultAppId = toText(env, call.arguments[2]);
    uv_mutex_init(&adapter->mutex);
    IBrivonMessageDispatcher::SetConfig(toText(env, call.arguments[0]).c_str(), toText(env, call.arguments[1]).c_str());
    IBrivonMessageDispatcher::GetInstance(&adapter->dispatcher);
    adapter->dispatcher->RegisterEndPointsCallback(fillCache, adapter);
    adapter->dispatcher->RefreshEndPoints();
    napi_wrap(env, call.self, adapter, nullptr, nullptr, nullptr);
    return call.self;
}

napi_value addMessageListener(napi_env env, napi_callback_info info) {
    const Call call(env, info);
    auto* adapter = static_cast<Adapter*>(call.wrapped);
    napi_create_threadsafe_function(env, call.arguments[0], nullptr, toJavaScript(env, "floor"), 0, 1, nullptr, nullptr,
                                    nullptr, callListener, &adapter->listener);
    adapter->dispatcher->AddMessageListener(adapter);
    return nullptr;
}

// Nothing is narrowed by version here.
std::vector<EndPoint> selectDestinations(Adapter& adapter, const std::string (&texts)[5]) {
    const auto& [type, payload, appId, appVersion, endpointId] = texts;
    if (!appId.empty() && !appVersion.empty() && !endpointId.empty()) {
        std::vector<EndPoint> named(1);
        named[0].SetAppId(appId.c_str());
        named[0].SetAppVersion(appVersion.c_str());
        named[0].SetId(endpointId.c_str());
        return named;
    }
    std::vector<EndPoint> copies;
    uv_mutex_lock(&adapter.mutex);
    const auto [first, last] = adapter.cache.equal_range(appId.empty() ? adapter.defaultAppId : appId);
    copies.reserve(static_cast<std::size_t>(std::distance(first, last)));
    for (auto entry = first; entry != last; ++entry)
        copies.push_back(entry->second);
    uv_mutex_unlock(&adapter.mutex);
    return copies;
}

napi_value sendMessage(napi_env env, napi_callback_info info) {
    static const std::string suiteTypePrefix = "brivon.SuiteMessage.";
    const Call call(env, info);
    auto* adapter = static_cast<Adapter*>(call.wrapped);
    std::string texts[5];
    if (call.count < 2)
        return refuse(env, "Wrong number of arguments");
    for (std::size_t i = 0; i < call.count; ++i)
        if (!isOfType(env, call.arguments[i], napi_string))
            return refuse(env, "Expected targetSpecifier to be a string");
    for (std::size_t i = 0; i < call.count; ++i)
        texts[i] = toText(env, call.arguments[i]);
    SuiteMessage message((suiteTypePrefix + texts[0]).c_str());
    const std::vector<EndPoint> destinations = selectDestinations(*adapter, texts);
    message.SetSource(adapter->self);
    message.SetPayload(texts[1].c_str());
    if (!destinations.empty())
        message.SetDestinations(destinations.data(), destinations.size());
    const bool wasStale = adapter->needsRefresh;
    adapter->needsRefresh = adapter->dispatcher->Send(message) != BrivonMessageErrorCode_Success;
    if (wasStale && !adapter->needsRefresh)
        adapter->dispatcher->RefreshEndPoints();
    return toJavaScript(env, "Sent");
}

napi_value getSelfEndpoint(napi_env env, napi_callback_info info) {
    return toJavaScript(env, static_cast<Adapter*>(Call(env, info).wrapped)->dispatcher->GetSelfEndPoint());
}

napi_value getEndpointCacheSnapshot(napi_env env, napi_callback_info info) {
    const EndPointCache snapshot = static_cast<Adapter*>(Call(env, info).wrapped)->cache;
    napi_value array = nullptr;
    std::uint32_t index = 0;
    napi_create_array_with_length(env, snapshot.size(), &array);
    for (const auto& entry : snapshot)
        napi_set_element(env, array, index++, toJavaScript(env, entry.second));
    return array;
}

// ---- Application control

napi_value newControlAdapter(napi_env env, napi_callback_info info) {
    const Call call(env, info);
    const std::string folder = toText(env, call.arguments[0]);
    const char* attributes[] = {IConfigAttribute::KESTA_ZORP_DIR, folder.c_str(), nullptr};
    IBrivonController* controller = nullptr;
    IBrivonController::SetConfigEx(attributes);
    IBrivonController::SetConfig("", "");
    IBrivonController::GetInstance(&controller);
    napi_wrap(env, call.self, controller, nullptr, nullptr, nullptr);
    return call.self;
}

// Checks and converts the one argument of a query.
template <typename Query>
napi_value query(napi_env env, napi_callback_info info, Query ask) {
    const Call call(env, info);
    if (call.count != 1)
        return refuse(env, "Wrong number of arguments");
    if (!isOfType(env, call.arguments[0], napi_string))
        return refuse(env, "Expected targetSpecifier to be a string");
    napi_value result = nullptr;
    ask(static_cast<IBrivonController*>(call.wrapped), toText(env, call.arguments[0]).c_str(), &result);
    return result;
}

napi_value isAppInstalled(napi_env env, napi_callback_info info) {
    return query(env, info, [env](auto* controller, auto* specifier, auto* result) {
        napi_get_boolean(env, controller->IsAppInstalled(specifier), result);
    });
}

napi_value getAppPath(napi_env env, napi_callback_info info) {
    return query(env, info, [env](auto* controller, auto* specifier, auto* result) {
        char* path = nullptr;
        controller->GetAppPath(specifier, &path);
        napi_create_string_utf8(env, path != nullptr ? path : "", NAPI_AUTO_LENGTH, result);
        if (path != nullptr)
            controller->ReleaseAppPath(path);
    });
}

napi_value getSpecifiers(napi_env env, napi_callback_info info) {
    const Call call(env, info);
    if (call.count != 0)
        return refuse(env, "Wrong number of arguments");
    auto* controller = static_cast<IBrivonController*>(call.wrapped);
    char** list = nullptr;
    std::size_t count = 0;
    controller->GetSpecifiers(&list, &count);
    napi_value array = nullptr;
    napi_create_array_with_length(env, count, &array);
    for (std::size_t i = 0; i < count; ++i)
        napi_set_element(env, array, static_cast<std::uint32_t>(i), toJavaScript(env, list[i]));
    controller->ReleaseSpecifiers(list, count);
    return array;
}

struct Launch {
    IBrivonController* controller;
    std::string specifier, commandLine;
    bool setFocus = false, launched = false;
    napi_ref callback = nullptr, receiver = nullptr; // the latter of an error, should there be one
    napi_async_work work = nullptr;
};

void executeLaunch(napi_env, void* data) {
    auto& launch = *static_cast<Launch*>(data);
    launch.launched =
        launch.controller->LaunchApp(launch.specifier.c_str(), launch.setFocus, launch.commandLine.c_str());
}

void completeLaunch(napi_env env, napi_status, void* data) {
    auto* launch = static_cast<Launch*>(data);
    napi_value callback = nullptr, arguments[2] = {};
    napi_get_reference_value(env, launch->callback, &callback);
    napi_get_undefined(env, &arguments[0]);
    napi_get_boolean(env, launch->launched, &arguments[1]);
    napi_call_function(env, arguments[0], callback, 2, arguments, nullptr);
    napi_delete_async_work(env, launch->work);
    napi_delete_reference(env, launch->callback);
    napi_delete_reference(env, launch->receiver);
    delete launch;
}

napi_value launchApp(napi_env env, napi_callback_info info) {
    static constexpr napi_valuetype types[] = {napi_string, napi_boolean, napi_string, napi_function};
    const Call call(env, info);
    if (call.count != 4)
        return refuse(env, "Wrong number of arguments");
    for (std::size_t i = 0; i < 4; ++i)
        if (!isOfType(env, call.arguments[i], types[i]))
            return refuse(env, "Expected another type");
    auto* launch = new Launch{static_cast<IBrivonController*>(call.wrapped), toText(env, call.arguments[0]),
                              toText(env, call.arguments[2])};
    napi_value receiver = nullptr, resource = nullptr;
    napi_get_value_bool(env, call.arguments[1], &launch->setFocus);
    napi_create_object(env, &receiver);
    napi_create_object(env, &resource);
    napi_create_reference(env, call.arguments[3], 1, &launch->callback);
    napi_create_reference(env, receiver, 1, &launch->receiver);
    napi_create_async_work(env, resource, toJavaScript(env, "generic"), executeLaunch, completeLaunch, launch,
                           &launch->work);
    napi_queue_async_work(env, launch->work);
    return nullptr;
}

// ---- The addon

napi_property_descriptor method(const char* name, napi_callback function) {
    return {name, nullptr, function, nullptr, nullptr, nullptr, napi_default, nullptr};
}

} // namespace

NAPI_MODULE_INIT() {
    const napi_property_descriptor messaging[] = {
        method("sendMessage", sendMessage), method("addMessageListener", addMessageListener),
        method("getSelfEndpoint", getSelfEndpoint), method("getEndpointCacheSnapshot", getEndpointCacheSnapshot)};
    const napi_property_descriptor control[] = {method("isAppInstalled", isAppInstalled),
                                                method("getAppPath", getAppPath),
                                                method("getSpecifiers", getSpecifiers), method("launchApp", launchApp)};
    napi_value type = nullptr;
    napi_define_class(env, "Messaging", NAPI_AUTO_LENGTH, newAdapter, nullptr, 4, messaging, &type);
    napi_set_named_property(env, exports, "BrivonAdapter", type);
    napi_define_class(env, "Control", NAPI_AUTO_LENGTH, newControlAdapter, nullptr, 4, control, &type);
    napi_set_named_property(env, exports, "BrivonControlAdapter", type);
    return exports;
}
