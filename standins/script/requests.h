// What the addon asks of each stand-in. Any thread but the libraries'.
//
// Both have answer(operation, answer, times), takeCalls(), reset() and
//   switchOn()            The library answers from its script from now on. Throws std::runtime_error when an adapter of
//                         the program already uses the real bus or catalogue.
// Messaging also has
//   busFolder()           The folder of the real bus, made where it is missing. Throws std::runtime_error where a first
//                         adapter could not join. Null on the script.
//   deliver(message)      Hands a message to the listeners on the library's thread, and returns when they have it.
//                         Throws std::runtime_error when nobody has joined.
//   setEndpoints(list)    Has what is registered rebuild its lists before it returns.
//   setSelf(endpoint)
// and control
//   releaseLaunches()     Lets go of every launch that is held back now.
#pragma once

#include "value.h"

#include "BrivonControl.h"
#include "BrivonMessage5.h"

namespace standins {

BRIVON_MESSAGE5_API Value requestMessaging(const std::string& verb, const List& arguments);
BRIVON_CONTROL_API Value requestControl(const std::string& verb, const List& arguments);

// The status of the calling thread's last Send, which the module tells nobody; 0 before there was one.
BRIVON_MESSAGE5_API BrivonMessageErrorCode lastSendStatus();

} // namespace standins
