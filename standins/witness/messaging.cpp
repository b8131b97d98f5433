// Another implementation of the messaging contract, which notes what the module does with its records and does what a
// library may do, though ours never does: it calls back in the middle of a call, holds a call up, and throws what is no
// standard exception. What it has noted since the last time is the id of its own endpoint, words with blanks between.
// It keeps all that it has made.
//
// A message's type tells it what to do, behind the prefix:
//   "hear:TYPE|APP|VERSION|ID|PAYLOAD"  has a thread of its own hand that message to the listener before Send returns;
//                                       '~' stands for a NUL
//   "hold:..."                          the same, but Send returns as soon as the module, with its lock held, has asked
//                                       for the source's application id; the answer waits until an endpoint is copied,
//                                       and then, a moment, for the next Send, which is not to come before
//   "refuse"                            is refused, with a negative status
//   "in-refresh", "in-removal"          the next such call hears a message of an unknown source on the way
//   "throw"                             the next field of a message that is read throws an int
#include "BrivonMessage5.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace kesta::brivon::api5 {
namespace {

constexpr std::size_t kPrefix = sizeof "brivon.SuiteMessage." - 1;

std::mutex mutex; // guards what follows
std::condition_variable changed;
std::string notes;
enum { Idle, Armed, Held, Copied, Released } hold = Idle;
bool throwsNext = false;

void note(const std::string& word) {
    const std::lock_guard lock(mutex);
    notes += " " + word;
}

// Where the library that does so is preloaded.
void limitMemory([[maybe_unused]] bool isOut) {
#if !defined(_WIN32)
    static auto* const set = reinterpret_cast<void (*)(bool)>(dlsym(RTLD_DEFAULT, "setOutOfMemory"));
    if (set != nullptr)
        set(isOut);
#endif
}

// Moves a call that is held up on, with the lock held.
void proceed(decltype(hold) from, decltype(hold) to, const char* words = "") {
    if (hold != from)
        return;
    hold = to;
    notes += words;
    changed.notify_all();
}

void throwWhenTold() {
    const std::lock_guard lock(mutex);
    if (std::exchange(throwsNext, false))
        throw 42;
}

// What stands behind every object, by the names of the accessors. Copies share it.
std::string& field(void* fields, const char* name) {
    return (*static_cast<std::map<std::string, std::string>*>(fields))[name];
}

void* newFields() {
    return new std::map<std::string, std::string>;
}

} // namespace

