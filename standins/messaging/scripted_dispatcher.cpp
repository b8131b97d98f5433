#include "scripted_dispatcher.h"

#include <algorithm>
#include <stdexcept>

namespace standins {

namespace {

EndPointFields toFields(const Value& endPoint) {
    return {endPoint["id"].toText(), endPoint["appId"].toText(), endPoint["appVersion"].toText()};
}

Value toValue(const EndPoint& endPoint) {
    const EndPointFields& fields = fieldsOf(endPoint);
    return Object{{"id", fields.id}, {"appId", fields.appId}, {"appVersion", fields.appVersion}};
}

std::vector<EndPoint> toEndPoints(const Value& list) {
    std::vector<EndPoint> endPoints;
    for (const Value& element : list.as<List>())
        endPoints.push_back(makeEndPoint(toFields(element)));
    return endPoints;
}

} // namespace

Value ScriptedDispatcher::record(const char* operation, List arguments) {
    return script_.call(operation, std::move(arguments), std::this_thread::get_id() == threadId_);
}

void ScriptedDispatcher::noteCall(const char* operation, const void* target) {
    std::unique_lock lock(mutex_);
    auto found = std::find(labels_.begin(), labels_.end(), target);
    if (found == labels_.end())
        found = labels_.insert(labels_.end(), target);
    const auto label = static_cast<double>(found - labels_.begin() + 1);
    lock.unlock();
    record(operation, {label});
}

// ---- Joining and leaving

BrivonMessageErrorCode ScriptedDispatcher::setConfig(const char* first, const char* second) {
    const Value answer = record("SetConfig", {first, second});
    const std::lock_guard lock(mutex_);
    configured_ = {"self", first, second};
    return answer.toInteger<BrivonMessageErrorCode>();
}

BrivonMessageErrorCode ScriptedDispatcher::getInstance(IBrivonMessageDispatcher** dispatcher) {
    const Value answer = record("GetInstance");
    const auto status = answer.toInteger<BrivonMessageErrorCode>();
    if (status != BrivonMessageErrorCode_Success || !answer["instance"].as<bool>(true))
        return status;
    if (instances_ == 0) {
        const std::lock_guard lock(threadMutex_);
        thread_ = std::make_unique<LoopThread>();
        threadId_ = thread_->id();
    }
    ++instances_;
    *dispatcher = this;
    return status;
}

void ScriptedDispatcher::releaseInstance() {
    record("ReleaseInstance");
    if (instances_ == 0 || --instances_ > 0)
        return;
    const std::lock_guard lock(threadMutex_);
    thread_.reset();
    threadId_ = std::thread::id();
    callbacks_.clear();
}

// ---- The contract's slots

BrivonMessageErrorCode ScriptedDispatcher::send(const SuiteMessage& message) {
    const MessageFields& fields = fieldsOf(message);
    List destinations;
    for (const EndPoint& destination : fields.destinations)
        destinations.push_back(toValue(destination));
    const Object sent{{"type", fields.type},
                      {"payload", fields.payload},
                      {"source", toValue(fields.source)},
                      {"destinations", std::move(destinations)}};
    return record("Send", {sent}).toInteger<BrivonMessageErrorCode>();
}

// A refresh is over when it returns, unless the script says that it ends later.
void ScriptedDispatcher::RefreshEndPoints() {
    if (record("RefreshEndPoints").as<bool>(true))
        thread_->run([this] { callbacks_.endPointsChanged(); });
}

EndPoint ScriptedDispatcher::GetSelfEndPoint() {
    const Value answer = record("GetSelfEndPoint");
    const std::lock_guard lock(mutex_);
    return makeEndPoint(answer.isNull() ? self_.value_or(configured_) : toFields(answer));
}

void ScriptedDispatcher::GetEndPoints(EndPoint** array, std::size_t* count) {
    const Value answer = record("GetEndPoints");
    {
        const std::lock_guard lock(mutex_);
        handOut(answer.isNull() ? endPoints_ : toEndPoints(answer), array, count);
    }
    static EndPoint& unlisted = *new EndPoint;
    if (!answer["count"].isNull()) // { count: 0 } is an array that is not null
        *array = &unlisted;
}

void ScriptedDispatcher::ReleaseEndPoints(EndPoint* endPoints) {
    record("ReleaseEndPoints");
    Dispatcher::ReleaseEndPoints(endPoints);
}

// ---- The addon's requests

Value ScriptedDispatcher::request(const std::string& verb, const List& arguments) {
    if (verb == "deliver") {
        deliver(arguments.at(0));
    } else if (verb == "setEndpoints") {
        setEndPoints(arguments.at(0));
    } else if (verb == "setSelf") {
        const std::lock_guard lock(mutex_);
        self_ = toFields(arguments.at(0));
    } else {
        if (verb == "reset") {
            const std::lock_guard lock(mutex_);
            labels_.clear();
            self_.reset();
            endPoints_.clear();
        }
        return script_.request(verb, arguments);
    }
    return {};
}

void ScriptedDispatcher::deliver(const Value& message) {
    MessageFields fields;
    fields.type = message["type"].toText();
    fields.appId = message["appId"].toText();
    fields.appVersion = message["appVersion"].toText();
    fields.source = makeEndPoint(toFields(message["source"]));
    fields.payload = message["payload"].toText();
    fields.payloadSizeIsZero = message["payload"].isNull();
    fields.error = message["error"].toText();
    fields.fault = message["fault"].toText();
    const std::string listeners = message["listeners"].toText();
    const std::lock_guard lock(threadMutex_);
    if (thread_ == nullptr)
        throw std::runtime_error("no adapter is on the bus");
    thread_->run([&] {
        if (listeners.empty())
            callbacks_.received(fields);
        else
            callbacks_.deliver(fields, listeners == "error" ? Callbacks::Errors : Callbacks::Messages);
    });
}

void ScriptedDispatcher::setEndPoints(const Value& endPoints) {
    {
        const std::lock_guard lock(mutex_);
        endPoints_ = toEndPoints(endPoints);
    }
    const std::lock_guard lock(threadMutex_);
    if (thread_ != nullptr)
        thread_->run([this] { callbacks_.endPointsChanged(); });
}

} // namespace standins
