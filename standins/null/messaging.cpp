// A messaging library that does next to nothing, so that what is measured on it is the module's own time.
//
// - SetConfig's second text is the number of endpoints that the next adapter is told of, all of them of one
// application.
// - An endpoint is a reference to one of them; setters do nothing.
// - A message is not kept and goes nowhere, unless its type ends in "flood:<count>:<size>:<listener>": Send then has a
//   thread of its own hand <count> messages with a payload of <size> bytes to that listener, counted from 0 in the
//   order of registration.
#include "BrivonMessage5.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <queue>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace kesta::brivon::api5;

namespace {

constexpr char kAppId[] = "calendar";
constexpr char kAppVersion[] = "3.0";
constexpr char kFloodType[] = "brivon.SuiteMessage.flood";

struct Participant {
    std::string id;
};

struct Flood {
    std::size_t count;
    std::size_t size;
    std::size_t listener;
};

const Participant& participant(const void* fields) {
    return *static_cast<const Participant*>(fields);
}

const Flood& flood(const void* fields) {
    return *static_cast<const Flood*>(fields);
}

// An endpoint of the library's own.
struct Known : EndPoint {
    explicit Known(std::size_t number) { fields_ = new Participant{"endpoint-" + std::to_string(number)}; }
};

struct Incoming final : SuiteMessage {
    explicit Incoming(const Flood& flood)
        : SuiteMessage("") {
        fields_ = new Flood(flood);
    }
    static const Flood* floodOf(const SuiteMessage& message) {
        return static_cast<const Flood*>(message.*(&Incoming::fields_));
    }
};

// Lives until the process ends, as all that is handed out.
std::vector<EndPoint>& endPoints() {
    static std::vector<EndPoint>& only = *new std::vector<EndPoint>;
    return only;
}

} // namespace

namespace kesta::brivon::api5 {

EndPoint::EndPoint() {
    static const Participant blank{"endpoint"};
    fields_ = const_cast<Participant*>(&blank);
}
EndPoint::EndPoint(const EndPoint&) = default;
EndPoint& EndPoint::operator=(const EndPoint&) = default;
EndPoint::~EndPoint() = default;
void EndPoint::SetId(const char*) {}
size_t EndPoint::GetIdSize() const {
    return participant(fields_).id.size() + 1;
}
void EndPoint::GetId(char* id) const {
    std::memcpy(id, participant(fields_).id.c_str(), participant(fields_).id.size() + 1);
}
void EndPoint::SetAppId(const char*) {}
size_t EndPoint::GetAppIdSize() const {
    return sizeof kAppId;
}
void EndPoint::GetAppId(char* appId) const {
    std::memcpy(appId, kAppId, sizeof kAppId);
}
void EndPoint::SetAppVersion(const char*) {}
size_t EndPoint::GetAppVersionSize() const {
    return sizeof kAppVersion;
}
void EndPoint::GetAppVersion(char* appVersion) const {
    std::memcpy(appVersion, kAppVersion, sizeof kAppVersion);
}

BrivonMessage::BrivonMessage(const char* type)
    : fields_(nullptr) {
    static constexpr std::size_t length = sizeof kFloodType - 1;
    if (std::strncmp(type, kFloodType, length) != 0 || type[length] != ':')
        return;
    Flood order{};
    if (std::sscanf(type + length, ":%zu:%zu:%zu", &order.count, &order.size, &order.listener) == 3)
        fields_ = new Flood(order);
}
BrivonMessage::~BrivonMessage() {
    delete static_cast<Flood*>(fields_);
}
size_t BrivonMessage::GetTypeSize() const {
    return sizeof kFloodType;
}
void BrivonMessage::GetType(char* type) const {
    std::memcpy(type, kFloodType, sizeof kFloodType);
}
size_t BrivonMessage::GetAppIdSize() const {
    return sizeof kAppId;
}
void BrivonMessage::GetAppId(char* appId) const {
    std::memcpy(appId, kAppId, sizeof kAppId);
}
size_t BrivonMessage::GetAppVersionSize() const {
    return sizeof kAppVersion;
}
void BrivonMessage::GetAppVersion(char* appVersion) const {
    std::memcpy(appVersion, kAppVersion, sizeof kAppVersion);
}

const char* const SuiteMessage::TYPE_PREFIX = "brivon.SuiteMessage.";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
void SuiteMessage::SetSource(const EndPoint&) {}
EndPoint SuiteMessage::GetSource() const {
    return endPoints().front();
}
void SuiteMessage::SetDestinations(const EndPoint*, size_t) {}
size_t SuiteMessage::GetDestinationCount() const {
    return 0;
}
void SuiteMessage::GetDestinations(EndPoint*) const {}
void SuiteMessage::SetPayload(const char*) {}
size_t SuiteMessage::GetPayloadSize() const {
    return flood(fields_).size + 1;
}
void SuiteMessage::GetPayload(char* payload) const {
    std::memset(payload, 'x', flood(fields_).size);
    payload[flood(fields_).size] = '\0';
}

const char* const ErrorMessage::TYPE = "brivon.ErrorMessage";
ErrorMessage::ErrorMessage()
    : BrivonMessage(TYPE) {}
ErrorMessage::~ErrorMessage() = default;
size_t ErrorMessage::GetErrorSize() const {
    return 0;
}
void ErrorMessage::GetError(char*) const {}
size_t ErrorMessage::GetFaultSize() const {
    return 0;
}
void ErrorMessage::GetFault(char*) const {}

IBrivonMessageListener::IBrivonMessageListener() = default;

namespace {

// The library's thread, from the first task on until the process ends.
class LibraryThread {
public:
    LibraryThread() {
        std::thread([this] { run(); }).detach();
    }
    void post(std::function<void()> task) {
        const std::lock_guard lock(mutex_);
        tasks_.push(std::move(task));
        posted_.notify_one();
    }

private:
    void run() {
        for (;;) {
            std::unique_lock lock(mutex_);
            posted_.wait(lock, [this] { return !tasks_.empty(); });
            const std::function<void()> task = std::move(tasks_.front());
            tasks_.pop();
            lock.unlock();
            task();
        }
    }

