// The classes of the messaging contract, each on an object of the library's.
#include "BrivonMessage5.h"
#include "registry.h"
#include "rooms.h"

namespace kesta::brivon::api5 {

namespace {

SharedEndPoint* sharedIn(void* fields) {
    return static_cast<SharedEndPoint*>(fields);
}

// The library's object behind an endpoint; a derived class may name the protected pointer of any object of its base.
struct OpenEndPoint : EndPoint {
    static void*& in(EndPoint& endPoint) { return endPoint.*(&OpenEndPoint::fields_); }
    static const void* of(const EndPoint& endPoint) { return sharedIn(endPoint.*(&OpenEndPoint::fields_))->object(); }
};

struct OpenMessage : SuiteMessage {
    static const void* of(const SuiteMessage& message) { return message.*(&OpenMessage::fields_); }
};

size_t sizeOf(BrivonText text, const void* object) {
    size_t size = 0;
    check(brivon_textSize(text, object, &size));
    return size;
}

// An endpoint that a function of the library's answers.
template <typename Make>
EndPoint answered(Make make) {
    EndPoint endPoint;
    SharedEndPoint* made = makeEndPoint(make);
    releaseEndPoint(sharedIn(OpenEndPoint::in(endPoint)));
    OpenEndPoint::in(endPoint) = made;
    return endPoint;
}

// What every endpoint begins with.
SharedEndPoint* blankEndPoint() {
    static SharedEndPoint* const blank = makeEndPoint(brivon_EndPoint_construct);
    return blank;
}

// The object of an endpoint that is to change, which no other endpoint shares from now on. It then changes in place:
// programs read their own endpoint meanwhile.
void* ownObject(void*& fields) {
    SharedEndPoint* shared = sharedIn(fields);
    if (!isSoleUser(shared)) {
        fields = copyEndPoint(shared->object());
        releaseEndPoint(shared);
    }
    return sharedIn(fields)->object();
}

} // namespace

// ---- Endpoints

EndPoint::EndPoint()
    : fields_(useEndPoint(blankEndPoint())) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(useEndPoint(sharedIn(other.fields_))) {}
EndPoint& EndPoint::operator=(const EndPoint& other) {
    if (fields_ != other.fields_)
        check(brivon_EndPoint_assign(ownObject(fields_), OpenEndPoint::of(other)));
    return *this;
}
EndPoint::~EndPoint() {
    releaseEndPoint(sharedIn(fields_));
}

void EndPoint::SetId(const char* id) {
    check(brivon_setText(kEndPointId, ownObject(fields_), id));
}
size_t EndPoint::GetIdSize() const {
    return sizeOf(kEndPointId, OpenEndPoint::of(*this));
}
void EndPoint::GetId(char* id) const {
    check(brivon_text(kEndPointId, OpenEndPoint::of(*this), id));
}

void EndPoint::SetAppId(const char* appId) {
    check(brivon_setText(kEndPointAppId, ownObject(fields_), appId));
}
size_t EndPoint::GetAppIdSize() const {
    return sizeOf(kEndPointAppId, OpenEndPoint::of(*this));
}
void EndPoint::GetAppId(char* appId) const {
    check(brivon_text(kEndPointAppId, OpenEndPoint::of(*this), appId));
}

void EndPoint::SetAppVersion(const char* appVersion) {
    check(brivon_setText(kEndPointAppVersion, ownObject(fields_), appVersion));
}
size_t EndPoint::GetAppVersionSize() const {
    return sizeOf(kEndPointAppVersion, OpenEndPoint::of(*this));
}
void EndPoint::GetAppVersion(char* appVersion) const {
    check(brivon_text(kEndPointAppVersion, OpenEndPoint::of(*this), appVersion));
}

// ---- Messages

BrivonMessage::BrivonMessage(const char*)
    : fields_(nullptr) {}
BrivonMessage::~BrivonMessage() = default;

size_t BrivonMessage::GetTypeSize() const {
    return sizeOf(kMessageType, fields_);
}
void BrivonMessage::GetType(char* type) const {
    check(brivon_text(kMessageType, fields_, type));
}
size_t BrivonMessage::GetAppIdSize() const {
    return sizeOf(kMessageAppId, fields_);
}
void BrivonMessage::GetAppId(char* appId) const {
    check(brivon_text(kMessageAppId, fields_, appId));
}
size_t BrivonMessage::GetAppVersionSize() const {
    return sizeOf(kMessageAppVersion, fields_);
}
void BrivonMessage::GetAppVersion(char* appVersion) const {
    check(brivon_text(kMessageAppVersion, fields_, appVersion));
}

const char* const SuiteMessage::TYPE_PREFIX = brivon_SuiteMessage_TYPE_PREFIX();

SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {
    Room room(kMessageRoom);
    check(brivon_SuiteMessage_construct(room.get(), type));
    fields_ = room.release();
}
SuiteMessage::~SuiteMessage() {
    forget(brivon_SuiteMessage_destroy(fields_));
    free(fields_);
}

void SuiteMessage::SetSource(const EndPoint& source) {
    check(brivon_SuiteMessage_SetSource(fields_, OpenEndPoint::of(source)));
}
EndPoint SuiteMessage::GetSource() const {
    return answered([this](void* room) { return brivon_SuiteMessage_GetSource(fields_, room); });
}

void SuiteMessage::SetDestinations(const EndPoint* destinations, size_t count) {
    if (count == 1)
        return check(brivon_SuiteMessage_SetDestinations(fields_, OpenEndPoint::of(*destinations), 1));
    const Room room(count * sizeof(void*));
    auto* objects = static_cast<const void**>(room.get());
    for (size_t i = 0; i < count; ++i)
        objects[i] = OpenEndPoint::of(destinations[i]);
    EndPointArray array(count);
    array.make(objects);
    check(brivon_SuiteMessage_SetDestinations(fields_, array.at(0), count));
}
size_t SuiteMessage::GetDestinationCount() const {
    size_t count = 0;
    check(brivon_SuiteMessage_GetDestinationCount(fields_, &count));
    return count;
}
void SuiteMessage::GetDestinations(EndPoint* destinations) const {
    const size_t count = GetDestinationCount();
    EndPointArray array(count);
    array.make(nullptr);
    check(brivon_SuiteMessage_GetDestinations(fields_, array.at(0)));
    for (size_t i = 0; i < count; ++i)
        check(brivon_EndPoint_assign(ownObject(OpenEndPoint::in(destinations[i])), array.at(i)));
}

void SuiteMessage::SetPayload(const char* payload) {
    check(brivon_setText(kSuiteMessagePayload, fields_, payload));
}
size_t SuiteMessage::GetPayloadSize() const {
    return sizeOf(kSuiteMessagePayload, fields_);
}
void SuiteMessage::GetPayload(char* payload) const {
    check(brivon_text(kSuiteMessagePayload, fields_, payload));
}

const char* const ErrorMessage::TYPE = brivon_ErrorMessage_TYPE();

ErrorMessage::ErrorMessage()
    : BrivonMessage(nullptr) {}
ErrorMessage::~ErrorMessage() = default;

size_t ErrorMessage::GetErrorSize() const {
    return sizeOf(kErrorMessageError, fields_);
}
void ErrorMessage::GetError(char* error) const {
    check(brivon_text(kErrorMessageError, fields_, error));
}
size_t ErrorMessage::GetFaultSize() const {
    return sizeOf(kErrorMessageFault, fields_);
}
void ErrorMessage::GetFault(char* fault) const {
    check(brivon_text(kErrorMessageFault, fields_, fault));
}

// ---- What the library calls

IBrivonMessageListener::IBrivonMessageListener() = default;

namespace {

// A message of the library's for the time of a delivery, used as what its type says it is.
struct BorrowedMessage final : BrivonMessage {
    explicit BorrowedMessage(const void* message)
        : BrivonMessage(nullptr) {
        fields_ = const_cast<void*>(message); // only setters change it, and a received message is const
    }
    ~BorrowedMessage() override = default;
};

struct ListenerEntry : BrivonCallee {
    explicit ListenerEntry(IBrivonMessageListener* itsListener)
        : BrivonCallee{receive}
        , listener(itsListener) {
        check(brivon_Listener_construct(room, this));
    }
    bool isOf(IBrivonMessageListener* other) const { return listener == other; }

