#include "dispatcher.h"

#include <algorithm>
#include <cstdio>

namespace standins {

namespace {

constexpr std::chrono::milliseconds leavePatience(1000);
[[maybe_unused]] constexpr std::chrono::milliseconds exitPatience(500);
constexpr char unreachableType[] = "DestinationUnreachable";
constexpr char unreachableText[] = "Destination unreachable";

void complain(const std::string& text) {
    std::fprintf(stderr, "BrivonMessage5: %s\n", text.c_str());
}

EndPointFields toEndPointFields(const Value& value) {
    return {value["id"].toText("id"), value["appId"].toText("appId"), value["appVersion"].toText("appVersion")};
}

Value toValue(const EndPointFields& fields) {
    return Object{{"id", fields.id}, {"appId", fields.appId}, {"appVersion", fields.appVersion}};
}

std::vector<EndPoint> toEndPoints(const Value& value) {
    std::vector<EndPoint> endPoints;
    for (const Value& element : value.toList("an endpoint list"))
        endPoints.push_back(makeEndPoint(toEndPointFields(element)));
    return endPoints;
}

List toList(const std::vector<EndPoint>& endPoints) {
    List list;
    for (const EndPoint& endPoint : endPoints)
        list.push_back(toValue(fieldsOf(endPoint)));
    return list;
}

MessageFields toMessageFields(const Value& value) {
    MessageFields fields;
    fields.type = value["type"].toText("type");
    fields.appId = value["appId"].toText("appId");
    fields.appVersion = value["appVersion"].toText("appVersion");
    fields.source = makeEndPoint(toEndPointFields(value["source"]));
    fields.payload = value["payload"].toText("payload");
    fields.payloadSizeIsZero = value["payload"].isNull();
    fields.error = value["error"].toText("error");
    fields.fault = value["fault"].toText("fault");
    return fields;
}

BrivonMessageErrorCode toStatus(const std::optional<Value>& answer) {
    const double status = answer ? answer->toNumber("a status", 0) : 0;
    return static_cast<BrivonMessageErrorCode>(static_cast<std::int32_t>(status));
}

template <typename Element>
void eraseAll(std::vector<Element>& list, const Element& element) {
    list.erase(std::remove(list.begin(), list.end(), element), list.end());
}

template <typename Element>
bool contains(const std::vector<Element>& list, const Element& element) {
    return std::find(list.begin(), list.end(), element) != list.end();
}

} // namespace

Dispatcher& Dispatcher::instance() {
    static Dispatcher& dispatcher = *new Dispatcher;
    return dispatcher;
}

ScriptFace& messageScript() {
    return Dispatcher::instance();
}

// ---- Joining and leaving

BrivonMessageErrorCode Dispatcher::setConfig(const char* first, const char* second) {
    BrivonMessageErrorCode status = BrivonMessageErrorCode_Success;
    if (script_.isOn())
        status = toStatus(scripted("SetConfig", {first, second}));
    const std::lock_guard lock(mutex_);
    if (bus_ != nullptr && (fieldsOf(bus_->self()).appId != first || fieldsOf(bus_->self()).appVersion != second))
        complain("already on the bus as {" + fieldsOf(bus_->self()).appId + "," + fieldsOf(bus_->self()).appVersion +
                 "}; {" + first + "," + second + "} does not take effect before all adapters of this process are gone");
    config_.appId = first;
    config_.appVersion = second;
    return status;
}

BrivonMessageErrorCode Dispatcher::join(IBrivonMessageDispatcher** dispatcher) {
    if (script_.isOn()) {
        const std::optional<Value> answer = scripted("GetInstance");
        const bool isNull = answer && (*answer)["instance"].toBool("instance", true) == false;
        const BrivonMessageErrorCode status = isNull ? BrivonMessageErrorCode_Success : toStatus(answer);
        if (status != BrivonMessageErrorCode_Success || isNull)
            return status;
    }
    const std::lock_guard joining(joining_);
    if (instances_ == 0) {
        EndPointFields config;
        {
            const std::lock_guard lock(mutex_);
            config = config_;
        }
        try {
            thread_ = std::make_unique<LoopThread>();
            if (!script_.isOn()) {
                auto bus =
                    std::make_unique<Bus>(*thread_, static_cast<Bus::Events&>(*this), config.appId, config.appVersion);
                {
                    const std::lock_guard lock(mutex_);
                    bus_ = std::move(bus);
                }
                bus_->join();
            }
        } catch (const std::exception& error) {
            complain(error.what());
            stop();
            return statusNotJoined;
        }
    }
    ++instances_;
    *dispatcher = this;
    return BrivonMessageErrorCode_Success;
}

void Dispatcher::leave() {
    if (script_.isOn())
        scripted("ReleaseInstance");
    const std::lock_guard joining(joining_);
    if (instances_ == 0 || --instances_ > 0)
        return;
    if (bus_ != nullptr)
        bus_->drain(leavePatience);
    stop();
    const std::lock_guard lock(mutex_);
    messageListeners_.clear();
    errorListeners_.clear();
    callbacks_.clear();
}

// With joining_ held.
void Dispatcher::stop() {
    if (bus_ != nullptr)
        bus_->leave();
    thread_.reset();
    const std::lock_guard lock(mutex_);
    bus_.reset();
}

void Dispatcher::exit() {
    const std::unique_lock joining(joining_, std::try_to_lock);
    if (!joining.owns_lock() || bus_ == nullptr)
        return;
#if !defined(_WIN32) // which has ended the library's thread by now
    bus_->drain(exitPatience);
#endif
    bus_->unpublish();
}

LoopThread& Dispatcher::joinedThread() {
    if (thread_ == nullptr)
        throw std::runtime_error("no adapter is on the bus");
    return *thread_;
}

// ---- The contract's slots

BrivonMessageErrorCode Dispatcher::Send(const SuiteMessage& message) {
    MessageFields& fields = fieldsOf(message);
    if (script_.isOn()) {
        const Value sent = Object{{"type", fields.type},
                                  {"payload", fields.payload},
                                  {"source", toValue(fieldsOf(fields.source))},
                                  {"destinations", toList(fields.destinations)}};
        return toStatus(scripted("Send", {sent}));
    }
    if (bus_ == nullptr)
        return statusNotJoined;
    const EndPointFields& self = fieldsOf(bus_->self());
    fields.appId = self.appId;
    fields.appVersion = self.appVersion;
    // Nobody could answer a source without an id, which is what a program sends before it has seen its own endpoint.
    if (fieldsOf(fields.source).id.empty())
        fields.source = bus_->self();
    return bus_->send(fields);
}

void Dispatcher::addListener(const char* operation, std::vector<Listener*>& listeners, Listener* listener) {
    if (script_.isOn())
        scripted(operation, {labelOf(listener)});
    const std::lock_guard lock(mutex_);
    if (!contains(listeners, listener))
        listeners.push_back(listener);
}

void Dispatcher::removeListener(const char* operation, std::vector<Listener*>& listeners, Listener* listener) {
    if (script_.isOn())
        scripted(operation, {labelOf(listener)});
    std::unique_lock lock(mutex_);
    eraseAll(listeners, listener);
    awaitIdle(lock, listener);
}

void Dispatcher::AddMessageListener(Listener* listener) {
    addListener("AddMessageListener", messageListeners_, listener);
}
void Dispatcher::RemoveMessageListener(Listener* listener) {
    removeListener("RemoveMessageListener", messageListeners_, listener);
}
void Dispatcher::AddErrorListener(Listener* listener) {
    addListener("AddErrorListener", errorListeners_, listener);
}
void Dispatcher::RemoveErrorListener(Listener* listener) {
    removeListener("RemoveErrorListener", errorListeners_, listener);
}

void Dispatcher::RegisterEndPointsCallback(EndPointsCallback callback, void* context) {
    if (script_.isOn())
        scripted("RegisterEndPointsCallback", {labelOf(context)});
    const std::lock_guard lock(mutex_);
    if (!contains(callbacks_, {callback, context}))
        callbacks_.push_back({callback, context});
}

void Dispatcher::UnregisterEndPointsCallback(EndPointsCallback callback, void* context) {
    if (script_.isOn())
        scripted("UnregisterEndPointsCallback", {labelOf(context)});
    std::unique_lock lock(mutex_);
    eraseAll(callbacks_, {callback, context});
    awaitIdle(lock, context);
}

void Dispatcher::RefreshEndPoints() {
    if (!script_.isOn()) {
        bus_->refresh();
        return;
    }
    // A scripted refresh is over when it returns, unless the script says that it ends later.
    const std::optional<Value> answer = scripted("RefreshEndPoints");
    if (!answer || answer->toBool("whether the refresh ends at once", true))
        joinedThread().run([this] { endPointsChanged(); });
}

bool Dispatcher::IsRefreshing() {
    if (!script_.isOn())
        return bus_->isRefreshing();
    const std::optional<Value> answer = scripted("IsRefreshing");
    return answer && answer->toBool("whether a refresh is pending", false);
}

EndPoint Dispatcher::GetSelfEndPoint() {
    if (!script_.isOn())
        return bus_->self();
    const std::optional<Value> answer = scripted("GetSelfEndPoint");
    if (answer)
        return makeEndPoint(toEndPointFields(*answer));
    const std::lock_guard lock(mutex_);
    return makeEndPoint(scriptedSelf_.value_or(EndPointFields{"self", config_.appId, config_.appVersion}));
}

bool Dispatcher::IsReady() {
    if (!script_.isOn())
        return bus_ != nullptr;
    const std::optional<Value> answer = scripted("IsReady");
    return !answer || answer->toBool("whether the dispatcher is ready", true);
}

void Dispatcher::GetEndPoints(EndPoint** endPoints, std::size_t* count) {
    std::vector<EndPoint> list;
    if (!script_.isOn()) {
        list = bus_->endPoints();
    } else {
        const std::optional<Value> answer = scripted("GetEndPoints");
        if (answer && answer->asObject() != nullptr) { // {count: 0}: an array that is not null, of no endpoints
            static EndPoint unlisted;
            *endPoints = &unlisted;
            *count = 0;
            return;
        }
        const std::lock_guard lock(mutex_);
        list = answer ? toEndPoints(*answer) : scriptedEndPoints_;
    }
    *count = list.size();
    *endPoints = list.empty() ? nullptr : new EndPoint[list.size()];
    std::copy(list.begin(), list.end(), *endPoints);
}

void Dispatcher::ReleaseEndPoints(EndPoint* endPoints) {
    if (script_.isOn())
        scripted("ReleaseEndPoints", {});
    delete[] endPoints;
}

// ---- Calls into the program

void Dispatcher::awaitIdle(std::unique_lock<std::mutex>& lock, const void* target) {
    if (thread_ != nullptr && thread_->isCurrent())
        return;
    idle_.wait(lock, [this, target] { return !contains(running_, target); });
}

template <typename IsRegistered, typename Call>
void Dispatcher::callOut(const void* target, IsRegistered isRegistered, Call call) {
    {
        const std::lock_guard lock(mutex_);
        if (!isRegistered())
            return;
        running_.push_back(target);
    }
    try {
        call();
    } catch (const std::exception&) {
        // Programs throw nothing into the library: this is what the script has thrown into the program, come back.
    }
    const std::lock_guard lock(mutex_);
    running_.pop_back();
    idle_.notify_all();
}

void Dispatcher::endPointsChanged() {
    std::vector<Registration> callbacks;
    {
        const std::lock_guard lock(mutex_);
        callbacks = callbacks_;
    }
    for (const Registration& registration : callbacks)
        callOut(
            registration.context, [&] { return contains(callbacks_, registration); },
            [&] { registration.callback(registration.context); });
}

std::vector<Dispatcher::Listener*> Dispatcher::snapshot(const std::vector<Listener*>& listeners) {
    const std::lock_guard lock(mutex_);
    return listeners;
}

void Dispatcher::deliver(const MessageFields& message, const std::vector<Listener*>& listeners) {
    withMessage(message, [&](const BrivonMessage& made) {
        for (Listener* listener : listeners)
            callOut(
                listener, [&] { return contains(messageListeners_, listener) || contains(errorListeners_, listener); },
                [&] { listener->Receive(made); });
    });
}

void Dispatcher::received(const MessageFields& message) {
    deliver(message, snapshot(isErrorType(message.type) ? errorListeners_ : messageListeners_));
}

// Comes back twice: as an error to those who listen for errors, and as a message of its own type to every listener,
// which makes an adapter ask for a new endpoint list whichever listener it has.
void Dispatcher::unreachable(const EndPoint& destination) {
    const EndPointFields& fields = fieldsOf(destination);
    MessageFields error;
    error.type = ErrorMessage::TYPE;
    error.error = unreachableText;
    error.fault = "{" + fields.appId + "," + fields.appVersion + "," + fields.id + "}";
    received(error);

    MessageFields notice;
    notice.type = unreachableType;
    std::vector<Listener*> everyone = snapshot(messageListeners_);
    for (Listener* listener : snapshot(errorListeners_)) {
        if (!contains(everyone, listener))
            everyone.push_back(listener);
    }
    deliver(notice, everyone);
}

// ---- The script

std::optional<Value> Dispatcher::scripted(const char* operation, List arguments) {
    const bool onLibraryThread = thread_ != nullptr && thread_->isCurrent();
    return script_.call(operation, std::move(arguments), onLibraryThread);
}

int Dispatcher::labelOf(const void* pointer) {
    const std::lock_guard lock(mutex_);
    auto found = std::find(labels_.begin(), labels_.end(), pointer);
    if (found == labels_.end())
        found = labels_.insert(labels_.end(), pointer);
    return static_cast<int>(found - labels_.begin()) + 1;
}

void Dispatcher::switchOn() {
    const std::lock_guard joining(joining_);
    if (instances_ != 0 && !script_.isOn())
        throw std::runtime_error("an adapter of this process is on the real bus already");
    script_.switchOn();
}

void Dispatcher::answer(const std::string& operation, const Value& answer, unsigned times) {
    const auto is = [&operation](std::initializer_list<const char*> names) {
        return std::find(names.begin(), names.end(), operation) != names.end();
    };
    const bool isThrown = !answer["throws"].isNull();
    if (is({"SetConfig", "Send"})) {
        if (!isThrown)
            toStatus(answer);
    } else if (operation == "GetInstance") {
        if (!isThrown && answer["instance"].toBool("instance", true))
            toStatus(answer);
    } else if (is({"RefreshEndPoints", "IsRefreshing", "IsReady"})) {
        if (!isThrown)
            answer.toBool("an answer of this operation", false);
    } else if (operation == "GetSelfEndPoint") {
        toEndPointFields(answer);
    } else if (operation == "GetEndPoints") {
        if (!isThrown && answer["count"].toNumber("count", 1) != 0)
            toEndPoints(answer);
    } else if (!is({"AddMessageListener", "RemoveMessageListener", "AddErrorListener", "RemoveErrorListener",
                    "RegisterEndPointsCallback", "UnregisterEndPointsCallback", "ReleaseEndPoints"})) {
        throw std::invalid_argument("the messaging library has no operation " + operation);
    } else if (!isThrown) {
        throw std::invalid_argument(operation + " has no answer; it can only throw");
    }
    answer["throws"].toText("throws");
    script_.answer(operation, answer, times);
}

void Dispatcher::perform(const std::string& command, const Value& argument) {
    if (command == "deliver") {
        const MessageFields fields = toMessageFields(argument);
        const std::string listeners = argument["listeners"].toText("listeners");
        if (!listeners.empty() && listeners != "message" && listeners != "error")
            throw std::invalid_argument("listeners must be 'message' or 'error'");
        const bool toErrors = listeners.empty() ? isErrorType(fields.type) : listeners == "error";
        joinedThread().run([&] { deliver(fields, snapshot(toErrors ? errorListeners_ : messageListeners_)); });
    } else if (command == "setEndpoints") {
        const std::vector<EndPoint> endPoints = toEndPoints(argument);
        {
            const std::lock_guard lock(mutex_);
            scriptedEndPoints_ = endPoints;
        }
        if (thread_ != nullptr)
            thread_->run([this] { endPointsChanged(); });
    } else if (command == "setSelf") {
        const EndPointFields self = toEndPointFields(argument);
        const std::lock_guard lock(mutex_);
        scriptedSelf_ = self;
    } else if (command == "checkBus") {
        if (!script_.isOn())
            BusFolder::open();
    } else if (command == "reset") {
        script_.reset();
        const std::lock_guard lock(mutex_);
        labels_.clear();
        scriptedSelf_.reset();
        scriptedEndPoints_.clear();
    } else {
        throw std::invalid_argument("the messaging stand-in has no command " + command);
    }
}

namespace {

// Messages that a program has sent right before it exits still leave the process.
struct AtExit {
    ~AtExit() { Dispatcher::instance().exit(); }
} const atExit;

} // namespace

} // namespace standins

namespace kesta::brivon::api5 {

using standins::Dispatcher;

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char* first, const char* second) {
    return Dispatcher::instance().setConfig(first, second);
}

BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** dispatcher) {
    return Dispatcher::instance().join(dispatcher);
}

void IBrivonMessageDispatcher::ReleaseInstance() {
    Dispatcher::instance().leave();
}

} // namespace kesta::brivon::api5
