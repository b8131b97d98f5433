#include "brivonadapter.h"

#include "TestStreamLogger.h"
#include "brivonadapter_readers.h"
#include "platform.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <thread>
#include <utility>

using namespace kesta::brivon::api5;

namespace {

constexpr int kAcquireAttempts = 100;
constexpr DWORD kAcquireWaitMs = 6000;
constexpr int kPollSleeps = 20;
constexpr DWORD kPollWaitMs = 50;
constexpr std::size_t kCacheLimit = 200; // of single additions; a rebuild takes what the dispatcher lists
constexpr char kUnreachableType[] = "DestinationUnreachable";

enum RoutingMode : std::int32_t { kBroadcast = 0, kPointToPoint = 1 };

// The line is written at the end of the call site's statement. Call sites ask shouldLog(LogLevel::Info) first, and most
// of them verbose_ before it.
LogMessageHolder infoLine(const char* function, int line) {
    return LogMessageHolder(std::make_unique<LogMessage>("brivonadapter", LogLevel::Info, __FILE__, line, function));
}

// For catch sites. A line that cannot be made is dropped.
void logException(const char* function, int line, const char* text) noexcept try {
    if (shouldLog(LogLevel::Info))
        infoLine(function, line).stream() << text;
} catch (...) {
}

class CacheLock {
public:
    explicit CacheLock(uv_mutex_t& mutex)
        : mutex_(mutex) {
        // Each side says that it comes before it looks for the other, so one of them at least sees the other.
        for (++users; isRenewing; ++users) {
            --users;
            std::this_thread::yield();
        }
        uv_mutex_lock(&mutex_);
    }
    ~CacheLock() {
        uv_mutex_unlock(&mutex_);
        --users;
    }
    CacheLock(const CacheLock&) = delete;
    CacheLock& operator=(const CacheLock&) = delete;

    // JavaScript thread of any environment. Makes the mutex anew, with uv_mutex_init's result, while nobody holds it or
    // waits for it: whoever does at that moment would do so for ever.
    static int renew(uv_mutex_t& mutex) {
        while (isRenewing.exchange(true))
            std::this_thread::yield();
        while (users != 0)
            std::this_thread::yield();
        const int result = uv_mutex_init(&mutex);
        isRenewing = false;
        return result;
    }

private:
    static inline std::atomic<int> users{0};
    static inline std::atomic<bool> isRenewing{false};

    uv_mutex_t& mutex_;
};

// Asks until the answer is the wanted one, sleeping in between.
template <typename Question>
void pollUntil(bool wanted, Question question) {
    for (int sleeps = 0; question() != wanted && sleeps < kPollSleeps; ++sleeps)
        Sleep(kPollWaitMs);
}

Napi::String toJavaScript(Napi::Env env, const EndPoint& endPoint) {
    return Napi::String::New(env, endPointToString(endPoint));
}

} // namespace

ClassWide<Napi::FunctionReference> BrivonAdapter::constructor;
uv_mutex_t BrivonAdapter::cacheMutex;
BrivonAdapter::ListenerHandle BrivonAdapter::messageListenerTsfn{nullptr};
BrivonAdapter::ListenerHandle BrivonAdapter::errorListenerTsfn{nullptr};
std::atomic<int> BrivonAdapter::deliveriesInFlight{0};

// ---- Class and lifecycle

Napi::Object BrivonAdapter::Init(Napi::Env env, Napi::Object exports) {
    const Napi::Function function =
        DefineClass(env, "BrivonAdapter",
                    {
                        InstanceMethod<&BrivonAdapter::sendMessage>("sendMessage"),
                        InstanceMethod<&BrivonAdapter::addMessageListener>("addMessageListener"),
                        InstanceMethod<&BrivonAdapter::addErrorListener>("addErrorListener"),
                        InstanceMethod<&BrivonAdapter::getSelfEndpoint>("getSelfEndpoint"),
                        InstanceMethod<&BrivonAdapter::getEndpoints>("getEndpoints"),
                        InstanceMethod<&BrivonAdapter::getEndpointCacheSnapshot>("getEndpointCacheSnapshot"),
                        InstanceMethod<&BrivonAdapter::forceRefreshEndpoints>("forceRefreshEndpoints"),
                        InstanceMethod<&BrivonAdapter::setVerboseLogging>("setVerboseLogging"),
                        InstanceMethod<&BrivonAdapter::removeAllListeners>("removeAllListeners"),
                    });
    keepConstructor(constructor, function);
    const int cacheInitedMutex = CacheLock::renew(cacheMutex);
    assert(0 == cacheInitedMutex);
    exports.Set("BrivonAdapter", function);
    return exports;
}