    // Threads of the library.
    static BrivonThrown* receive(BrivonCallee* callee, const void* message) {
        return guarded([=] { static_cast<ListenerEntry*>(callee)->listener->Receive(BorrowedMessage(message)); });
    }

    IBrivonMessageListener* listener;
    ListenerEntry* next = nullptr;
    alignas(16) char room[kListenerRoom];
};

struct CallbackEntry : BrivonCallee {
    CallbackEntry(IBrivonMessageDispatcher::EndPointsCallback itsCallback, void* itsContext)
        : BrivonCallee{run}
        , callback(itsCallback)
        , context(itsContext) {}
    bool isOf(IBrivonMessageDispatcher::EndPointsCallback other, void* otherContext) const {
        return callback == other && context == otherContext;
    }

    // Threads of the library.
    static BrivonThrown* run(BrivonCallee* callee, const void*) {
        const auto* entry = static_cast<CallbackEntry*>(callee);
        return guarded([=] { entry->callback(entry->context); });
    }

    IBrivonMessageDispatcher::EndPointsCallback callback;
    void* context;
    CallbackEntry* next = nullptr;
};

Registry<ListenerEntry> listeners;
Registry<CallbackEntry> callbacks;

// ---- Dispatcher

// A list of the library's and, behind this, copies of its endpoints, which later copies share.
struct EndPointList {
    void* array;
    size_t count;
    EndPoint* elements() { return reinterpret_cast<EndPoint*>(this + 1); }
    ~EndPointList() {
        while (count > 0)
            elements()[--count].~EndPoint();
    }