#define TEXT(Class, Name, beforeSize, beforeText)                                                                      \
    size_t Class::Get##Name##Size() const {                                                                            \
        beforeSize;                                                                                                    \
        return field(fields_, #Name).size() + 1;                                                                       \
    }                                                                                                                  \
    void Class::Get##Name(char* text) const {                                                                          \
        beforeText;                                                                                                    \
        std::memcpy(text, field(fields_, #Name).c_str(), field(fields_, #Name).size() + 1);                            \
    }
#define ENDPOINT_TEXT(Name, beforeSize)                                                                                \
    TEXT(EndPoint, Name, beforeSize, )                                                                                 \
    void EndPoint::Set##Name(const char* text) {                                                                       \
        field(fields_, #Name) = text;                                                                                  \
    }

// The module's lock is held here when it looks a source up.
static void holdUp() {
    std::unique_lock lock(mutex);
    if (hold != Armed)
        return;
    proceed(Armed, Held, " locked");
    changed.wait_for(lock, std::chrono::seconds(30), [] { return hold != Held; });
    changed.wait_for(lock, std::chrono::milliseconds(100), [] { return hold == Released; });
    notes += " unlocked";
    hold = Idle;
}

// A snapshot is taken meanwhile: an endpoint is copied, or at least its id is asked for.
static void goOn() {
    const std::lock_guard lock(mutex);
    proceed(Held, Copied, " copied");
}

ENDPOINT_TEXT(Id, goOn())
ENDPOINT_TEXT(AppId, holdUp())
ENDPOINT_TEXT(AppVersion, )
TEXT(BrivonMessage, Type, , )
TEXT(BrivonMessage, AppId, , (note("GetAppId"), throwWhenTold()))
TEXT(BrivonMessage, AppVersion, , note("GetAppVersion"))
TEXT(SuiteMessage, Payload, , note("GetPayload"))
TEXT(ErrorMessage, Error, , (note("GetError"), throwWhenTold()))
TEXT(ErrorMessage, Fault, , note("GetFault"))

EndPoint::EndPoint()
    : fields_(newFields()) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(other.fields_) {
    goOn();
}
EndPoint& EndPoint::operator=(const EndPoint&) = default;
EndPoint::~EndPoint() = default;

BrivonMessage::BrivonMessage(const char* type)
    : fields_(newFields()) {
    field(fields_, "Type") = type;
}
BrivonMessage::~BrivonMessage() = default;

// An error's type begins like an application message's, so that the order of the two questions shows.
const char* const SuiteMessage::TYPE_PREFIX = "brivon.";
const char* const ErrorMessage::TYPE = "brivon.error";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
void SuiteMessage::SetSource(const EndPoint&) {
    note("SetSource");
}
EndPoint SuiteMessage::GetSource() const {
    note("GetSource");
    EndPoint source;
    source.SetAppId(field(fields_, "AppId").c_str());
    source.SetId(field(fields_, "Id").c_str());
    return source;
}
void SuiteMessage::SetDestinations(const EndPoint*, size_t count) {
    note("SetDestinations:" + std::to_string(count));
}
size_t SuiteMessage::GetDestinationCount() const {
    return 0;
}
void SuiteMessage::GetDestinations(EndPoint*) const {}
void SuiteMessage::SetPayload(const char* payload) {
    note("SetPayload:" + std::string(payload));
}
IBrivonMessageListener::IBrivonMessageListener() = default;

namespace {

// An error's texts are those of the application id and of the payload.
struct Incoming final : SuiteMessage {
    explicit Incoming(const std::string& order)
        : SuiteMessage("") {
        std::istringstream in(order);
        for (const char* name : {"Type", "AppId", "AppVersion", "Id", "Payload"}) {
            std::getline(in, field(fields_, name), '|');
            for (char& byte : field(fields_, name))
                byte = byte == '~' ? '\0' : byte;
        }
        field(fields_, "Error") = field(fields_, "AppId");
        field(fields_, "Fault") = field(fields_, "Payload");
    }
};

class Dispatcher final : public IBrivonMessageDispatcher {
public:
    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) override {
        note("Send");
        release();
        std::string order(message.GetTypeSize(), '\0');
        message.GetType(order.data());
        order = order.substr(kPrefix, order.size() - kPrefix - 1);
        const std::string verb = order.substr(0, 5);
        if (verb == "hear:")
            hear(order.substr(5));
        else if (verb == "hold:")
            holdUpAt(order.substr(5));
        else if (verb == "throw")
            throwsNext = true;
        else if (order.compare(0, 3, "in-") == 0)
            order_ = order;
        return static_cast<BrivonMessageErrorCode>(order == "refuse" ? -1 : 0);
    }
    void AddMessageListener(IBrivonMessageListener* listener) override { listener_ = listener; }
    void RemoveMessageListener(IBrivonMessageListener*) override { hearUnknown("in-removal"); }
    void AddErrorListener(IBrivonMessageListener*) override {}
    void RemoveErrorListener(IBrivonMessageListener*) override {}
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override { callback(context); }
    void UnregisterEndPointsCallback(EndPointsCallback, void*) override {}
    void RefreshEndPoints() override {
        note("RefreshEndPoints");
        hearUnknown("in-refresh");
    }
    bool IsRefreshing() override { return false; }
    EndPoint GetSelfEndPoint() override {
        EndPoint self;
        const std::lock_guard lock(mutex);
        self.SetId(std::exchange(notes, "").c_str());
        return self;
    }
    bool IsReady() override { return throwWhenTold(), true; }
    // One, of the application "known".
    void GetEndPoints(EndPoint** list, size_t* count) override {
        *list = new EndPoint;
        (*list)->SetAppId("known");
        (*list)->SetId("1");
        *count = 1;
    }
    void ReleaseEndPoints(EndPoint* list) override { delete list; }

private:
    void hear(const std::string& order) {
        std::thread([&] {
            const Incoming message(order);
            limitMemory(order.find("out-of-memory") != std::string::npos);
            listener_->Receive(message);
            limitMemory(false);
        }).join();
    }
    void hearUnknown(const char* where) {
        if (std::exchange(order_, order_ == where ? "" : order_) == where)
            hear(std::string("brivon.unknown|unknown||9|") + where);
    }
    void holdUpAt(const std::string& order) {
        std::unique_lock lock(mutex);
        hold = Armed;
        holder_ = std::thread([this, order] { listener_->Receive(Incoming(order)); });
        changed.wait(lock, [] { return hold == Held; });
    }
    // Lets go of a call that is held up, should there be one.
    void release() {
        {
            const std::lock_guard lock(mutex);
            proceed(Copied, Released);
        }
        if (holder_.joinable())
            holder_.join();
    }

    IBrivonMessageListener* listener_ = nullptr;
    std::string order_;
    std::thread holder_;
};

} // namespace

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char* first, const char*) {
    throwsNext = std::strcmp(first, "throw") == 0;
    return BrivonMessageErrorCode_Success;
}
BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    *dispatcher = new Dispatcher;
    return BrivonMessageErrorCode_Success;
}
void IBrivonMessageDispatcher::ReleaseInstance() {}

} // namespace kesta::brivon::api5