BrivonAdapter::BrivonAdapter(const Napi::CallbackInfo& info)
    : Napi::ObjectWrap<BrivonAdapter>(info) {
    if (info.Length() < 2) {
        refuse(info.Env(), kWrongNumberOfArguments);
        return;
    }
    configFirst_ = toUtf8(info[0]);
    configSecond_ = toUtf8(info[1]);
    if (info.Length() > 2)
        defaultAppId_ = toUtf8(info[2]);
    moduleStreamLogger().setLevel(LogLevel::Info);
    setLogger(&moduleStreamLogger());
    initSelf();
}

BrivonAdapter::~BrivonAdapter() {
    messageListenerTsfn = nullptr;
    errorListenerTsfn = nullptr;
    setLogger(nullptr);
    napi_remove_env_cleanup_hook(Env(), onEnvironmentEnd, this);
    if (brivon_ != nullptr) {
        brivon_->UnregisterEndPointsCallback(endPointsCallback, this);
        IBrivonMessageDispatcher::ReleaseInstance();
        brivon_ = nullptr;
    }
}

void BrivonAdapter::initSelf() {
    static constexpr char function[] = "BrivonAdapter::initSelf";
    assert(!brivon_);
    if (brivon_ != nullptr)
        return;
    try {
        if (IBrivonMessageDispatcher::SetConfig(configFirst_.c_str(), configSecond_.c_str()) ==
            BrivonMessageErrorCode_Success) {
            for (int attempt = 0; attempt < kAcquireAttempts; ++attempt) {
                const BrivonMessageErrorCode status = IBrivonMessageDispatcher::GetInstance(&brivon_);
                if (status == BrivonMessageErrorCode_Success) {
                    assert(brivon_);
                    break;
                }
                if (status != BrivonMessageErrorCode_NotYetAvailable)
                    break;
                Sleep(kAcquireWaitMs);
            }
        }
        assert(brivon_);

        pollUntil(true, [this] { return brivon_->IsReady(); });
        brivon_->RegisterEndPointsCallback(endPointsCallback, this);
        if (!brivon_->IsReady()) {
            if (verbose_ && shouldLog(LogLevel::Info))
                infoLine(function, __LINE__).stream() << "dispatcher isn't ready, using broadcast";
            return;
        }
        brivon_->RefreshEndPoints();
        pollUntil(false, [this] { return brivon_->IsRefreshing(); });
        if (brivon_->IsRefreshing() && verbose_ && shouldLog(LogLevel::Info))
            infoLine(function, __LINE__).stream() << "failed to refresh endpoints, using broadcast";
    } catch (...) {
        logException(function, __LINE__, "WARNING Likely fatal exception in construction ");
    }
}

IBrivonMessageDispatcher& BrivonAdapter::dispatcher(Napi::Env env) const {
    if (brivon_ == nullptr)
        throw Napi::Error::New(env, "The messaging library failed while this adapter was constructed");
    return *brivon_;
}

Napi::Value BrivonAdapter::setVerboseLogging(const Napi::CallbackInfo& info) {
    // Whatever the arguments: verbose logging cannot be switched off again.
    verbose_ = true;
    return info.Env().Null();
}

// The adapter's environment ends before the adapter is destroyed. From here on no library thread may call into that
// environment, nor may the library keep listeners that are about to go.
void BrivonAdapter::onEnvironmentEnd(void* data) {
    auto* adapter = static_cast<BrivonAdapter*>(data);
    messageListenerTsfn = nullptr;
    errorListenerTsfn = nullptr;
    while (deliveriesInFlight != 0)
        std::this_thread::yield();
    try {
        if (adapter->brivon_ != nullptr) {
            adapter->brivon_->RemoveMessageListener(adapter);
            adapter->brivon_->RemoveErrorListener(adapter);
        }
    } catch (...) { // nobody is left to be told, and an adapter that stays registered meets empty handles
    }
}

