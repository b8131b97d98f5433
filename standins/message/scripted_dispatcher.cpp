#include "scripted_dispatcher.h"

#include "message_values.h"

#include <algorithm>
#include <stdexcept>

namespace standins {

ScriptedDispatcher::ScriptedDispatcher()
    : script_("messaging", messageOperations()) {}

std::optional<Value> ScriptedDispatcher::record(const char* operation, List arguments) {
    return script_.call(operation, std::move(arguments), std::this_thread::get_id() == threadId_);
}

int ScriptedDispatcher::labelOf(const void* pointer) {
    const std::lock_guard lock(mutex_);
    auto found = std::find(labels_.begin(), labels_.end(), pointer);
    if (found == labels_.end())
        found = labels_.insert(labels_.end(), pointer);
    return static_cast<int>(found - labels_.begin()) + 1;
}

// ---- Joining and leaving

BrivonMessageErrorCode ScriptedDispatcher::setConfig(const char* first, const char* second) {
    const std::optional<Value> answer = record("SetConfig", {first, second});
    const std::lock_guard lock(mutex_);
    configured_ = {"self", first, second};
    return toStatus(answer.value_or(Value()));
}

BrivonMessageErrorCode ScriptedDispatcher::getInstance(IBrivonMessageDispatcher** dispatcher) {
    const Value answer = record("GetInstance").value_or(Value());
    if (!givesInstance(answer))
        return BrivonMessageErrorCode_Success;
    const BrivonMessageErrorCode status = toStatus(answer);
    if (status != BrivonMessageErrorCode_Success)
        return status;
    if (instances_ == 0) {
        const std::lock_guard lock(threadMutex_);
        thread_ = std::make_unique<LoopThread>();
        threadId_ = thread_->id();
    }
    ++instances_;
    *dispatcher = this;
    return BrivonMessageErrorCode_Success;
}

void ScriptedDispatcher::releaseInstance() {
    record("ReleaseInstance");
    if (instances_ == 0 || --instances_ > 0)
        return;
    const std::lock_guard lock(threadMutex_);
    thread_.reset();
    threadId_ = std::thread::id();
    program_.clear();
}

// ---- The contract's slots

BrivonMessageErrorCode ScriptedDispatcher::send(const SuiteMessage& message) {
    const MessageFields& fields = fieldsOf(message);
    const Value sent = Object{{"type", fields.type},
                              {"payload", fields.payload},
                              {"source", toValue(fieldsOf(fields.source))},
                              {"destinations", toList(fields.destinations)}};
    return toStatus(record("Send", {sent}).value_or(Value()));
}

void ScriptedDispatcher::AddMessageListener(Listener* listener) {
    record("AddMessageListener", {labelOf(listener)});
    program_.addMessageListener(listener);
}
void ScriptedDispatcher::RemoveMessageListener(Listener* listener) {
    record("RemoveMessageListener", {labelOf(listener)});
    program_.removeMessageListener(listener);
}
void ScriptedDispatcher::AddErrorListener(Listener* listener) {
    record("AddErrorListener", {labelOf(listener)});
    program_.addErrorListener(listener);
}
void ScriptedDispatcher::RemoveErrorListener(Listener* listener) {
    record("RemoveErrorListener", {labelOf(listener)});
    program_.removeErrorListener(listener);
}

void ScriptedDispatcher::RegisterEndPointsCallback(EndPointsCallback callback, void* context) {
    record("RegisterEndPointsCallback", {labelOf(context)});
    program_.addCallback(callback, context);
}
void ScriptedDispatcher::UnregisterEndPointsCallback(EndPointsCallback callback, void* context) {
    record("UnregisterEndPointsCallback", {labelOf(context)});
    program_.removeCallback(callback, context);
}

// A refresh is over when it returns, unless the script says that it ends later.
void ScriptedDispatcher::RefreshEndPoints() {
    if (toBoolean(record("RefreshEndPoints").value_or(true)))
        thread_->run([this] { program_.endPointsChanged(); });
}

bool ScriptedDispatcher::IsRefreshing() {
    return toBoolean(record("IsRefreshing").value_or(false));
}

EndPoint ScriptedDispatcher::GetSelfEndPoint() {
    const std::optional<Value> answer = record("GetSelfEndPoint");
    if (answer)
        return makeEndPoint(toEndPointFields(*answer));
    const std::lock_guard lock(mutex_);
    return makeEndPoint(self_.value_or(configured_));
}

bool ScriptedDispatcher::IsReady() {
    return toBoolean(record("IsReady").value_or(true));
}

void ScriptedDispatcher::GetEndPoints(EndPoint** endPoints, std::size_t* count) {
    const std::optional<Value> answer = record("GetEndPoints");
    if (answer && isUnlisted(*answer)) {
        static EndPoint& unlisted = *new EndPoint;
        *endPoints = &unlisted;
        *count = 0;
        return;
    }
    std::vector<EndPoint> list;
    {
        const std::lock_guard lock(mutex_);
        list = answer ? toEndPoints(*answer) : endPoints_;
    }
    *endPoints = handOut(list);
    *count = list.size();
}

void ScriptedDispatcher::ReleaseEndPoints(EndPoint* endPoints) {
    record("ReleaseEndPoints");
    delete[] endPoints;
}

// ---- The script

void ScriptedDispatcher::answer(const std::string& operation, const Value& answer, unsigned times) {
    script_.answer(operation, answer, times);
}

void ScriptedDispatcher::reset() {
    script_.reset();
    const std::lock_guard lock(mutex_);
    labels_.clear();
    self_.reset();
    endPoints_.clear();
}

void ScriptedDispatcher::deliver(const Value& message) {
    const MessageFields fields = toMessageFields(message);
    const std::string listeners = message["listeners"].toText("listeners");
    if (!listeners.empty() && listeners != "message" && listeners != "error")
        throw std::invalid_argument("listeners must be 'message' or 'error'");
    const bool isError = listeners.empty() ? isErrorType(fields.type) : listeners == "error";
    const std::lock_guard lock(threadMutex_);
    if (thread_ == nullptr)
        throw std::runtime_error("no adapter is on the bus");
    thread_->run([&] { isError ? program_.tellError(fields) : program_.tellMessage(fields); });
}

void ScriptedDispatcher::setEndPoints(const Value& endPoints) {
    std::vector<EndPoint> list = toEndPoints(endPoints);
    {
        const std::lock_guard lock(mutex_);
        endPoints_ = std::move(list);
    }
    const std::lock_guard lock(threadMutex_);
    if (thread_ != nullptr)
        thread_->run([this] { program_.endPointsChanged(); });
}

void ScriptedDispatcher::setSelf(const Value& endPoint) {
    const std::lock_guard lock(mutex_);
    self_ = toEndPointFields(endPoint);
}

} // namespace standins
