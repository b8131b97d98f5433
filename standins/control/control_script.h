// Where the addon finds the script of the control stand-in.
#ifndef STANDINS_CONTROL_SCRIPT_H
#define STANDINS_CONTROL_SCRIPT_H

#include "BrivonControl.h"
#include "script.h"

namespace standins {

class ControlScript : public ScriptFace {
public:
    // Lets go of every launch that is held back now.
    virtual void releaseLaunches() = 0;

protected:
    ~ControlScript() = default;
};

// Has the library answer from its script from now on, whatever was set before. Throws std::runtime_error when the real
// catalogue is in use already.
BRIVON_CONTROL_API ControlScript& switchOnControlScript();

} // namespace standins

#endif
