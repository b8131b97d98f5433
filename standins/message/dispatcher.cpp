// The library's static operations: configuration, joining, leaving, and the one choice between the bus and the script.
#include "bus_dispatcher.h"
#include "bus_folder.h"
#include "scripted_dispatcher.h"

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

std::mutex joining;                // serialises joining and leaving; never taken on the library's thread
DispatcherSlots* chosen = nullptr; // with that lock; the bus until the script is switched on

thread_local BrivonMessageErrorCode lastStatus = BrivonMessageErrorCode_Success;

DispatcherSlots& dispatcher() {
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

void checkBus() {
    const std::lock_guard lock(joining);
    if (chosen == nullptr)
        BusFolder::open();
}

BrivonMessageErrorCode lastSendStatus() {
    return lastStatus;
}

BrivonMessageErrorCode DispatcherSlots::Send(const SuiteMessage& message) {
    return lastStatus = send(message);
}

MessageScript& switchOnMessageScript() {
    const std::lock_guard lock(joining);
    if (busDispatcher().isInUse())
        throw std::runtime_error("an adapter of this process is on the real bus already");
    chosen = &scriptedDispatcher();
    return scriptedDispatcher();
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
