// Which handler of exceptions a library of the Microsoft compiler uses.
#ifndef BRIDGE_FRAME_HANDLERS_H
#define BRIDGE_FRAME_HANDLERS_H

#include <windows.h>

// __CxxFrameHandler3 of the library's run-time library; null when the library does not show it. The library may be
// mapped as data. Any thread.
FARPROC frameHandlerOf(HMODULE library);

#endif
