// The messaging library's objects behind the plain functions.
#include "BrivonMessage5.h"
#include "crossing.h"

using namespace kesta::brivon::api5;

namespace {

EndPoint& endPoint(void* object) {
    return *static_cast<EndPoint*>(object);
}
const EndPoint& endPoint(const void* object) {
    return *static_cast<const EndPoint*>(object);
}
const BrivonMessage& message(const void* object) {
    return *static_cast<const BrivonMessage*>(object);
}
SuiteMessage& suiteMessage(void* object) {
    return static_cast<SuiteMessage&>(*static_cast<BrivonMessage*>(object));
}
const SuiteMessage& suiteMessage(const void* object) {
    return static_cast<const SuiteMessage&>(message(object));
}
const ErrorMessage& errorMessage(const void* object) {
    return static_cast<const ErrorMessage&>(message(object));
}
IBrivonMessageDispatcher& dispatcher(void* object) {
    return *static_cast<IBrivonMessageDispatcher*>(object);
}

class Listener final : public IBrivonMessageListener {
public:
    explicit Listener(BrivonCallee* callee)
        : callee_(callee) {}

    // Threads of the library.
    void Receive(const BrivonMessage& message) override { check(callee_->call(callee_, &message)); }

private:
    // The library's constructor of the base may fill members that the contract leaves out.
    [[maybe_unused]] void* others_[16];
    BrivonCallee* callee_;
};
static_assert(sizeof(Listener) <= kListenerRoom);

IBrivonMessageListener* listener(void* object) {
    return static_cast<Listener*>(object);
}

// Threads of the library.
void onEndPoints(void* context) {
    auto* callee = static_cast<BrivonCallee*>(context);
    check(callee->call(callee, nullptr));
}

size_t textSize(BrivonText text, const void* object) {
    switch (text) {
    case kEndPointId:
        return endPoint(object).GetIdSize();
    case kEndPointAppId:
        return endPoint(object).GetAppIdSize();
    case kEndPointAppVersion:
        return endPoint(object).GetAppVersionSize();
    case kMessageType:
        return message(object).GetTypeSize();
    case kMessageAppId:
        return message(object).GetAppIdSize();
    case kMessageAppVersion:
        return message(object).GetAppVersionSize();
    case kSuiteMessagePayload:
        return suiteMessage(object).GetPayloadSize();
    case kErrorMessageError:
        return errorMessage(object).GetErrorSize();
    case kErrorMessageFault:
        return errorMessage(object).GetFaultSize();
    }
    return 0;
}

void getText(BrivonText text, const void* object, char* buffer) {
    switch (text) {
    case kEndPointId:
        return endPoint(object).GetId(buffer);
    case kEndPointAppId:
        return endPoint(object).GetAppId(buffer);
    case kEndPointAppVersion:
        return endPoint(object).GetAppVersion(buffer);
    case kMessageType:
        return message(object).GetType(buffer);
    case kMessageAppId:
        return message(object).GetAppId(buffer);
    case kMessageAppVersion:
        return message(object).GetAppVersion(buffer);
    case kSuiteMessagePayload:
        return suiteMessage(object).GetPayload(buffer);
    case kErrorMessageError:
        return errorMessage(object).GetError(buffer);
    case kErrorMessageFault:
        return errorMessage(object).GetFault(buffer);
    }
}

void setText(BrivonText text, void* object, const char* value) {
    switch (text) {
    case kEndPointId:
        return endPoint(object).SetId(value);
    case kEndPointAppId:
        return endPoint(object).SetAppId(value);
    case kEndPointAppVersion:
        return endPoint(object).SetAppVersion(value);
    case kSuiteMessagePayload:
        return suiteMessage(object).SetPayload(value);
    default:
        return; // no other has a setter
    }
}

} // namespace

