// The library's static operations, with the one choice between the bus and the script, and what is the same on both.
#include "dispatcher.h"

#include "bus_dispatcher.h"
#include "requests.h"
#include "scripted_dispatcher.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace standins {

namespace {

// Neither is ever destroyed: the library's thread may outlive static destruction.
BusDispatcher& busDispatcher() {
    static BusDispatcher& only = *new BusDispatcher;
    return only;
}
ScriptedDispatcher& scriptedDispatcher() {
    static ScriptedDispatcher& only = *new ScriptedDispatcher;
    return only;
}

std::mutex joining;           // serialises joining and leaving; never taken on the library's thread
Dispatcher* chosen = nullptr; // with that lock; the bus until the script is switched on

thread_local BrivonMessageErrorCode lastStatus = BrivonMessageErrorCode_Success;

Dispatcher& dispatcher() {
    return chosen == nullptr ? busDispatcher() : *chosen;
}

// Messages that a program has sent right before it exits still leave the process.
struct AtExit {
    ~AtExit() {
        const std::unique_lock lock(joining, std::try_to_lock);
        if (lock.owns_lock())
            dispatcher().exit();
    }
} const atExit;

} // namespace

Value requestMessaging(const std::string& verb, const List& arguments) {
    if (verb != "switchOn" && verb != "busFolder")
        return scriptedDispatcher().request(verb, arguments);
    const std::lock_guard lock(joining);
    if (verb == "busFolder")
        return chosen == nullptr ? Value(BusFolder::open().path()) : Value();
    if (busDispatcher().isInUse())
        throw std::runtime_error("an adapter of this process is on the real bus already");
    chosen = &scriptedDispatcher();
    return {};
}

BrivonMessageErrorCode lastSendStatus() {
    return lastStatus;
}

BrivonMessageErrorCode Dispatcher::Send(const SuiteMessage& message) {
    return lastStatus = send(message);
}

void Dispatcher::handOut(const std::vector<EndPoint>& list, EndPoint** array, std::size_t* count) {
    *array = list.empty() ? nullptr : new EndPoint[list.size()];
    std::copy(list.begin(), list.end(), *array);
    *count = list.size();
}

} // namespace standins

namespace kesta::brivon::api5 {

using standins::dispatcher;
using standins::joining;

BrivonMessageErrorCode IBrivonMessageDispatcher::SetConfig(const char* first, const char* second) {
    const std::lock_guard lock(joining);
    return dispatcher().setConfig(first, second);
}

BrivonMessageErrorCode IBrivonMessageDispatcher::GetInstance(IBrivonMessageDispatcher** instance) {
    const std::lock_guard lock(joining);
    return dispatcher().getInstance(instance);
}

void IBrivonMessageDispatcher::ReleaseInstance() {
    const std::lock_guard lock(joining);
    dispatcher().releaseInstance();
}

} // namespace kesta::brivon::api5
