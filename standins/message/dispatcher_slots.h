// One of the two ways to be the dispatcher, as the library's static operations see it.
#ifndef STANDINS_MESSAGE_DISPATCHER_SLOTS_H
#define STANDINS_MESSAGE_DISPATCHER_SLOTS_H

#include "BrivonMessage5.h"

namespace standins {

class DispatcherSlots : public kesta::brivon::api5::IBrivonMessageDispatcher {
public:
    // What stands behind the static operations of these names: any thread but the library's, one call at a time.
    virtual BrivonMessageErrorCode setConfig(const char* first, const char* second) = 0;
    virtual BrivonMessageErrorCode getInstance(IBrivonMessageDispatcher** dispatcher) = 0;
    // When the last instance is released, no thread of the library runs any more.
    virtual void releaseInstance() = 0;
    // Likewise, while the process exits.
    virtual void exit() {}
    virtual bool isInUse() const = 0;

    // What stands behind the slot of that name, which notes the status for lastSendStatus(); any thread.
    virtual BrivonMessageErrorCode send(const kesta::brivon::api5::SuiteMessage& message) = 0;
    BrivonMessageErrorCode Send(const kesta::brivon::api5::SuiteMessage& message) final;

    // The other slots may be called on any thread by whoever holds an instance.
    void Reserved0() final {}

protected:
    ~DispatcherSlots() = default;
};

} // namespace standins

#endif