extern "C" {

BrivonThrown* brivon_textSize(BrivonText text, const void* object, size_t* size) {
    return guarded([&] { *size = textSize(text, object); });
}
BrivonThrown* brivon_text(BrivonText text, const void* object, char* buffer) {
    return guarded([&] { getText(text, object, buffer); });
}
BrivonThrown* brivon_setText(BrivonText text, void* object, const char* value) {
    return guarded([&] { setText(text, object, value); });
}

// An object that a function of the library answers is made in its room, never on the stack, where this compiler would
// leave as much space as the contract declares.
BrivonThrown* brivon_EndPoint_construct(void* room) {
    return guarded([&] { ::new (room) EndPoint(); });
}
BrivonThrown* brivon_EndPoint_copy(void* room, const void* other) {
    return guarded([&] { ::new (room) EndPoint(endPoint(other)); });
}
BrivonThrown* brivon_EndPoint_assign(void* object, const void* other) {
    return guarded([&] { endPoint(object) = endPoint(other); });
}
BrivonThrown* brivon_EndPoint_destroy(void* object) {
    return guarded([&] { endPoint(object).~EndPoint(); });
}
BrivonThrown* brivon_EndPoints_make(void* array, size_t distance, const void* const* others, size_t count,
                                    size_t* made) {
    return guarded([&] {
        for (size_t i = 0; i < count; ++i, ++*made) {
            void* room = static_cast<char*>(array) + i * distance;
            if (others == nullptr)
                ::new (room) EndPoint();
            else
                ::new (room) EndPoint(endPoint(others[i]));
        }
    });
}
BrivonThrown* brivon_EndPoints_destroy(void* array, size_t distance, size_t count) {
    return guarded([&] {
        for (; count > 0; --count)
            endPoint(static_cast<void*>(static_cast<char*>(array) + (count - 1) * distance)).~EndPoint();
    });
}

const char* brivon_SuiteMessage_TYPE_PREFIX() {
    return SuiteMessage::TYPE_PREFIX;
}
const char* brivon_ErrorMessage_TYPE() {
    return ErrorMessage::TYPE;
}
BrivonThrown* brivon_SuiteMessage_construct(void* room, const char* type) {
    return guarded([&] { ::new (room) SuiteMessage(type); });
}
BrivonThrown* brivon_SuiteMessage_destroy(void* object) {
    return guarded([&] { suiteMessage(object).SuiteMessage::~SuiteMessage(); });
}
BrivonThrown* brivon_SuiteMessage_SetSource(void* object, const void* source) {
    return guarded([&] { suiteMessage(object).SetSource(endPoint(source)); });
}
BrivonThrown* brivon_SuiteMessage_GetSource(const void* object, void* room) {
    return guarded([&] { ::new (room) EndPoint(suiteMessage(object).GetSource()); });
}
BrivonThrown* brivon_SuiteMessage_SetDestinations(void* object, const void* array, size_t count) {
    return guarded([&] { suiteMessage(object).SetDestinations(static_cast<const EndPoint*>(array), count); });
}
BrivonThrown* brivon_SuiteMessage_GetDestinations(const void* object, void* array) {
    return guarded([&] { suiteMessage(object).GetDestinations(static_cast<EndPoint*>(array)); });
}
BrivonThrown* brivon_SuiteMessage_GetDestinationCount(const void* object, size_t* count) {
    return guarded([&] { *count = suiteMessage(object).GetDestinationCount(); });
}

BrivonThrown* brivon_Listener_construct(void* room, BrivonCallee* callee) {
    return guarded([&] { ::new (room) Listener(callee); });
}

BrivonThrown* brivon_Dispatcher_SetConfig(const char* first, const char* second, int32_t* status) {
    return guarded([&] { *status = IBrivonMessageDispatcher::SetConfig(first, second); });
}
BrivonThrown* brivon_Dispatcher_GetInstance(void** result, int32_t* status) {
    return guarded([&] {
        IBrivonMessageDispatcher* instance = nullptr;
        *status = IBrivonMessageDispatcher::GetInstance(&instance);
        *result = instance;
    });
}
BrivonThrown* brivon_Dispatcher_ReleaseInstance() {
    return guarded([] { IBrivonMessageDispatcher::ReleaseInstance(); });
}
BrivonThrown* brivon_Dispatcher_Send(void* object, const void* sent, int32_t* status) {
    return guarded([&] { *status = dispatcher(object).Send(suiteMessage(sent)); });
}
BrivonThrown* brivon_Dispatcher_AddMessageListener(void* object, void* added) {
    return guarded([&] { dispatcher(object).AddMessageListener(listener(added)); });
}
BrivonThrown* brivon_Dispatcher_RemoveMessageListener(void* object, void* removed) {
    return guarded([&] { dispatcher(object).RemoveMessageListener(listener(removed)); });
}
BrivonThrown* brivon_Dispatcher_AddErrorListener(void* object, void* added) {
    return guarded([&] { dispatcher(object).AddErrorListener(listener(added)); });
}
BrivonThrown* brivon_Dispatcher_RemoveErrorListener(void* object, void* removed) {
    return guarded([&] { dispatcher(object).RemoveErrorListener(listener(removed)); });
}
BrivonThrown* brivon_Dispatcher_RegisterEndPointsCallback(void* object, BrivonCallee* callee) {
    return guarded([&] { dispatcher(object).RegisterEndPointsCallback(onEndPoints, callee); });
}
BrivonThrown* brivon_Dispatcher_UnregisterEndPointsCallback(void* object, BrivonCallee* callee) {
    return guarded([&] { dispatcher(object).UnregisterEndPointsCallback(onEndPoints, callee); });
}
BrivonThrown* brivon_Dispatcher_RefreshEndPoints(void* object) {
    return guarded([&] { dispatcher(object).RefreshEndPoints(); });
}
BrivonThrown* brivon_Dispatcher_IsRefreshing(void* object, bool* answer) {
    return guarded([&] { *answer = dispatcher(object).IsRefreshing(); });
}
BrivonThrown* brivon_Dispatcher_GetSelfEndPoint(void* object, void* room) {
    return guarded([&] { ::new (room) EndPoint(dispatcher(object).GetSelfEndPoint()); });
}
BrivonThrown* brivon_Dispatcher_IsReady(void* object, bool* answer) {
    return guarded([&] { *answer = dispatcher(object).IsReady(); });
}
BrivonThrown* brivon_Dispatcher_GetEndPoints(void* object, void** array, size_t* count) {
    return guarded([&] {
        EndPoint* endPoints = nullptr;
        *count = 0;
        dispatcher(object).GetEndPoints(&endPoints, count);
        *array = endPoints;
    });
}
BrivonThrown* brivon_Dispatcher_ReleaseEndPoints(void* object, void* array) {
    return guarded([&] { dispatcher(object).ReleaseEndPoints(static_cast<EndPoint*>(array)); });
}

} // extern "C"
