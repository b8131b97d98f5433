// Another implementation of the messaging contract, which notes what the module does with its records and does what a
// library may do, though ours never does: it calls back in the middle of a call, holds a call up, and throws what is no
// standard exception. What it has noted since the last time is the id of its own endpoint, words with blanks between.
//
// A message's type tells it what to do, behind the prefix:
//   "hear:TYPE|APP|VERSION|ID|PAYLOAD"  has a thread of its own hand that message to the listener before Send returns;
//                                       '~' stands for a NUL
//   "hold:..."                          the same, but Send returns as soon as the module, with its lock held, has asked
//                                       for the source's application id; the answer waits until an endpoint is copied,
//                                       and then for the next Send, which is not to come before
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
#include <vector>

namespace kesta::brivon::api5 {
namespace {

// What stands behind every object: texts by the names of their accessors, and an endpoint's worth of them for the
// source.
using Texts = std::map<std::string, std::string>;
struct Record {
    Texts texts;
    Texts source;
};

std::mutex mutex; // guards what follows
std::condition_variable changed;
std::string notes;
enum { Idle, Armed, Held, Copied, Released } hold = Idle;
bool throwsNext = false;

void note(const std::string& word) {
    const std::lock_guard lock(mutex);
    notes += notes.empty() ? word : " " + word;
}

Record& record(void* fields) {
    return *static_cast<Record*>(fields);
}

size_t sizeOf(void* fields, const char* name) {
    return record(fields).texts[name].size() + 1;
}

void copy(void* fields, const char* name, char* text) {
    const std::string& bytes = record(fields).texts[name];
    std::memcpy(text, bytes.c_str(), bytes.size() + 1);
}

// The module's lock is held here when it looks a source up.
void holdUp() {
    std::unique_lock lock(mutex);
    if (hold != Armed)
        return;
    hold = Held;
    notes += " locked";
    changed.notify_all();
    changed.wait_for(lock, std::chrono::seconds(30), [] { return hold != Held; });
    changed.wait_for(lock, std::chrono::milliseconds(100), [] { return hold == Released; });
    notes += " unlocked";
    hold = Idle;
}

void readField(void* fields, const char* name, char* text) {
    {
        const std::lock_guard lock(mutex);
        if (std::exchange(throwsNext, false))
            throw 42;
    }
    copy(fields, name, text);
}

} // namespace

#define TEXT(Class, Name, read)                                                                                        \
    size_t Class::Get##Name##Size() const {                                                                            \
        return sizeOf(fields_, #Name);                                                                                 \
    }                                                                                                                  \
    void Class::Get##Name(char* text) const {                                                                          \
        read(fields_, #Name, text);                                                                                    \
    }
#define SETTER(Name)                                                                                                   \
    void EndPoint::Set##Name(const char* text) {                                                                       \
        record(fields_).texts[#Name] = text;                                                                           \
    }
TEXT(EndPoint, Id, copy)
TEXT(EndPoint, AppVersion, copy)
SETTER(Id)
SETTER(AppId)
SETTER(AppVersion)
TEXT(BrivonMessage, Type, copy)
TEXT(BrivonMessage, AppId, readField)
TEXT(BrivonMessage, AppVersion, copy)
TEXT(ErrorMessage, Error, readField)
TEXT(ErrorMessage, Fault, copy)

size_t EndPoint::GetAppIdSize() const {
    holdUp();
    return sizeOf(fields_, "AppId");
}
void EndPoint::GetAppId(char* text) const {
    copy(fields_, "AppId", text);
}
EndPoint::EndPoint()
    : fields_(new Record) {}
EndPoint::EndPoint(const EndPoint& other)
    : fields_(new Record(record(other.fields_))) {
    const std::lock_guard lock(mutex);
    if (hold != Held)
        return;
    hold = Copied;
    notes += " copied";
    changed.notify_all();
}
EndPoint& EndPoint::operator=(const EndPoint& other) {
    record(fields_) = record(other.fields_);
    return *this;
}
EndPoint::~EndPoint() {
    delete &record(fields_);
}

BrivonMessage::BrivonMessage(const char* type)
    : fields_(new Record{{{"Type", type}}, {}}) {}
BrivonMessage::~BrivonMessage() {
    delete &record(fields_);
}

// An error's type begins like an application message's, so that the order of the two questions shows.
const char* const SuiteMessage::TYPE_PREFIX = "brivon.";
const char* const ErrorMessage::TYPE = "brivon.error";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
ErrorMessage::ErrorMessage()
    : BrivonMessage(TYPE) {}
ErrorMessage::~ErrorMessage() = default;
void SuiteMessage::SetSource(const EndPoint&) {
    note("SetSource");
}
EndPoint SuiteMessage::GetSource() const {
    EndPoint source;
    for (const auto& [name, text] : record(fields_).source)
        (source.*(name == "Id" ? &EndPoint::SetId : &EndPoint::SetAppId))(text.c_str());
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
size_t SuiteMessage::GetPayloadSize() const {
    return sizeOf(fields_, "Payload");
}
void SuiteMessage::GetPayload(char* payload) const {
    note("GetPayload");
    copy(fields_, "Payload", payload);
}
IBrivonMessageListener::IBrivonMessageListener() = default;

namespace {

// A message as a listener gets it: the fields of "TYPE|APP|VERSION|ID|PAYLOAD" under every name that asks for them.
class Incoming final : public SuiteMessage {
public:
    explicit Incoming(const std::string& order)
        : SuiteMessage("") {
        std::istringstream in(order);
        for (const char* name : {"Type", "AppId", "AppVersion", "Id", "Payload"}) {
            std::string& text = record(fields_).texts[name];
            std::getline(in, text, '|');
            for (char& byte : text)
                byte = byte == '~' ? '\0' : byte;
        }
        Texts& texts = record(fields_).texts;
        texts["Error"] = texts["AppId"];
        texts["Fault"] = texts["Payload"];
        record(fields_).source = {{"Id", texts["Id"]}, {"AppId", texts["AppId"]}};
    }
};

class Dispatcher final : public IBrivonMessageDispatcher {
public:
    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) override {
        note("Send");
        std::string order(message.GetTypeSize(), '\0');
        message.GetType(order.data());
        order =
            order.substr(std::strlen("brivon.SuiteMessage."), order.size() - std::strlen("brivon.SuiteMessage.") - 1);
        release();
        if (order == "refuse")
            return static_cast<BrivonMessageErrorCode>(-1);
        if (order == "throw")
            throwsNext = true;
        if (order == "in-refresh" || order == "in-removal")
            unknownIn_ = order;
        if (order.compare(0, 5, "hear:") == 0)
            hear(order.substr(5));
        if (order.compare(0, 5, "hold:") == 0)
            holdUpAt(order.substr(5));
        return BrivonMessageErrorCode_Success;
    }
    void AddMessageListener(IBrivonMessageListener* listener) override { listener_ = listener; }
    void RemoveMessageListener(IBrivonMessageListener*) override { hearUnknown("in-removal"); }
    void AddErrorListener(IBrivonMessageListener*) override {}
    void RemoveErrorListener(IBrivonMessageListener*) override {}
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        callback_ = callback;
        context_ = context;
    }
    void UnregisterEndPointsCallback(EndPointsCallback, void*) override {}
    void RefreshEndPoints() override {
        note("RefreshEndPoints");
        hearUnknown("in-refresh");
        if (std::exchange(isFirst_, false))
            std::thread([this] { callback_(context_); }).join();
    }
    bool IsRefreshing() override { return false; }
    EndPoint GetSelfEndPoint() override {
        EndPoint self;
        const std::lock_guard lock(mutex);
        self.SetId(std::exchange(notes, "").c_str());
        return self;
    }
    bool IsReady() override {
        if (std::exchange(throwsNext, false))
            throw 42;
        return true;
    }
    // One, of the application "known".
    void GetEndPoints(EndPoint** list, size_t* count) override {
        *list = new EndPoint[1];
        (*list)->SetAppId("known");
        (*list)->SetId("1");
        *count = 1;
    }
    void ReleaseEndPoints(EndPoint* list) override { delete[] list; }

private:
    void hear(const std::string& order) {
        const Incoming incoming(order);
        std::thread([&] { listener_->Receive(incoming); }).join();
    }
    void hearUnknown(const char* where) {
        if (unknownIn_ == where) {
            unknownIn_.clear();
            hear("brivon.unknown|unknown||9|" + std::string(where));
        }
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
            if (hold == Copied)
                hold = Released;
            changed.notify_all();
        }
        if (holder_.joinable())
            holder_.join();
    }

    IBrivonMessageListener* listener_ = nullptr;
    EndPointsCallback callback_ = nullptr;
    void* context_ = nullptr;
    bool isFirst_ = true;
    std::string unknownIn_;
    std::thread holder_;
};

} // namespace

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char* first, const char*) {
    throwsNext = std::strcmp(first, "throw") == 0;
    return BrivonMessageErrorCode_Success;
}
BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    static Dispatcher& only = *new Dispatcher;
    *dispatcher = &only;
    return BrivonMessageErrorCode_Success;
}
void IBrivonMessageDispatcher::ReleaseInstance() {}

} // namespace kesta::brivon::api5