    std::mutex mutex_;
    std::condition_variable posted_;
    std::queue<std::function<void()>> tasks_;
};

LibraryThread& libraryThread() {
    static LibraryThread& only = *new LibraryThread;
    return only;
}

class Dispatcher final : public IBrivonMessageDispatcher {
public:
    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage& message) override {
        const Flood* order = Incoming::floodOf(message);
        if (order != nullptr && order->listener < listeners_.size()) {
            IBrivonMessageListener* listener = listeners_[order->listener];
            libraryThread().post([order = *order, listener] {
                const Incoming incoming(order);
                for (std::size_t i = 0; i < order.count; ++i)
                    listener->Receive(incoming);
            });
        }
        return BrivonMessageErrorCode_Success;
    }
    void AddMessageListener(IBrivonMessageListener* listener) override { listeners_.push_back(listener); }
    void RemoveMessageListener(IBrivonMessageListener*) override {}
    void AddErrorListener(IBrivonMessageListener*) override {}
    void RemoveErrorListener(IBrivonMessageListener*) override {}
    // Only the latest is told, so that every adapter keeps the number of endpoints that it was constructed with.
    void RegisterEndPointsCallback(EndPointsCallback callback, void* context) override {
        callback_ = callback;
        context_ = context;
    }
    void UnregisterEndPointsCallback(EndPointsCallback, void* context) override {
        if (context == context_)
            callback_ = nullptr;
    }
    void RefreshEndPoints() override {
        if (callback_ != nullptr)
            callback_(context_);
    }
    bool IsRefreshing() override { return false; }
    EndPoint GetSelfEndPoint() override { return {}; }
    bool IsReady() override { return true; }
    void GetEndPoints(EndPoint** list, size_t* count) override {
        *list = endPoints().data();
        *count = endPoints().size();
    }
    void ReleaseEndPoints(EndPoint*) override {}

private:
    std::vector<IBrivonMessageListener*> listeners_;
    EndPointsCallback callback_ = nullptr;
    void* context_ = nullptr;
};

} // namespace

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char*, const char* second) {
    const std::size_t count = std::strtoul(second, nullptr, 10);
    std::vector<EndPoint>& list = endPoints();
    list.resize(count < list.size() ? count : list.size());
    while (list.size() < count)
        list.push_back(Known(list.size()));
    return BrivonMessageErrorCode_Success;
}
BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    static Dispatcher& only = *new Dispatcher;
    *dispatcher = &only;
    return BrivonMessageErrorCode_Success;
}
void IBrivonMessageDispatcher::ReleaseInstance() {}

} // namespace kesta::brivon::api5
