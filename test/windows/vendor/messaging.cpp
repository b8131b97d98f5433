// The second vendor's messaging library, made from the contract alone. An endpoint may be larger than the contract
// shows, keeps its texts in memory that setters allocate, and has a last member that only a setter writes; every use of
// one that is no endpoint ends the process. Its orders:
//   "answer ENDPOINTS NOTYET NOTREADY REFRESHING"  how many are listed, and how often it is each of the others
//   "deliver COUNT TYPE PAYLOAD"                   has a thread hand messages to the listeners
#include "BrivonMessage5.h"
#include "vendor.h"

namespace kesta::brivon::api5 {
namespace {

constexpr size_t kCanary = 0x123456789ABCDEF0;

struct Fields {
    explicit Fields(const char* itsType)
        : type(copyText(itsType)) {}
    ~Fields() {
        freeText(type);
        freeText(payload);
        delete[] destinations;
    }
    EndPoint source;
    char *type, *payload = nullptr;
    EndPoint* destinations = nullptr;
    size_t count = 0;
};

Fields& in(void* fields) {
    return *static_cast<Fields*>(fields);
}

char* replace(char* old, const char* text) {
    freeText(old);
    return text == nullptr ? nullptr : copyText(text);
}
size_t sizeOf(const char* text) {
    return text == nullptr ? 1 : strlen(text) + 1;
}
void write(const char* text, char* to) {
    memcpy(to, text == nullptr ? "" : text, sizeOf(text));
}

void copy(const EndPoint* from, size_t count, EndPoint* to) {
    for (size_t i = 0; i < count; ++i)
        to[i] = from[i];
}

struct Texts {
    char* text[3] = {};
    size_t canary = kCanary;
};

Texts& textsOf(void* fields) {
    Texts& texts = *static_cast<Texts*>(fields);
    if (texts.canary != kCanary)
        __builtin_trap();
    return texts;
}

size_t endpoints = 0;
long notYet = 0, notReady = 0, refreshing = 0;

} // namespace

#define ENDPOINT_TEXT(Name, index)                                                                                     \
    OPERATION(void, EndPoint::Set##Name, (const char* text), char*& own = textsOf(fields_).text[index];                \
              own = replace(own, text); late_[sizeof late_ / sizeof *late_ - 1] = static_cast<size_t>(own[0]);)        \
    OPERATION(size_t, EndPoint::Get##Name##Size, () const, return sizeOf(textsOf(fields_).text[index]);)               \
    OPERATION(void, EndPoint::Get##Name, (char* to) const, write(textsOf(fields_).text[index], to);)
ENDPOINT_TEXT(Id, 0)
ENDPOINT_TEXT(AppId, 1)
ENDPOINT_TEXT(AppVersion, 2)

EndPoint::EndPoint() {
    const Call call("EndPoint");
    fields_ = new Texts;
}
EndPoint::EndPoint(const EndPoint& other) {
    const Call call("EndPoint-copy");
    const Texts& from = textsOf(other.fields_);
    fields_ = new Texts;
    for (int i = 0; i < 3; ++i)
        textsOf(fields_).text[i] = replace(nullptr, from.text[i]);
}
EndPoint& EndPoint::operator=(const EndPoint& other) {
    const Call call("EndPoint-assign");
    Texts& own = textsOf(fields_);
    for (int i = 0; i < 3 && this != &other; ++i)
        own.text[i] = replace(own.text[i], textsOf(other.fields_).text[i]);
    return *this;
}
EndPoint::~EndPoint() {
    Texts& own = textsOf(fields_);
    own.canary = 0;
    for (char* text : own.text)
        freeText(text);
    delete &own;
}

#define TEXT(Class, Name, value)                                                                                       \
    OPERATION(size_t, Class::Get##Name##Size, () const, return sizeOf(value);)                                         \
    OPERATION(void, Class::Get##Name, (char* to) const, write(value, to);)
TEXT(BrivonMessage, Type, in(fields_).type)
TEXT(BrivonMessage, AppId, "sender")
TEXT(BrivonMessage, AppVersion, "1.0")
TEXT(SuiteMessage, Payload, in(fields_).payload)
TEXT(ErrorMessage, Error, "an error")
TEXT(ErrorMessage, Fault, in(fields_).payload)

BrivonMessage::BrivonMessage(const char* type)
    : fields_(nullptr) {
    const Call call("SuiteMessage");
    fields_ = new Fields(type);
}
BrivonMessage::~BrivonMessage() {
    delete &in(fields_);
}
const char* const SuiteMessage::TYPE_PREFIX = "brivon.SuiteMessage.";
const char* const ErrorMessage::TYPE = "brivon.ErrorMessage";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() {}
OPERATION(void, SuiteMessage::SetSource, (const EndPoint& source), in(fields_).source = source;)
OPERATION(EndPoint, SuiteMessage::GetSource, () const, return in(fields_).source;)
OPERATION(size_t, SuiteMessage::GetDestinationCount, () const, return in(fields_).count;)
OPERATION(void, SuiteMessage::GetDestinations, (EndPoint * destinations) const,
          copy(in(fields_).destinations, in(fields_).count, destinations);)
OPERATION(void, SuiteMessage::SetPayload, (const char* payload),
          in(fields_).payload = replace(in(fields_).payload, payload);)
void SuiteMessage::SetDestinations(const EndPoint* destinations, size_t count) {
    const Call call("SetDestinations");
    delete[] in(fields_).destinations;
    in(fields_).count = count;
    copy(destinations, count, in(fields_).destinations = new EndPoint[count]);
}
IBrivonMessageListener::IBrivonMessageListener() {
    const Call call("Listener");
}

namespace {

struct Incoming final : SuiteMessage {
    Incoming(const char* type, const char* payload)
        : SuiteMessage(type) {
        SetPayload(payload);
        in(fields_).source.SetId("sender-1");
        in(fields_).source.SetAppId("sender");
    }
    ~Incoming() override {}
};

struct Opened : SuiteMessage {
    static Fields& of(const SuiteMessage& message) { return in(message.*(&Opened::fields_)); }
};

#define LISTENERS(Kind, kept)                                                                                          \
    OPERATION(void, Add##Kind##Listener, (IBrivonMessageListener * listener) override, kept = listener;)               \
    OPERATION(void, Remove##Kind##Listener, (IBrivonMessageListener * listener) override,                              \
              kept = kept == listener ? nullptr : kept;)
class Dispatcher final : public IBrivonMessageDispatcher {
public:
    void Reserved0() override { __builtin_trap(); }
    BrivonMessageErrorCode Send(const SuiteMessage& message) override {
        const Fields& sent = Opened::of(message);
        char detail[2048];
        size_t end = static_cast<size_t>(sprintf(detail, "%s:%s:", sent.type, sent.payload));
        for (size_t i = 0; i < sent.count && end < sizeof detail - 32; ++i) {
            sent.destinations[i].GetId(detail + end);
            end += strlen(detail + end);
            end += static_cast<size_t>(sprintf(detail + end, ","));
        }
        const Call call("Send", detail);
        return BrivonMessageErrorCode_Success;
    }
    LISTENERS(Message, messages_)
    LISTENERS(Error, errors_)
    OPERATION(void, RegisterEndPointsCallback, (EndPointsCallback callback, void* context) override,
              *find(nullptr, nullptr) = {callback, context};)
    void UnregisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        Registered* registered = find(callback, context);
        const Call call("UnregisterEndPointsCallback", registered != nullptr ? "" : "unknown");
        if (registered != nullptr)
            *registered = {};
    }
    // What the callback throws is noted, by its text.
    void RefreshEndPoints() override {
        const Call call("RefreshEndPoints");
        try {
            const Local local;
            for (const Registered& registered : callbacks_) {
                if (registered.callback != nullptr)
                    registered.callback(registered.context);
            }
        } catch (const std::exception& exception) {
            const Call caught("caught", exception.what());
        } catch (...) {
            const Call caught("caught");
        }
    }
    OPERATION(bool, IsRefreshing, () override, return refreshing-- > 0;)
    OPERATION(bool, IsReady, () override, return notReady-- <= 0;)
    OPERATION(EndPoint, GetSelfEndPoint, () override, EndPoint self; self.SetId("self"); return self;)
    void GetEndPoints(EndPoint** endPoints, size_t* count) override {
        const Call call("GetEndPoints");
        *count = endpoints;
        *endPoints = endpoints == 0 ? nullptr : new EndPoint[endpoints];
        for (size_t i = 0; i < *count; ++i) {
            char id[16];
            sprintf(id, "%d", static_cast<int>(i));
            (*endPoints)[i].SetId(id);
            (*endPoints)[i].SetAppId("app");
        }
        lists += *count > 0;
    }
    void ReleaseEndPoints(EndPoint* endPoints) override {
        --lists;
        delete[] endPoints;
        const Call call("ReleaseEndPoints");
    }

    void deliver(long count, const char* type, const char* payload) {
        for (; count > 0; --count) {
            const Incoming message(type, payload);
            IBrivonMessageListener* listener = strcmp(type, ErrorMessage::TYPE) == 0 ? errors_ : messages_;
            if (listener != nullptr)
                listener->Receive(message);
        }
    }

private:
    IBrivonMessageListener *messages_ = nullptr, *errors_ = nullptr;
    struct Registered {
        EndPointsCallback callback;
        void* context;
    } callbacks_[16] = {};
    Registered* find(EndPointsCallback callback, void* context) {
        for (Registered& registered : callbacks_) {
            if (registered.callback == callback && registered.context == context)
                return &registered;
        }
        return nullptr;
    }
} dispatcher;

unsigned long deliver(void* order) {
    long count = 0;
    char type[128] = "", payload[128] = "";
    sscanf(static_cast<const char*>(order), "deliver %ld %127s %127s", &count, type, payload);
    dispatcher.deliver(count, type, payload);
    return 0;
}

} // namespace

OPERATION(BrivonMessageErrorCode, IBrivonMessageDispatcher::SetConfig, (const char*, const char*),
          return BrivonMessageErrorCode_Success;)
OPERATION(BrivonMessageErrorCode, IBrivonMessageDispatcher::GetInstance, (IBrivonMessageDispatcher * *result),
          *result = notYet > 0 ? nullptr : &dispatcher;
          return notYet-- > 0 ? BrivonMessageErrorCode_NotYetAvailable : BrivonMessageErrorCode_Success;)
OPERATION(void, IBrivonMessageDispatcher::ReleaseInstance, (), )

} // namespace kesta::brivon::api5

void ownOrder(const char* order) {
    using namespace kesta::brivon::api5;
    if (sscanf(order, "answer %zu %ld %ld %ld", &endpoints, &notYet, &notReady, &refreshing) == 4)
        return;
    runThread(deliver, const_cast<char*>(order));
}