void BrivonAdapter::watchEnvironmentEnd(Napi::Env env) {
    // Hooks run newest first, and a thread-safe function brings its own: this one is moved to the front. Removing an
    // absent hook is allowed, adding one twice is not.
    napi_remove_env_cleanup_hook(env, onEnvironmentEnd, this);
    napi_add_env_cleanup_hook(env, onEnvironmentEnd, this);
}

// ---- Endpoint cache and refresh

bool BrivonAdapter::insertIfNotAlreadyCached(const EndPoint& source) {
    static constexpr char function[] = "BrivonAdapter::insertIfNotAlreadyCached";
    bool isHit = false;
    {
        const CacheLock lock(cacheMutex);
        const std::string appId = readAppId(source);
        const std::string id = readId(source);
        const auto [first, last] = endpointCache_->equal_range(appId);
        isHit = std::any_of(first, last, [&id](const auto& entry) { return readId(entry.second) == id; });
        if (!isHit && endpointCache_->size() >= kCacheLimit) {
            if (shouldLog(LogLevel::Info))
                infoLine(function, __LINE__).stream()
                    << "WARNING Cache stale - dropped missing EndPoint due to large cache size";
        } else if (!isHit) {
            auto patched = std::make_shared<EndPointCache>(*endpointCache_);
            patched->emplace(appId, source);
            std::atomic_store<const EndPointCache>(&endpointCache_, std::move(patched));
            if (verbose_ && shouldLog(LogLevel::Info))
                infoLine(function, __LINE__).stream()
                    << "Cache stale - inserted missing EndPoint for appId = " << appId;
        }
    }
    if (isHit && verbose_ && shouldLog(LogLevel::Info))
        infoLine(function, __LINE__).stream() << "cache hit -- returning early";
    return !isHit;
}

void BrivonAdapter::endPointsCallback(void* adapter) {
    static_cast<BrivonAdapter*>(adapter)->refreshEndPointsBrivonWillCallback();
}

void BrivonAdapter::refreshEndPointsBrivonWillCallback() {
    static constexpr char function[] = "BrivonAdapter::refreshEndPointsBrivonWillCallback";
    assert(brivon_);
    const EndPoint self = brivon_->GetSelfEndPoint();
    const std::vector<EndPoint> endPoints = listEndPoints(*brivon_);
    bool defaultAppPresent = false;
    {
        const CacheLock lock(cacheMutex);
        selfEndPoint_ = self;
        if (verbose_ && shouldLog(LogLevel::Info))
            infoLine(function, __LINE__).stream() << "about to drop cache ";
        auto rebuilt = std::make_shared<EndPointCache>();
        for (const EndPoint& endPoint : endPoints) {
            const std::string appId = readAppId(endPoint);
            rebuilt->emplace(appId, endPoint);
            if (verbose_ && shouldLog(LogLevel::Info))
                infoLine(function, __LINE__).stream()
                    << "inserted appId = " << appId << " for sourceId = " << readId(endPoint);
            defaultAppPresent = defaultAppPresent || appId == defaultAppId_;
        }
        std::atomic_store<const EndPointCache>(&endpointCache_, std::move(rebuilt));
    }
    if (defaultAppPresent) {
        if (routingMode_ == kBroadcast && verbose_ && shouldLog(LogLevel::Info))
            infoLine(function, __LINE__).stream() << "switching to point to point";
        routingMode_ = kPointToPoint;
    } else {
        if (routingMode_ == kPointToPoint && verbose_ && shouldLog(LogLevel::Info))
            infoLine(function, __LINE__).stream() << "switching to broadcast";
        routingMode_ = kBroadcast;
    }
}

void BrivonAdapter::refreshEndpoints() {
    assert(brivon_);
    needsRefresh_ = false;
    brivon_->RefreshEndPoints();
}

