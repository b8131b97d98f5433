// The few Windows calls that the module makes, under Windows' names everywhere.
//
// On Windows these are the system's own. Elsewhere platform/posix/ implements them with Windows' behaviour: they keep
// no state, run on any thread and never throw.
#ifndef PLATFORM_H
#define PLATFORM_H

#include <string>
#include <string_view>

#if defined(_WIN32)

#define WIN32_LEAN_AND_MEAN
#if !defined(NOMINMAX) // as some standard libraries do
#define NOMINMAX
#endif
#include <windows.h>
#include <winver.h>

#else

#include <cstdint>

using BOOL = int;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using WCHAR = char16_t;

constexpr UINT CP_UTF8 = 65001;

// Suspends the calling thread for at least the given number of milliseconds.
void Sleep(DWORD milliseconds);

// Convert between UTF-8 and UTF-16, the only code page and flags 0 alone. A source length of -1 reads up to the NUL and
// converts that too. They answer the units written, or needed when the output size is 0; 0 for bad arguments and for an
// output that is too small. What is not text becomes U+FFFD.
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* from, int fromLength, WCHAR* to, int toSize);
int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* from, int fromLength, char* to, int toSize,
                        const char* defaultChar, BOOL* usedDefaultChar);

// Bytes that the file's version block takes; 0 when the file has none or cannot be read.
DWORD GetFileVersionInfoSizeW(const WCHAR* path, DWORD* handle);
// Fills the caller's block; a block that is too small gets the beginning. Whatever the file holds, any text found in
// the block ends within it.
BOOL GetFileVersionInfoW(const WCHAR* path, DWORD handle, DWORD size, void* block);
// Looks a value up in a filled block: "\" is the fixed part, deeper names are separated by backslashes and their case
// is ignored. The value stays in the block; the length counts characters of text (with the NUL) and bytes of others,
// and becomes 0 when there is no such value.
BOOL VerQueryValueW(const void* block, const WCHAR* name, void** value, UINT* length);

#endif

namespace platform {

using WideString = std::basic_string<WCHAR>;

// Spells a wide literal on every platform: WCHAR is wchar_t on Windows alone.
inline WideString widen(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

} // namespace platform

#endif
