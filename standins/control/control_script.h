// Where the addon finds the script of the control stand-in.
#ifndef STANDINS_CONTROL_SCRIPT_H
#define STANDINS_CONTROL_SCRIPT_H

#include "BrivonControl.h"
#include "script.h"

namespace standins {

BRIVON_CONTROL_API ScriptFace& controlScript();

} // namespace standins

#endif