Napi::Value BrivonAdapter::getSelfEndpoint(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    return toJavaScript(env, dispatcher(env).GetSelfEndPoint());
}

Napi::Value BrivonAdapter::getEndpoints(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    const std::vector<EndPoint> endPoints = listEndPoints(dispatcher(env));
    Napi::Array array = Napi::Array::New(env, endPoints.size());
    std::uint32_t index = 0;
    for (const EndPoint& endPoint : endPoints)
        setElement(array, index++, toJavaScript(env, endPoint));
    return array;
}

Napi::Value BrivonAdapter::getEndpointCacheSnapshot(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    // Without cacheMutex, so that a snapshot waits for no library thread.
    const std::shared_ptr<const EndPointCache> snapshot = std::atomic_load(&endpointCache_);
    Napi::Array array = Napi::Array::New(env, snapshot->size());
    std::uint32_t index = 0;
    for (const auto& entry : *snapshot)
        setElement(array, index++, toJavaScript(env, entry.second));
    return array;
}

Napi::Value BrivonAdapter::forceRefreshEndpoints(const Napi::CallbackInfo& info) {
    refreshEndpoints();
    return info.Env().Null();
}

// ---- Sending

Napi::Value BrivonAdapter::sendMessage(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    if (info.Length() < 2)
        return refuse(env, kWrongNumberOfArguments);
    for (std::size_t i = 0; i < info.Length(); ++i) {
        if (!info[i].IsString())
            return refuse(env, kTargetSpecifierNotString);
    }
    std::array<std::string, 5> texts;
    for (std::size_t i = 0; i < texts.size() && i < info.Length(); ++i)
        texts[i] = toUtf8(info[i]);
    const auto& [type, payload, appId, appVersion, endpointId] = texts;
    sendSuiteMessage(type, payload, appId, appVersion, endpointId);
    return Napi::String::New(env, "Sent");
}

// A library's exception ends the process here, with a report. The frames of a Windows host would end it without.
void BrivonAdapter::sendSuiteMessage(const std::string& type, const std::string& payload, const std::string& appId,
                                     const std::string& appVersion, const std::string& endpointId) noexcept {
    static const std::string suiteTypePrefix = "brivon.SuiteMessage.";
    SuiteMessage message((suiteTypePrefix + type).c_str());
    const std::vector<EndPoint> destinations = selectDestinations(appId, appVersion, endpointId);
    // Without cacheMutex: a send to an endpoint that is named in full takes no lock.
    message.SetSource(selfEndPoint_);
    message.SetPayload(payload.c_str());
    if (!destinations.empty())
        message.SetDestinations(destinations.data(), destinations.size());
    assert(brivon_);
    if (brivon_->Send(message) != BrivonMessageErrorCode_Success)
        needsRefresh_ = true;
    else if (needsRefresh_)
        refreshEndpoints();
}

std::vector<EndPoint> BrivonAdapter::selectDestinations(const std::string& appId, const std::string& appVersion,
                                                        const std::string& endpointId) const {
    std::vector<EndPoint> destinations;
    if (!appId.empty() && !appVersion.empty() && !endpointId.empty()) {
        EndPoint& named = destinations.emplace_back();
        named.SetAppId(appId.c_str());
        named.SetAppVersion(appVersion.c_str());
        named.SetId(endpointId.c_str());
        return destinations;
    }
    const std::string& key = appId.empty() ? defaultAppId_ : appId;
    const CacheLock lock(cacheMutex);
    const auto [first, last] = endpointCache_->equal_range(key);
    if (!key.empty() && !appVersion.empty()) {
        for (auto entry = first; entry != last; ++entry) {
            if (readAppVersion(entry->second) == appVersion)
                destinations.push_back(entry->second);
        }
    }
    if (destinations.empty()) {
        destinations.reserve(endpointCache_->count(key));
        for (auto entry = first; entry != last; ++entry)
            destinations.push_back(entry->second);
    }
    return destinations;
}

// ---- Listeners and delivery

