// One of the two ways to be the controller, as the library's static operations see it.
#ifndef STANDINS_CONTROL_CONTROLLER_SLOTS_H
#define STANDINS_CONTROL_CONTROLLER_SLOTS_H

#include "BrivonControl.h"

namespace standins {

class ControllerSlots : public kesta::brivon::api5::IBrivonController {
public:
    // What stands behind the static operations of these names: any thread, one call at a time.
    virtual BrivonControlErrorCode getInstance(IBrivonController** controller) = 0;
    virtual void releaseInstance() = 0;
    virtual BrivonControlErrorCode setConfig(const char* first, const char* second) = 0;
    virtual BrivonControlErrorCode setConfigEx(const char** attributes) = 0;

    // The other slots may be called on any thread.
    void Reserved0() final {}

protected:
    ~ControllerSlots() = default;
};

} // namespace standins

#endif
