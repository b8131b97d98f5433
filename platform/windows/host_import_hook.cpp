// Binds what is delay-imported from "node.exe" to the executable that hosts the process, whatever its file is called.
// Linked into everything that imports from the host. Runs on the thread that calls such a function for the first time.
#include <windows.h>

#include <delayimp.h>
#include <string.h>

namespace {

FARPROC WINAPI bindToHost(unsigned notification, DelayLoadInfo* info) {
    if (notification != dliNotePreLoadLibrary || _stricmp(info->szDll, "node.exe") != 0)
        return nullptr; // the default loading goes on
    return reinterpret_cast<FARPROC>(GetModuleHandleA(nullptr));
}

} // namespace

extern "C" {
PfnDliHook __pfnDliNotifyHook2 = bindToHost;
}
