// The JavaScript class BrivonAdapter: one program's place on the messaging bus.
#ifndef BRIVONADAPTER_H
#define BRIVONADAPTER_H

#include "BrivonMessage5.h"
#include "binding.h"

#include <napi.h>
#include <uv.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

// One incoming application message on its way from a library thread to the JavaScript thread.
struct MessageRecord {
    std::string type;
    std::string appId;
    std::string appVersion;
    std::string sourceId;
    std::string payload;
};

// One incoming error message on the same way.
struct ErrorRecord {
    std::string type;
    std::string error;
    std::string fault;
};

// Owned by its JavaScript object and deleted when that is collected; there is no close. The listeners and the logger
// are shared by all adapters of the process: the destruction of one silences all.
class BrivonAdapter : public Napi::ObjectWrap<BrivonAdapter>, public kesta::brivon::api5::IBrivonMessageListener {
public:
    // JavaScript thread. Defines the class and puts it on the exports object; once per environment.
    static Napi::Object Init(Napi::Env env, Napi::Object exports);

    // JavaScript thread. (configuration, configuration, default application id = "").
    explicit BrivonAdapter(const Napi::CallbackInfo& info);
    // JavaScript thread. Leaves the listeners registered with the library.
    ~BrivonAdapter() override;

    // Library threads. Never throws and never waits for JavaScript.
    void Receive(const kesta::brivon::api5::BrivonMessage& message) override;

private:
    using EndPoint = kesta::brivon::api5::EndPoint;
    // Any thread. Null without a listener. Never released: the event loop stays alive from the first listener on.
    using ListenerHandle = std::atomic<napi_threadsafe_function>;
    // By application id; the endpoints of one application in the order in which they came.
    using EndPointCache = std::multimap<std::string, EndPoint>;

    // The methods of the class, all on the JavaScript thread.
    Napi::Value sendMessage(const Napi::CallbackInfo& info);
    Napi::Value addMessageListener(const Napi::CallbackInfo& info);
    Napi::Value addErrorListener(const Napi::CallbackInfo& info);
    Napi::Value getSelfEndpoint(const Napi::CallbackInfo& info);
    Napi::Value getEndpoints(const Napi::CallbackInfo& info);
    Napi::Value getEndpointCacheSnapshot(const Napi::CallbackInfo& info);
    Napi::Value forceRefreshEndpoints(const Napi::CallbackInfo& info);
    Napi::Value setVerboseLogging(const Napi::CallbackInfo& info);
    Napi::Value removeAllListeners(const Napi::CallbackInfo& info);

    // JavaScript thread. Joins the bus; waits for the library, ten minutes at the most.
    void initSelf();
    // JavaScript thread. A library exception during construction leaves an adapter without a dispatcher; methods throw
    // an Error where they come to need one, and the send path and the refresh fail their assertions.
    kesta::brivon::api5::IBrivonMessageDispatcher& dispatcher(Napi::Env env) const;

    // JavaScript thread.
    void sendSuiteMessage(const std::string& type, const std::string& payload, const std::string& appId,
                          const std::string& appVersion, const std::string& endpointId) noexcept;
    // JavaScript thread. Takes cacheMutex unless the call names one endpoint in full.
    std::vector<EndPoint> selectDestinations(const std::string& appId, const std::string& appVersion,
                                             const std::string& endpointId) const;

    // Library threads. Each hands its record to the JavaScript thread, or drops it when no listener is set.
    static void deliverMessage(MessageRecord* record);
    static void deliverError(ErrorRecord* record);
    using Delivery = std::function<void(Napi::Env, Napi::Function)>;
    static void queueDelivery(const ListenerHandle& handle, const Delivery& delivery);

    // Library threads. Takes cacheMutex. Answers whether the cache was stale: false when it held the source.
    bool insertIfNotAlreadyCached(const EndPoint& source);
    // Library threads. Takes cacheMutex, not across calls of the dispatcher.
    void refreshEndPointsBrivonWillCallback();
    static void endPointsCallback(void* adapter);
    // JavaScript and library threads. Asks for a new endpoint list, which arrives through endPointsCallback.
    void refreshEndpoints();

    // JavaScript thread.
    Napi::Value addListener(const Napi::CallbackInfo& info, ListenerHandle& handle, const char* name,
                            void (kesta::brivon::api5::IBrivonMessageDispatcher::*add)(IBrivonMessageListener*));
    // JavaScript thread. Has onEnvironmentEnd called before the environment deletes its thread-safe functions.
    void watchEnvironmentEnd(Napi::Env env);
    static void onEnvironmentEnd(void* adapter);

    // Class-wide. The latest environment's constructor, until an environment ends.
    static ClassWide<Napi::FunctionReference> constructor;
    // Guards endpointCache_ and selfEndPoint_ of every adapter. Made anew for every environment and never destroyed.
    static uv_mutex_t cacheMutex;
    static ListenerHandle messageListenerTsfn;
    static ListenerHandle errorListenerTsfn;
    // Deliveries that may hold a copy of a handle; an ending environment waits for them.
    static std::atomic<int> deliveriesInFlight;

    // Destroyed from the last to the first, after the destructor has given the dispatcher back.
    std::string configFirst_;
    std::string configSecond_;
    std::string defaultAppId_;
    kesta::brivon::api5::IBrivonMessageDispatcher* brivon_ = nullptr; // the library's, counted by its instances
    std::int32_t routingMode_ = 0;                                    // only decides which switch is logged
    bool needsRefresh_ = false;
    // Never changed, only replaced, so that a snapshot needs no lock.
    std::shared_ptr<const EndPointCache> endpointCache_ = std::make_shared<EndPointCache>();
    EndPoint selfEndPoint_;
    // Always empty: records go straight to the queues of the listeners.
    std::list<MessageRecord> pendingMessages_;
    std::list<ErrorRecord> pendingErrors_;
    bool verbose_ = false;
};

#endif
