// The few Windows calls that the module makes, under Windows' names everywhere.
//
// On Windows these are the system's own. Elsewhere platform/posix/ implements them with Windows' behaviour.
#ifndef PLATFORM_H
#define PLATFORM_H

#if defined(_WIN32)

#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#else

#include <cstdint>

using DWORD = std::uint32_t;

// Suspends the calling thread for at least the given number of milliseconds.
void Sleep(DWORD milliseconds);

#endif

#endif