    static EndPointList* of(EndPoint* elements) { return reinterpret_cast<EndPointList*>(elements) - 1; }
    static EndPointList* make(void* array, size_t count) {
        Room memory(sizeof(EndPointList) + count * sizeof(EndPoint));
        auto* list = ::new (memory.get()) EndPointList{array, 0};
        try {
            for (; list->count < count; ++list->count) {
                const void* object = static_cast<char*>(array) + list->count * endPointDistance();
                ::new (list->elements() + list->count)
                    EndPoint(answered([=](void* room) { return brivon_EndPoint_copy(room, object); }));
            }
        } catch (...) {
            list->~EndPointList();
            throw;
        }
        memory.release();
        return list;
    }
};

class Dispatcher final : public IBrivonMessageDispatcher {
public:
    explicit Dispatcher(void* library)
        : library_(library) {}
    bool isOf(void* library) const { return library_ == library; }

    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) override {
        int32_t status = 0;
        check(brivon_Dispatcher_Send(library_, OpenMessage::of(message), &status));
        return static_cast<BrivonMessageErrorCode>(status);
    }
    void AddMessageListener(IBrivonMessageListener* listener) override {
        check(brivon_Dispatcher_AddMessageListener(library_, listeners.of(listener).room));
    }
    void RemoveMessageListener(IBrivonMessageListener* listener) override {
        check(brivon_Dispatcher_RemoveMessageListener(library_, listeners.of(listener).room));
    }
    void AddErrorListener(IBrivonMessageListener* listener) override {
        check(brivon_Dispatcher_AddErrorListener(library_, listeners.of(listener).room));
    }
    void RemoveErrorListener(IBrivonMessageListener* listener) override {
        check(brivon_Dispatcher_RemoveErrorListener(library_, listeners.of(listener).room));
    }
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        check(brivon_Dispatcher_RegisterEndPointsCallback(library_, &callbacks.of(callback, context)));
    }
    void UnregisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        check(brivon_Dispatcher_UnregisterEndPointsCallback(library_, &callbacks.of(callback, context)));
    }
    void RefreshEndPoints() override { check(brivon_Dispatcher_RefreshEndPoints(library_)); }
    bool IsRefreshing() override {
        bool answer = false;
        check(brivon_Dispatcher_IsRefreshing(library_, &answer));
        return answer;
    }
    EndPoint GetSelfEndPoint() override {
        return answered([this](void* room) { return brivon_Dispatcher_GetSelfEndPoint(library_, room); });
    }
    bool IsReady() override {
        bool answer = false;
        check(brivon_Dispatcher_IsReady(library_, &answer));
        return answer;
    }
    void GetEndPoints(EndPoint** endPoints, size_t* count) override {
        void* array = nullptr;
        size_t found = 0;
        check(brivon_Dispatcher_GetEndPoints(library_, &array, &found));
        if (array == nullptr)
            found = 0;
        *count = found;
        if (found == 0)
            return; // then nothing is released
        try {
            learnEndPointDistance(array, found);
            *endPoints = EndPointList::make(array, found)->elements();
        } catch (...) {
            forget(brivon_Dispatcher_ReleaseEndPoints(library_, array));
            throw;
        }
    }
    void ReleaseEndPoints(EndPoint* endPoints) override {
        if (endPoints == nullptr)
            return;
        EndPointList* list = EndPointList::of(endPoints);
        void* array = list->array;
        list->~EndPointList();
        free(list);
        check(brivon_Dispatcher_ReleaseEndPoints(library_, array));
    }

    Dispatcher* next = nullptr;

private:
    void* library_;
};

Registry<Dispatcher> dispatchers;

} // namespace

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char* first, const char* second) {
    int32_t status = 0;
    check(brivon_Dispatcher_SetConfig(first, second, &status));
    return static_cast<BrivonMessageErrorCode>(status);
}
BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    int32_t status = 0;
    void* library = nullptr;
    check(brivon_Dispatcher_GetInstance(&library, &status));
    if (library != nullptr)
        *dispatcher = &dispatchers.of(library);
    return static_cast<BrivonMessageErrorCode>(status);
}
void IBrivonMessageDispatcher::ReleaseInstance() {
    check(brivon_Dispatcher_ReleaseInstance());
}

} // namespace kesta::brivon::api5