Napi::Value BrivonAdapter::addMessageListener(const Napi::CallbackInfo& info) {
    return addListener(info, messageListenerTsfn, "Brivon Message Listener",
                       &IBrivonMessageDispatcher::AddMessageListener);
}

Napi::Value BrivonAdapter::addErrorListener(const Napi::CallbackInfo& info) {
    return addListener(info, errorListenerTsfn, "Brivon Error Listener", &IBrivonMessageDispatcher::AddErrorListener);
}

Napi::Value BrivonAdapter::addListener(const Napi::CallbackInfo& info, ListenerHandle& handle, const char* name,
                                       void (IBrivonMessageDispatcher::*add)(IBrivonMessageListener*)) {
    const Napi::Env env = info.Env();
    if (info.Length() < 1)
        return refuse(env, kWrongNumberOfArguments);
    // A previous handle is overwritten without a release: its function is never called again and stays referenced.
    handle = Napi::ThreadSafeFunction::New(env, info[0].As<Napi::Function>(), name, 0, 1);
    watchEnvironmentEnd(env);
    (dispatcher(env).*add)(this);
    return env.Undefined();
}

Napi::Value BrivonAdapter::removeAllListeners(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    messageListenerTsfn = nullptr;
    errorListenerTsfn = nullptr;
    IBrivonMessageDispatcher& brivon = dispatcher(env);
    brivon.RemoveMessageListener(this);
    brivon.RemoveErrorListener(this);
    return env.Undefined();
}

void BrivonAdapter::Receive(const BrivonMessage& message) {
    try {
        std::string type = readType(message);
        if (type == kUnreachableType || needsRefresh_)
            refreshEndpoints();
        if (isErrorMessage(type)) {
            const auto& errorMessage = static_cast<const ErrorMessage&>(message);
            std::string error = readError(errorMessage);
            std::string fault = readFault(errorMessage);
            deliverError(new ErrorRecord{std::move(type), std::move(error), std::move(fault)});
        } else if (isSuiteMessage(type)) {
            const auto& suiteMessage = static_cast<const SuiteMessage&>(message);
            std::string appId = readAppId(message);
            std::string appVersion = readAppVersion(message);
            const EndPoint source = suiteMessage.GetSource();
            std::string sourceId = readId(source);
            std::string payload = readPayload(suiteMessage);
            auto* record = new MessageRecord{std::move(type), std::move(appId), std::move(appVersion),
                                             std::move(sourceId), std::move(payload)};
            // Assigned, not or-ed: a hit clears what a send that is refused meanwhile has set.
            needsRefresh_ = insertIfNotAlreadyCached(source);
            deliverMessage(record);
        }
    } catch (...) {
        logException("BrivonAdapter::Receive", __LINE__, "EXCEPTION in BrivonAdapter::Receive");
    }
}

// A record is freed after its listener has returned, and by nothing else: one that is refused, or whose listener
// throws, is not freed.
void BrivonAdapter::deliverMessage(MessageRecord* record) {
    queueDelivery(messageListenerTsfn, [record](Napi::Env env, Napi::Function listener) {
        listener.Call({Napi::String::New(env, record->type), Napi::String::New(env, record->payload),
                       Napi::String::New(env, record->appId), Napi::String::New(env, record->appVersion),
                       Napi::String::New(env, record->sourceId)});
        delete record;
    });
}

void BrivonAdapter::deliverError(ErrorRecord* record) {
    queueDelivery(errorListenerTsfn, [record](Napi::Env env, Napi::Function listener) {
        listener.Call({Napi::String::New(env, record->type), Napi::String::New(env, record->error),
                       Napi::String::New(env, record->fault)});
        delete record;
    });
}

void BrivonAdapter::queueDelivery(const ListenerHandle& handle, const Delivery& delivery) {
    struct InFlight {
        InFlight() { ++deliveriesInFlight; }
        ~InFlight() { --deliveriesInFlight; }
    } const inFlight;
    napi_threadsafe_function listener = handle;
    // The runtime aborts on an empty handle; here it means a refusal like any other, and the delivery is dropped.
    if (listener != nullptr)
        Napi::ThreadSafeFunction(listener).NonBlockingCall(delivery);
}
