// The floor: what the module does at the least, written by hand against Node-API. The same checks, the same
// conversions, the same library calls, and nothing else. Only what the benchmark calls is here.
#include "BrivonControl.h"
#include "BrivonMessage5.h"

#include <node_api.h>
#include <uv.h>

#include <cstdlib>
#include <cstring>
#include <new>

using namespace kesta::brivon::api5;

namespace {

constexpr char kTypePrefix[] = "brivon.SuiteMessage.";

// ---- Strings

// A text with its terminator, in place while it is short.
struct Text {
    char* bytes;
    char local[128];
};

void freeText(Text* text) {
    if (text->bytes != text->local)
        std::free(text->bytes);
}

// Two calls, one for the size and one for the text, which is put behind the prefix.
bool readText(napi_env env, napi_value value, const char* prefix, size_t prefixLength, Text* text) {
    size_t length = 0;
    text->bytes = text->local;
    if (napi_get_value_string_utf8(env, value, nullptr, 0, &length) != napi_ok)
        return false;
    if (prefixLength + length + 1 > sizeof text->local)
        text->bytes = static_cast<char*>(std::malloc(prefixLength + length + 1));
    std::memcpy(text->bytes, prefix, prefixLength);
    return napi_get_value_string_utf8(env, value, text->bytes + prefixLength, length + 1, &length) == napi_ok;
}

napi_value refuse(napi_env env, const char* message) {
    napi_value null = nullptr;
    napi_throw_type_error(env, nullptr, message);
    napi_get_null(env, &null);
    return null;
}

bool isOfType(napi_env env, napi_value value, napi_valuetype wanted) {
    napi_valuetype type = napi_undefined;
    return napi_typeof(env, value, &type) == napi_ok && type == wanted;
}

// ---- Messaging

// One incoming message; the texts lie behind it in one block, and the payload may hold NUL characters.
struct Record {
    size_t payloadLength;
    char* texts[5];
};

// The endpoints that sends choose from, in order of their application ids.
struct Cache {
    uv_mutex_t mutex;
    size_t count;
    char** appIds;
    EndPoint* endPoints;
};

class FloorAdapter final : public IBrivonMessageListener {
public:
    void Receive(const BrivonMessage& message) override;

