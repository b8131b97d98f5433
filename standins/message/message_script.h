// Where the addon finds the script of the messaging stand-in.
#ifndef STANDINS_MESSAGE_SCRIPT_H
#define STANDINS_MESSAGE_SCRIPT_H

#include "BrivonMessage5.h"
#include "script.h"

namespace standins {

BRIVON_MESSAGE5_API ScriptFace& messageScript();

} // namespace standins

#endif
