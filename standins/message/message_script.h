// Where the addon finds the script of the messaging stand-in.
#ifndef STANDINS_MESSAGE_SCRIPT_H
#define STANDINS_MESSAGE_SCRIPT_H

#include "BrivonMessage5.h"
#include "script.h"

namespace standins {

// Each throws std::invalid_argument for an argument of another shape.
class MessageScript : public ScriptFace {
public:
    // Hands a message to the listeners from the library thread, and returns when they have taken it. Throws
    // std::runtime_error when nobody has joined.
    virtual void deliver(const Value& message) = 0;
    // Has what is registered rebuild its lists before it returns.
    virtual void setEndPoints(const Value& endPoints) = 0;
    virtual void setSelf(const Value& endPoint) = 0;

protected:
    ~MessageScript() = default;
};

// Has the library answer from its script from now on, whatever was set before. Throws std::runtime_error when the real
// bus is in use already.
BRIVON_MESSAGE5_API MessageScript& switchOnMessageScript();

// Throws std::runtime_error where a first adapter could not join the bus, because of its name or its folder; never on
// the script.
BRIVON_MESSAGE5_API void checkBus();

// The status of the calling thread's last Send, which the module tells nobody; 0 before there was one.
BRIVON_MESSAGE5_API BrivonMessageErrorCode lastSendStatus();

} // namespace standins

#endif