    IBrivonMessageDispatcher* dispatcher = nullptr;
    napi_threadsafe_function listener = nullptr;
    bool needsRefresh = false;
    Text defaultAppId;
    EndPoint self;
    Cache cache = {};
};

// Fetches one text of a record of the library's to where it shall stand, and answers where the next one can.
template <typename Source>
char* fetch(const Source& source, void (Source::*get)(char*) const, char* at, size_t size) {
    (source.*get)(at);
    at[size - 1] = '\0';
    return at + size;
}

void FloorAdapter::Receive(const BrivonMessage& message) {
    const auto& suiteMessage = static_cast<const SuiteMessage&>(message);
    const EndPoint source = suiteMessage.GetSource();
    const size_t sizes[] = {message.GetTypeSize(), suiteMessage.GetPayloadSize(), message.GetAppIdSize(),
                            message.GetAppVersionSize(), source.GetIdSize()};
    size_t total = sizeof(Record);
    for (const size_t size : sizes)
        total += size;
    auto* record = static_cast<Record*>(std::malloc(total));
    record->payloadLength = sizes[1] - 1;
    char* at = reinterpret_cast<char*>(record + 1);
    record->texts[0] = at;
    record->texts[1] = at = fetch(message, &BrivonMessage::GetType, at, sizes[0]);
    record->texts[2] = at = fetch(suiteMessage, &SuiteMessage::GetPayload, at, sizes[1]);
    record->texts[3] = at = fetch(message, &BrivonMessage::GetAppId, at, sizes[2]);
    record->texts[4] = at = fetch(message, &BrivonMessage::GetAppVersion, at, sizes[3]);
    fetch(source, &EndPoint::GetId, at, sizes[4]);
    napi_call_threadsafe_function(listener, record, napi_tsfn_nonblocking);
}

void callListener(napi_env env, napi_value listener, void*, void* data) {
    auto* record = static_cast<Record*>(data);
    if (env != nullptr) {
        napi_value undefined = nullptr;
        napi_value arguments[5] = {};
        for (size_t i = 0; i < 5; ++i)
            napi_create_string_utf8(env, record->texts[i], i == 1 ? record->payloadLength : NAPI_AUTO_LENGTH,
                                    &arguments[i]);
        napi_get_undefined(env, &undefined);
        napi_call_function(env, undefined, listener, 5, arguments, nullptr);
    }
    std::free(record);
}

void fillCache(void* context) {
    auto* adapter = static_cast<FloorAdapter*>(context);
    Cache* cache = &adapter->cache;
    EndPoint* list = nullptr;
    size_t count = 0;
    adapter->self = adapter->dispatcher->GetSelfEndPoint();
    adapter->dispatcher->GetEndPoints(&list, &count);
    uv_mutex_lock(&cache->mutex);
    cache->count = count;
    cache->appIds = static_cast<char**>(std::malloc(count * sizeof(char*)));
    cache->endPoints = static_cast<EndPoint*>(std::malloc(count * sizeof(EndPoint)));
    for (size_t i = 0; i < count; ++i) {
        cache->appIds[i] = static_cast<char*>(std::malloc(list[i].GetAppIdSize()));
        list[i].GetAppId(cache->appIds[i]);
        new (&cache->endPoints[i]) EndPoint(list[i]);
    }
    uv_mutex_unlock(&cache->mutex);
    adapter->dispatcher->ReleaseEndPoints(list);
}

// (configuration, configuration, default application id)
napi_value newAdapter(napi_env env, napi_callback_info info) {
    size_t count = 3;
    napi_value arguments[3] = {};
    napi_value self = nullptr;
    Text first;
    Text second;
    napi_get_cb_info(env, info, &count, arguments, &self, nullptr);
    if (count < 3)
        return refuse(env, "Wrong number of arguments");
    auto* adapter = new FloorAdapter; // never deleted, like all that it has
    if (!readText(env, arguments[0], "", 0, &first) || !readText(env, arguments[1], "", 0, &second) ||
        !readText(env, arguments[2], "", 0, &adapter->defaultAppId))
        return refuse(env, "A string was expected");
    uv_mutex_init(&adapter->cache.mutex);
    IBrivonMessageDispatcher::SetConfig(first.bytes, second.bytes);
    IBrivonMessageDispatcher::GetInstance(&adapter->dispatcher);
    adapter->dispatcher->RegisterEndPointsCallback(fillCache, adapter);
    adapter->dispatcher->RefreshEndPoints();
    freeText(&first);
    freeText(&second);
    napi_wrap(env, self, adapter, nullptr, nullptr, nullptr);
    return self;
}

napi_value addMessageListener(napi_env env, napi_callback_info info) {
    size_t count = 1;
    napi_value listener = nullptr;
    napi_value self = nullptr;
    napi_value name = nullptr;
    void* data = nullptr;
    napi_get_cb_info(env, info, &count, &listener, &self, nullptr);
    napi_unwrap(env, self, &data);
    auto* adapter = static_cast<FloorAdapter*>(data);
    napi_create_string_utf8(env, "floor", NAPI_AUTO_LENGTH, &name);
    napi_create_threadsafe_function(env, listener, nullptr, name, 0, 1, nullptr, nullptr, nullptr, callListener,
                                    &adapter->listener);
    adapter->dispatcher->AddMessageListener(adapter);
    return nullptr;
}

// Copies of the cached endpoints of an application, which are the caller's to destroy; null when there are none.
EndPoint* copyCached(Cache* cache, const char* appId, size_t* count) {
    EndPoint* copies = nullptr;
    size_t first = 0;
    size_t last = 0;
    size_t end = 0;
    uv_mutex_lock(&cache->mutex);
    end = cache->count;
    while (first < end) {
        const size_t middle = (first + end) / 2;
        if (std::strcmp(cache->appIds[middle], appId) < 0)
            first = middle + 1;
        else
            end = middle;
    }
    for (last = first; last < cache->count && std::strcmp(cache->appIds[last], appId) == 0;)
        ++last;
    *count = last - first;
    if (first != last) {
        copies = static_cast<EndPoint*>(std::malloc(*count * sizeof(EndPoint)));
        for (size_t i = first; i < last; ++i)
            new (&copies[i - first]) EndPoint(cache->endPoints[i]);
    }
    uv_mutex_unlock(&cache->mutex);
    return copies;
}

void send(FloorAdapter* adapter, const char* type, const char* payload, const char* appId, const char* appVersion,
          const char* endpointId) {
    SuiteMessage message(type);
    EndPoint named;
    EndPoint* copies = nullptr;
    size_t count = 0;
    if (appId[0] != '\0' && appVersion[0] != '\0' && endpointId[0] != '\0') {
        named.SetAppId(appId);
        named.SetAppVersion(appVersion);
        named.SetId(endpointId);
        count = 1;
    } else {
        copies = copyCached(&adapter->cache, appId[0] != '\0' ? appId : adapter->defaultAppId.bytes, &count);
    }
    message.SetSource(adapter->self);
    message.SetPayload(payload);
    if (count != 0)
        message.SetDestinations(copies != nullptr ? copies : &named, count);
    if (adapter->dispatcher->Send(message) != BrivonMessageErrorCode_Success) {
        adapter->needsRefresh = true;
    } else if (adapter->needsRefresh) {
        adapter->needsRefresh = false;
        adapter->dispatcher->RefreshEndPoints();
    }
    if (copies != nullptr) {
        for (size_t i = 0; i < count; ++i)
            copies[i].~EndPoint();
        std::free(copies);
    }
}

// With 2 arguments or with 5: an application is not narrowed by version here.
napi_value sendMessage(napi_env env, napi_callback_info info) {
    size_t count = 5;
    napi_value arguments[5] = {};
    napi_value self = nullptr;
    napi_value result = nullptr;
    void* adapter = nullptr;
    Text texts[5];
    napi_get_cb_info(env, info, &count, arguments, &self, nullptr);
    if (napi_unwrap(env, self, &adapter) != napi_ok)
        return nullptr;
    if (count < 2)
        return refuse(env, "Wrong number of arguments");
    for (size_t i = 0; i < count && i < 5; ++i) {
        if (!isOfType(env, arguments[i], napi_string))
            return refuse(env, "Expected targetSpecifier to be a string");
    }
    for (size_t i = 0; i < 5; ++i) {
        texts[i].bytes = texts[i].local;
        texts[i].local[0] = '\0';
        if (i < count && !readText(env, arguments[i], kTypePrefix, i == 0 ? sizeof kTypePrefix - 1 : 0, &texts[i]))
            return refuse(env, "A string was expected");
    }
    send(static_cast<FloorAdapter*>(adapter), texts[0].bytes, texts[1].bytes, texts[2].bytes, texts[3].bytes,
         texts[4].bytes);
    for (Text& text : texts)
        freeText(&text);
    napi_create_string_utf8(env, "Sent", NAPI_AUTO_LENGTH, &result);
    return result;
}

// "{appId,appVersion,id}"
napi_value endPointText(napi_env env, const EndPoint& endPoint) {
    const size_t sizes[] = {endPoint.GetAppIdSize(), endPoint.GetAppVersionSize(), endPoint.GetIdSize()};
    const size_t total = sizes[0] + sizes[1] + sizes[2] + 2;
    napi_value text = nullptr;
    char local[256];
    char* bytes = total <= sizeof local ? local : static_cast<char*>(std::malloc(total));
    char* at = bytes;
    *at++ = '{';
    at = fetch(endPoint, &EndPoint::GetAppId, at, sizes[0]);
    at[-1] = ',';
    at = fetch(endPoint, &EndPoint::GetAppVersion, at, sizes[1]);
    at[-1] = ',';
    at = fetch(endPoint, &EndPoint::GetId, at, sizes[2]);
    at[-1] = '}';
    napi_create_string_utf8(env, bytes, static_cast<size_t>(at - bytes), &text);
    if (bytes != local)
        std::free(bytes);
    return text;
}

napi_value getEndpointCacheSnapshot(napi_env env, napi_callback_info info) {
    size_t count = 0;
    napi_value self = nullptr;
    napi_value array = nullptr;
    void* data = nullptr;
    napi_get_cb_info(env, info, &count, nullptr, &self, nullptr);
    if (napi_unwrap(env, self, &data) != napi_ok)
        return nullptr;
    const Cache& cache = static_cast<FloorAdapter*>(data)->cache;
    napi_create_array_with_length(env, cache.count, &array);
    for (size_t i = 0; i < cache.count; ++i)
        napi_set_element(env, array, static_cast<uint32_t>(i), endPointText(env, cache.endPoints[i]));
    return array;
}

// ---- Application control

// (folder)
napi_value newControlAdapter(napi_env env, napi_callback_info info) {
    size_t count = 1;
    napi_value folder = nullptr;
    napi_value self = nullptr;
    IBrivonController* controller = nullptr;
    Text text;
    napi_get_cb_info(env, info, &count, &folder, &self, nullptr);
    if (!readText(env, folder, "", 0, &text))
        return refuse(env, "A string was expected");
    const char* attributes[] = {IConfigAttribute::KESTA_ZORP_DIR, text.bytes, nullptr};
    IBrivonController::SetConfigEx(attributes);
    IBrivonController::SetConfig("", "");
    IBrivonController::GetInstance(&controller);
    freeText(&text);
    napi_wrap(env, self, controller, nullptr, nullptr, nullptr);
    return self;
}

// Checks and converts the one argument of a query. Null when the call was refused.
IBrivonController* querySpecifier(napi_env env, napi_callback_info info, Text* specifier) {
    size_t count = 1;
    napi_value argument = nullptr;
    napi_value self = nullptr;
    void* controller = nullptr;
    napi_get_cb_info(env, info, &count, &argument, &self, nullptr);
    if (napi_unwrap(env, self, &controller) != napi_ok)
        return nullptr;
    if (count != 1) {
        refuse(env, "Wrong number of arguments");
        return nullptr;
    }
    if (!isOfType(env, argument, napi_string)) {
        refuse(env, "Expected targetSpecifier to be a string");
        return nullptr;
    }
    return readText(env, argument, "", 0, specifier) ? static_cast<IBrivonController*>(controller) : nullptr;
}

napi_value isAppInstalled(napi_env env, napi_callback_info info) {
    Text specifier;
    napi_value result = nullptr;
    IBrivonController* controller = querySpecifier(env, info, &specifier);
    if (controller == nullptr)
        return nullptr;
    napi_get_boolean(env, controller->IsAppInstalled(specifier.bytes), &result);
    freeText(&specifier);
    return result;
}

napi_value getAppPath(napi_env env, napi_callback_info info) {
    Text specifier;
    char* path = nullptr;
    napi_value result = nullptr;
    IBrivonController* controller = querySpecifier(env, info, &specifier);
    if (controller == nullptr)
        return nullptr;
    controller->GetAppPath(specifier.bytes, &path);
    napi_create_string_utf8(env, path != nullptr ? path : "", NAPI_AUTO_LENGTH, &result);
    if (path != nullptr)
        controller->ReleaseAppPath(path);
    freeText(&specifier);
    return result;
}

napi_value getSpecifiers(napi_env env, napi_callback_info info) {
    size_t arguments = 0;
    napi_value self = nullptr;
    napi_value array = nullptr;
    void* data = nullptr;
    char** list = nullptr;
    size_t count = 0;
    napi_get_cb_info(env, info, &arguments, nullptr, &self, nullptr);
    if (napi_unwrap(env, self, &data) != napi_ok)
        return nullptr;
    if (arguments != 0)
        return refuse(env, "Wrong number of arguments");
    auto* controller = static_cast<IBrivonController*>(data);
    controller->GetSpecifiers(&list, &count);
    napi_create_array_with_length(env, count, &array);
    for (size_t i = 0; i < count; ++i) {
        napi_value specifier = nullptr;
        napi_create_string_utf8(env, list[i], NAPI_AUTO_LENGTH, &specifier);
        napi_set_element(env, array, static_cast<uint32_t>(i), specifier);
    }
    controller->ReleaseSpecifiers(list, count);
    return array;
}

struct Launch {
    IBrivonController* controller;
    Text specifier;
    Text commandLine;
    bool setFocus;
    bool launched;
    napi_ref callback;
    napi_async_work work;
};

void executeLaunch(napi_env, void* data) {
    auto* launch = static_cast<Launch*>(data);
    launch->launched =
        launch->controller->LaunchApp(launch->specifier.bytes, launch->setFocus, launch->commandLine.bytes);
}

void completeLaunch(napi_env env, napi_status, void* data) {
    auto* launch = static_cast<Launch*>(data);
    napi_value callback = nullptr;
    napi_value undefined = nullptr;
    napi_value arguments[2] = {};
    napi_get_reference_value(env, launch->callback, &callback);
    napi_get_undefined(env, &undefined);
    arguments[0] = undefined;
    napi_get_boolean(env, launch->launched, &arguments[1]);
    napi_call_function(env, undefined, callback, 2, arguments, nullptr);
    napi_delete_reference(env, launch->callback);
    napi_delete_async_work(env, launch->work);
    freeText(&launch->specifier);
    freeText(&launch->commandLine);
    std::free(launch);
}

napi_value launchApp(napi_env env, napi_callback_info info) {
    static constexpr napi_valuetype types[] = {napi_string, napi_boolean, napi_string, napi_function};
    size_t count = 4;
    napi_value arguments[4] = {};
    napi_value self = nullptr;
    napi_value name = nullptr;
    void* controller = nullptr;
    napi_get_cb_info(env, info, &count, arguments, &self, nullptr);
    if (napi_unwrap(env, self, &controller) != napi_ok)
        return nullptr;
    if (count != 4)
        return refuse(env, "Wrong number of arguments");
    for (size_t i = 0; i < 4; ++i) {
        if (!isOfType(env, arguments[i], types[i]))
            return refuse(env, "Expected another type");
    }
    auto* launch = static_cast<Launch*>(std::malloc(sizeof(Launch)));
    launch->controller = static_cast<IBrivonController*>(controller);
    if (!readText(env, arguments[0], "", 0, &launch->specifier) ||
        !readText(env, arguments[2], "", 0, &launch->commandLine))
        return refuse(env, "A string was expected");
    napi_get_value_bool(env, arguments[1], &launch->setFocus);
    napi_create_reference(env, arguments[3], 1, &launch->callback);
    napi_create_string_utf8(env, "floor", NAPI_AUTO_LENGTH, &name);
    napi_create_async_work(env, nullptr, name, executeLaunch, completeLaunch, launch, &launch->work);
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
        method("sendMessage", sendMessage),
        method("addMessageListener", addMessageListener),
        method("getEndpointCacheSnapshot", getEndpointCacheSnapshot),
    };
    const napi_property_descriptor control[] = {
        method("isAppInstalled", isAppInstalled),
        method("getAppPath", getAppPath),
        method("getSpecifiers", getSpecifiers),
        method("launchApp", launchApp),
    };
    napi_value type = nullptr;
    napi_define_class(env, "Adapter", NAPI_AUTO_LENGTH, newAdapter, nullptr, 3, messaging, &type);
    napi_set_named_property(env, exports, "Adapter", type);
    napi_define_class(env, "ControlAdapter", NAPI_AUTO_LENGTH, newControlAdapter, nullptr, 4, control, &type);
    napi_set_named_property(env, exports, "ControlAdapter", type);
    return exports;
}
