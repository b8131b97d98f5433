// The classes of the messaging contract, each on an object of the library's.
#include "BrivonMessage5.h"
#include "registry.h"
#include "rooms.h"

namespace kesta::brivon::api5 {

namespace {

SharedEndPoint* sharedIn(void* fields) {
    return static_cast<SharedEndPoint*>(fields);
}

// Stands behind every endpoint that is as it was constructed. Never changed.
const void* emptyEndPoint() {
    static SharedEndPoint* only = nullptr;
    SharedEndPoint* known = __atomic_load_n(&only, __ATOMIC_ACQUIRE);
    if (known != nullptr)
        return known->object;
    SharedEndPoint* made = makeEndPoint(brivon_EndPoint_construct);
    if (__atomic_compare_exchange_n(&only, &known, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
        return made->object;
    releaseEndPoint(made);
    return known->object;
}

// The library's object behind an endpoint; a derived class may name the protected pointer of any object of its base.
struct OpenEndPoint : EndPoint {
    static void*& in(EndPoint& endPoint) { return endPoint.*(&OpenEndPoint::fields_); }
    static const void* of(const EndPoint& endPoint) {
        const SharedEndPoint* shared = sharedIn(endPoint.*(&OpenEndPoint::fields_));
        return shared != nullptr ? shared->object : emptyEndPoint();
    }
    static bool isSame(const EndPoint& one, const EndPoint& other) {
        return one.*(&OpenEndPoint::fields_) == other.*(&OpenEndPoint::fields_);
    }
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
    OpenEndPoint::in(endPoint) = makeEndPoint(make);
    return endPoint;
}

} // namespace

// ---- Endpoints

EndPoint::EndPoint()
    : fields_(nullptr) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(other.fields_ == nullptr ? nullptr : useEndPoint(sharedIn(other.fields_))) {}
// One that nobody shares is assigned by the library, in its place, and one that was blank shares nobody's: programs
// read their own endpoint meanwhile.
EndPoint& EndPoint::operator=(const EndPoint& other) {
    SharedEndPoint* own = sharedIn(fields_);
    if (own == other.fields_)
        return *this;
    if (own != nullptr && isSoleUser(own)) {
        check(brivon_EndPoint_assign(own->object, OpenEndPoint::of(other)));
        return *this;
    }
    if (own == nullptr) {
        fields_ = copyEndPoint(OpenEndPoint::of(other));
        return *this;
    }
    fields_ = other.fields_ == nullptr ? nullptr : useEndPoint(sharedIn(other.fields_));
    releaseEndPoint(own);
    return *this;
}
EndPoint::~EndPoint() {
    if (fields_ != nullptr)
        releaseEndPoint(sharedIn(fields_));
}

namespace {

// Changes what no other endpoint sees.
void setText(BrivonText text, void*& fields, const char* value) {
    SharedEndPoint* own = sharedIn(fields);
    if (own == nullptr) {
        fields = makeEndPoint(brivon_EndPoint_construct);
    } else if (!isSoleUser(own)) {
        fields = copyEndPoint(own->object);
        releaseEndPoint(own);
    }
    check(brivon_setText(text, sharedIn(fields)->object, value));
}

} // namespace

void EndPoint::SetId(const char* id) {
    setText(kEndPointId, fields_, id);
}
size_t EndPoint::GetIdSize() const {
    return sizeOf(kEndPointId, OpenEndPoint::of(*this));
}
void EndPoint::GetId(char* id) const {
    check(brivon_text(kEndPointId, OpenEndPoint::of(*this), id));
}

void EndPoint::SetAppId(const char* appId) {
    setText(kEndPointAppId, fields_, appId);
}
size_t EndPoint::GetAppIdSize() const {
    return sizeOf(kEndPointAppId, OpenEndPoint::of(*this));
}
void EndPoint::GetAppId(char* appId) const {
    check(brivon_text(kEndPointAppId, OpenEndPoint::of(*this), appId));
}

void EndPoint::SetAppVersion(const char* appVersion) {
    setText(kEndPointAppVersion, fields_, appVersion);
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

namespace {

// Those of a message to several: as they are on this side, shared, and as the library takes them, beside each other.
class Destinations {
public:
    explicit Destinations(size_t count)
        : shared_(count * sizeof(EndPoint))
        , array_(count) {}
    ~Destinations() {
        while (count_ > 0)
            shared()[--count_].~EndPoint();
    }
    Destinations(const Destinations&) = delete;
    Destinations& operator=(const Destinations&) = delete;
    static void* operator new(size_t size) { return Room(size).release(); }
    static void operator delete(void* memory) { free(memory); }

    void fill(const EndPoint* endPoints, size_t count) {
        const Room others(count * sizeof(void*));
        auto* objects = static_cast<const void**>(others.get());
        for (; count_ < count; ++count_) {
            ::new (shared() + count_) EndPoint(endPoints[count_]);
            objects[count_] = OpenEndPoint::of(shared()[count_]);
        }
        array_.make(objects);
    }
    // What is shared never changes, so that the library's copies are still the same.
    bool areThose(const EndPoint* endPoints, size_t count) const {
        bool areSame = count == count_ && array_.hasCertainDistance();
        for (size_t i = 0; areSame && i < count; ++i)
            areSame = OpenEndPoint::isSame(endPoints[i], shared()[i]);
        return areSame;
    }
    const void* array() const { return array_.at(0); }

private:
    EndPoint* shared() const { return static_cast<EndPoint*>(shared_.get()); }

    Room shared_;
    EndPointArray array_;
    size_t count_ = 0;
};

// Of the latest message. The next one mostly goes to the same, and nothing is copied for it.
Destinations* latestDestinations = nullptr;

} // namespace

void SuiteMessage::SetDestinations(const EndPoint* destinations, size_t count) {
    if (count == 1)
        return check(brivon_SuiteMessage_SetDestinations(fields_, OpenEndPoint::of(*destinations), 1));
    struct Owner {
        Destinations* owned;
        ~Owner() { delete owned; }
    } latest{__atomic_exchange_n(&latestDestinations, nullptr, __ATOMIC_ACQUIRE)};
    if (latest.owned == nullptr || !latest.owned->areThose(destinations, count)) {
        delete latest.owned;
        latest.owned = nullptr;
        latest.owned = new Destinations(count);
        latest.owned->fill(destinations, count);
    }
    check(brivon_SuiteMessage_SetDestinations(fields_, latest.owned->array(), count));
    // Another thread may have left its own meanwhile.
    latest.owned = __atomic_exchange_n(&latestDestinations, latest.owned, __ATOMIC_ACQ_REL);
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
    for (size_t i = 0; i < count; ++i) {
        EndPoint destination;
        OpenEndPoint::in(destination) = copyEndPoint(array.at(i));
        destinations[i] = destination;
    }
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

// The library's endpoints as this side has them: the elements look into the library's array and own nothing. Behind
// this there are as many elements, and then what they look with.
struct EndPointList {
    void* array;
    void* unused; // keeps the elements where they may be
    EndPoint* elements() { return reinterpret_cast<EndPoint*>(this + 1); }
    static EndPointList* of(EndPoint* elements) { return reinterpret_cast<EndPointList*>(elements) - 1; }
    static EndPointList* make(void* array, size_t count) {
        const size_t distance = endPointDistance();
        Room room(sizeof(EndPointList) + count * (sizeof(EndPoint) + sizeof(SharedEndPoint)));
        auto* list = ::new (room.release()) EndPointList{array, nullptr};
        auto* shared = reinterpret_cast<SharedEndPoint*>(list->elements() + count);
        for (size_t i = 0; i < count; ++i) {
            shared[i] = {0, static_cast<char*>(array) + i * distance};
            OpenEndPoint::in(*::new (list->elements() + i) EndPoint) = &shared[i];
        }
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
